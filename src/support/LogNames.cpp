#include "support/LogNames.h"

namespace brindlemar {

namespace {
std::string_view lastPiece(std::string_view identifier) {
    const auto end = identifier.find_last_not_of('.');
    if (end == identifier.npos) return {};
    identifier = identifier.substr(0, end + 1);
    return identifier.substr(identifier.rfind('.') + 1);
}
} // namespace

LogNames LogNames::of(std::string_view bundleIdentifier) {
    const std::string base(bundleIdentifier);
    LogNames names{base + ".log", base + ".console", base + ".filerotation", std::nullopt};
    if (const auto piece = lastPiece(bundleIdentifier); !piece.empty())
        names.file = "Logs/Brindlemar/" + std::string(piece) + ".log";
    return names;
}

} // namespace brindlemar
