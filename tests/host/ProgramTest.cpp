// The host's command line, and the ends of its process.
#include "host/Arguments.h"
#include "system/World.h"

#include <gtest/gtest.h>

#include <csignal>

namespace brindlemar::system_tests {
namespace {

TEST(Arguments, DomainsComeFromNamesAndAreUnique) {
    const auto records = [](const Arguments& arguments) {
        std::string text;
        for (const host::Connection& each : host::parseConnections(arguments))
            text += each.record() + "=" + each.directory + " ";
        return text;
    };
    EXPECT_EQ(records({"Work Files=/w", "work-files=/x", "\u00dcn\u00ef=/u", "Brindlemar=/b", "\u0416=/r"}),
              "Work Files|work-files=/w work-files|work-files-2=/x \u00dcn\u00ef|n=/u Brindlemar|brindlemar-2=/b "
              "\u0416|connection=/r ");
    EXPECT_EQ(records({"a=/1", "B:a=/2=3", "c:d:work.rw=."}), "a|a-2=/1 B|a=/2=3 c:d|work.rw=. ");
}

TEST(ProgramTest, EndsWithTheStatusThatSaysWhy) {
    World world;
    world.file("files/a.txt");
    const std::string argument = "Work:c7=" + world.path + "/files";
    const struct {
        Arguments arguments;
        int status;
        std::string message;
    } cases[] = {{{"--help"}, 0, ""},
                 {{}, 2, "CONNECTION is required"},
                 {{"a=/1", "Work"}, 2, "Argument 2, \"Work\": has no \"=\". Write NAME=DIRECTORY, for example Work="},
                 {{"=/x"}, 2, "\"=/x\": the name before \"=\" is empty."},
                 {{"a="}, 2, "there is no directory after"},
                 {{"a|b=/x"}, 2, "holds a \"|\" or a \"/\"."},
                 {{"..=/x"}, 2, "cannot be the name of a folder."},
                 {{"\xff=/x"}, 2, "is not UTF-8."},
                 {{"a=/1", "a=/2"}, 2, "the name \"a\" was given before."},
                 {{"a:d=/1", "b:d=/2"}, 2, "the domain \"d\" was given before."},
                 {{"a:brindlemar=/1"}, 2, "the domain \"brindlemar\" is reserved."},
                 {{argument, "--unknown"}, 2, "--unknown"},
                 {{argument, "--delay", "soon"}, 2, "--delay"},
                 {{argument, "--hold", "fly"}, 2, "--hold fly: there is no command"},
                 {{argument, "--fail", "fetchItem=0"}, 2, "--fail fetchItem=0: write COMMAND=N"},
                 {{argument, "--fail", "fly=1"}, 2, "--fail fly=1: there is no command"},
                 {{argument + "/a.txt"}, 3, "cannot be served: Not a directory."},
                 {{argument}, 1, "Another host already serves the domain \"c7\"."}};
    world.startService();
    world.startHost({argument, "--delay", "1", "--hold", "status", "--hold", "shutdown", "--fail", "getACL=2"});
    ASSERT_TRUE(world.runUntil({"ls", "Work"}, "a.txt\n", 10));
    for (const auto& each : cases) {
        const Result ended = world.run(each.arguments, BRINDLEMAR_HOST);
        EXPECT_EQ(ended.status, each.status) << ended.errors;
        EXPECT_NE(ended.errors.find(each.message), std::string::npos) << ended.errors;
    }
    EXPECT_EQ(world.host.end(SIGINT), 130);
}

} // namespace
} // namespace brindlemar::system_tests
