// A quoted value is one JSON string without a line break that reads back as the value; what is not UTF-8 stays raw.
#include "support/LogQuote.h"
#include "support/Utf8.h"

#include <boost/json.hpp>

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace brindlemar;
    const std::string_view value(reinterpret_cast<const char*>(data), size);
    LogLine quoted;
    appendQuoted(quoted, value);
    const std::string_view line = quoted.text();
    boost::system::error_code error;
    const boost::json::value read = boost::json::parse(line, error);
    if (isValidUtf8(value)) {
        if (error || !read.is_string() || read.get_string() != value) std::abort();
        if (line.find('\n') != line.npos || line.find('\r') != line.npos) std::abort();
    } else if (line != value) {
        std::abort();
    }
    return 0;
}
