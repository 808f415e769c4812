#include "platform/Errors.h"

namespace brindlemar {

std::string stockErrorDescription(std::string_view domain, int code) {
    std::string text = "The operation couldn\u2019t be completed. (";
    text.append(domain).append(" error ").append(std::to_string(code)).append(".)");
    return text;
}

std::string NSError::localizedDescription() const {
    return description.empty() ? stockErrorDescription(domain, code) : description;
}

} // namespace brindlemar
