#include "host/Arguments.h"

#include <gtest/gtest.h>

namespace brindlemar::host {
namespace {

std::vector<std::string> records(const std::vector<std::string>& arguments) {
    std::vector<std::string> result;
    for (const Connection& connection : parseConnections(arguments))
        result.push_back(connection.record() + "=" + connection.directory);
    return result;
}

TEST(Arguments, DomainsComeFromNamesAndAreUnique) {
    using Strings = std::vector<std::string>;
    EXPECT_EQ(records({"Work Files=/w", "work-files=/x", "Ünï=/u", "Brindlemar=/b", "Ж=/r"}),
              (Strings{"Work Files|work-files=/w", "work-files|work-files-2=/x", "Ünï|n=/u",
                       "Brindlemar|brindlemar-2=/b", "Ж|connection=/r"}));
    EXPECT_EQ(records({"a=/1", "B:a=/2=3", "c:d:work.rw=."}), (Strings{"a|a-2=/1", "B|a=/2=3", "c:d|work.rw=."}));
}

TEST(Arguments, FaultsAreNamedWithTheirArgument) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{"a=/1", "Work"}, "Argument 2, \"Work\": has no \"=\". Write NAME=DIRECTORY, for example Work=/home/me/work."},
        {{"=/x"}, "Argument 1, \"=/x\": the name before \"=\" is empty."},
        {{"a="}, "Argument 1, \"a=\": there is no directory after \"=\"."},
        {{"a|b=/x"}, "Argument 1, \"a|b=/x\": the name before \"=\" holds a \"|\" or a \"/\"."},
        {{"..=/x"}, "Argument 1, \"..=/x\": the name before \"=\" cannot be the name of a folder."},
        {{"\xff=/x"}, "Argument 1, \"\xff=/x\": the name before \"=\" is not UTF-8."},
        {{"a=/1", "a=/2"}, "Argument 2, \"a=/2\": the name \"a\" was given before."},
        {{"a:d=/1", "b:d=/2"}, "Argument 2, \"b:d=/2\": the domain \"d\" was given before."},
        {{"a:brindlemar=/1"}, "Argument 1, \"a:brindlemar=/1\": the domain \"brindlemar\" is reserved."},
        {{"a:=/1"}, "Argument 1, \"a:=/1\": the domain after \":\" is empty."},
    };
    for (const auto& [arguments, message] : cases) {
        try {
            parseConnections(arguments);
            ADD_FAILURE() << message;
        } catch (const ArgumentError& error) {
            EXPECT_TRUE(std::string_view(error.what()).starts_with(message)) << error.what();
        }
    }
}

} // namespace
} // namespace brindlemar::host
