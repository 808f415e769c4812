// The examples of docs/port-protocol.md are what the code does.
#include "linux/ports/PortAddress.h"
#include "linux/ports/PortFrame.h"

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

namespace brindlemar {
namespace {

TEST(PortProtocol, TheDocumentsSocketFilesAndHeadersAreOurs) {
    std::ifstream file(BRINDLEMAR_PORT_PROTOCOL);
    const std::string document{std::istreambuf_iterator<char>(file), {}};
    for (const std::string name : {"group.io.brindlemar.bxserver.photos", "a/b"})
        EXPECT_NE(document.find("| `" + name + "` | `" + portFileName(name) + "` |"), document.npos) << name;
    EXPECT_NE(document.find("| (empty) | `" + portFileName("") + "` |"), document.npos);
    const std::pair<std::string, FrameHeader> rows[] = {
        {"hello   ", {.kind = FrameKind::hello, .bodyLength = 35}},
        {"message ", {.answerWanted = true, .msgid = 258, .bodyLength = 15}},
        {"answer  ", {.kind = FrameKind::answer, .msgid = 258, .bodyLength = 2}},
        {"large   ", {.bodyInDescriptor = true, .msgid = -2, .bodyLength = 100'000}}};
    for (const auto& [word, header] : rows) {
        std::string line = "\n" + word;
        char hex[4];
        for (const char byte : encodeHeader(header)) {
            std::snprintf(hex, sizeof hex, " %02x", static_cast<unsigned char>(byte));
            line += hex;
        }
        EXPECT_NE(document.find(line + "\n"), document.npos) << line;
    }
}

} // namespace
} // namespace brindlemar
