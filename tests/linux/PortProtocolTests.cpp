// The examples of docs/port-protocol.md are what the code does.
#include "linux/ports/PortAddress.h"
#include "linux/ports/PortFrame.h"

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <sstream>

namespace brindlemar {
namespace {

/// The packets of the example, by the word that begins them, and the rows of the table of socket files.
TEST(PortProtocol, TheDocumentsSocketFilesAndPacketsAreOurs) {
    std::map<std::string, std::string> packets, files;
    std::ifstream document(BRINDLEMAR_PORT_PROTOCOL);
    bool example = false;
    std::string packet;
    for (std::string line; std::getline(document, line);) {
        if (line == "```") example = !example;
        if (line.starts_with("| `") && line.find("~") != std::string::npos) {
            const auto end = line.find('`', 3), file = line.find('`', end + 1) + 1;
            files[line.substr(3, end - 3)] = line.substr(file, line.rfind('`') - file);
        }
        if (!example || line == "```") continue;
        std::istringstream words(line);
        if (line[0] != ' ') words >> packet;
        for (std::string byte; words >> byte;) packets[packet] += static_cast<char>(std::stoi(byte, nullptr, 16));
    }
    ASSERT_EQ(files.size(), 2U);
    for (const auto& [name, file] : files) EXPECT_EQ(portFileName(name), file);
    const struct {
        const char* packet;
        FrameHeader header;
        std::string body;
    } rows[] = {
        {"hello", {.kind = FrameKind::hello, .bodyLength = 35}, "group.io.brindlemar.bxserver.photos"},
        {"message", {.answerWanted = true, .msgid = 258, .bodyLength = 15}, R"({"command":"x"})"},
        {"answer", {.kind = FrameKind::answer, .msgid = 258, .bodyLength = 2}, "ok"},
        {"large", {.bodyInDescriptor = true, .msgid = -2, .bodyLength = 100'000}, ""},
    };
    ASSERT_EQ(packets.size(), std::size(rows));
    for (const auto& row : rows) {
        SCOPED_TRACE(row.packet);
        const auto head = encodeHeader(row.header);
        const std::string ours = std::string(head.data(), head.size()) + row.body;
        EXPECT_EQ(ours, packets.at(row.packet));
        const auto decoded = decodeFrame(ours, row.header.bodyInDescriptor ? 1 : 0, row.header.kind);
        ASSERT_TRUE(std::holds_alternative<Frame>(decoded)) << std::get<FrameFault>(decoded);
        EXPECT_EQ(std::get<Frame>(decoded).header, row.header);
        EXPECT_EQ(std::get<Frame>(decoded).body, row.body);
    }
}

} // namespace
} // namespace brindlemar
