// The service and the reference host with two connections, for tests of the programs together.
#pragma once

#include "system/World.h"

#include "support/JSON.h"

#include <gtest/gtest.h>

#include <iostream>

namespace brindlemar::system_tests {

inline const bool kLong = std::getenv("BRINDLEMAR_LONG_TESTS") != nullptr;
inline constexpr auto kUnreachable = R"("error":{"domain":"NSFileProviderErrorDomain","code":-1004}})";

class ProgramsTest : public testing::Test {
protected:
    void SetUp() override {
        world.file("photos/2024/a.txt", "12 bytes long");
        world.file("work/b.txt");
    }
    void TearDown() override {
        if (HasFailure())
            std::cerr << contentsOf(world.path + "/host.err")
                      << contentsOf(world.path + "/service.err").substr(0, 4000);
    }
    Arguments connections(Arguments options = {}) const {
        options.insert(options.end(), {"Photos=" + world.path + "/photos", "Work=" + world.path + "/work"});
        return options;
    }
    void startBoth(const Arguments& options = {}) {
        world.startService();
        world.startHost(connections(options));
        ASSERT_TRUE(world.runUntil({"ls"}, kTop, 10));
    }
    JSON status() { return JSON::parse(world.run({"status", "--json"}).output); }
    bool becomes(std::string_view state) {
        return eventually([&] { return status()["domain"]["state"].string() == state; });
    }
    std::int64_t waiting() { return status()["requests"]["waiting"].number()->int64Value(); }
    bool isEnumerating() { return status()["signals"]["enumerating"].uInt16Value() != 0; }
    static constexpr auto kTop = "Photos\nWork\n";
    World world;
};

} // namespace brindlemar::system_tests
