#include "linux/dbus/Control.h"
#include "linux/TemporaryRuntime.h"
#include "linux/dbus/BusPeer.h"

namespace brindlemar {
namespace {

void writeLine(const FileDescriptor& output, const std::string& line) {
    ASSERT_EQ(::write(output.get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
}

std::string readAll(const FileDescriptor& input) {
    std::string all;
    char buffer[4096];
    for (ssize_t got; (got = ::read(input.get(), buffer, sizeof buffer)) > 0;) all.append(buffer, got);
    return all;
}

struct ControlTest : ::testing::Test {
    TemporaryRuntime runtime;
    std::unique_ptr<ControlServer> server;

    ControlServer::Result start() {
        ControlHandlers handlers;
        handlers.status = [] { return std::string(R"({"configured":true})"); };
        handlers.endpoint = [](std::string name) {
            return name == "known" ? std::optional<std::string>("unix:path=/x") : std::nullopt;
        };
        handlers.callItem = [](std::string identifier, FileDescriptor output) {
            writeLine(output, "item " + identifier + "\n");
        };
        handlers.callList = [](std::string identifier, std::uint32_t pageSize, FileDescriptor output) {
            writeLine(output, "list " + identifier + " " + std::to_string(pageSize) + "\n");
        };
        return ControlServer::start(runtime.directory, std::move(handlers), [](std::string_view) {});
    }
    void SetUp() override { server = std::get<std::unique_ptr<ControlServer>>(start()); }
    std::string path() const { return runtime.directory.path() + "/control"; }
};

TEST_F(ControlTest, RoundTrips) {
    std::optional<ControlClient> client = ControlClient::connect(runtime.directory);
    ASSERT_TRUE(client);
    EXPECT_EQ(client->status(), R"({"configured":true})");
    EXPECT_EQ(client->endpoint("known"), "unix:path=/x");
    EXPECT_EQ(client->endpoint("other"), std::nullopt);
    EXPECT_EQ(client->error(), "there is no service named other");
    const auto item = client->callItem("c7|a\nü"), list = client->callList("c7|0", 4'000'000'000u);
    ASSERT_TRUE(item && list);
    EXPECT_EQ(readAll(*item), "item c7|a\nü\n");
    EXPECT_EQ(readAll(*list), "list c7|0 4000000000\n");
    server.reset();
    EXPECT_EQ(client->status(), std::nullopt);
    EXPECT_FALSE(client->error().empty());
    EXPECT_FALSE(ControlClient::connect(runtime.directory));
    EXPECT_EQ(runtime.named("control"), std::vector<std::string>{"control.lock"});
}

TEST_F(ControlTest, SecondServerIsRefusedWithTheHoldersProcess) {
    const auto second = start();
    ASSERT_TRUE(std::holds_alternative<ControlServer::Refusal>(second));
    const auto& refusal = std::get<ControlServer::Refusal>(second);
    EXPECT_EQ(refusal.holder, ::getpid());
    EXPECT_EQ(refusal.reason, "is already running (pid " + std::to_string(::getpid()) + ")");
    EXPECT_TRUE(ControlClient::connect(runtime.directory)) << "the first one still answers";
}

TEST_F(ControlTest, StaleSocketIsReplacedAndOtherFilesAreNot) {
    server.reset();
    runtime.leaveSocket("control");
    SetUp();
    EXPECT_TRUE(ControlClient::connect(runtime.directory));
    server.reset();
    std::filesystem::create_directory(path());
    EXPECT_TRUE(std::holds_alternative<ControlServer::Refusal>(start()));
}

TEST_F(ControlTest, ThousandStrangersDoNotKeepOthersOut) {
    const auto silent = connectMany(path(), 300, "");
    const auto noisy = connectMany(path(), 300, std::string(70'000, 'x'));
    const auto half = connectMany(path(), 400, std::string_view("\0AUTH EXTERNAL\r\n", 16));
    std::optional<ControlClient> client = ControlClient::connect(runtime.directory);
    ASSERT_TRUE(client);
    EXPECT_EQ(client->status(), R"({"configured":true})");
}

TEST_F(ControlTest, WrongCallsAreAnsweredWithAnError) {
    Wake wake;
    const auto peer = BusPeer::open(connectSocket(path()), BusPeer::Role::client);
    ASSERT_TRUE(peer && peer->authenticate(wake));
    const auto refuses = [&](const char* interface, const char* member, const char* types, auto... values) {
        const BusMessage message = peer->makeCall({"/io/brindlemar/Control", interface, member});
        sd_bus_message_append(message.get(), types, values...);
        sd_bus_error error = SD_BUS_ERROR_NULL;
        sd_bus_call(peer->get(), message.get(), 20'000'000, &error, nullptr);
        const std::string name = error.name ? error.name : "";
        sd_bus_error_free(&error);
        return name == SD_BUS_ERROR_UNKNOWN_METHOD;
    };
    EXPECT_TRUE(refuses("io.brindlemar.Control1", "Status", "s", "x"));
    EXPECT_TRUE(refuses("io.brindlemar.Control1", "CallItem", "ss", "x", "y"));
    EXPECT_TRUE(refuses("io.brindlemar.Control1", "Stop", ""));
    EXPECT_TRUE(refuses("io.brindlemar.Control2", "Status", ""));
    EXPECT_FALSE(refuses("io.brindlemar.Control1", "Status", ""));
}

TEST_F(ControlTest, ClientThatDoesNotReadItsAnswersIsCutOff) {
    Wake wake;
    const auto peer = BusPeer::open(connectSocket(path()), BusPeer::Role::client);
    ASSERT_TRUE(peer && peer->authenticate(wake));
    const std::string name(100'000, 'n');
    std::uint64_t cookie = 0; // asking for it asks for an answer
    int sent = 0, status = 0;
    while (status >= 0 && sent < 10'000) {
        const BusMessage message = peer->makeCall({"/io/brindlemar/Control", "io.brindlemar.Control1", "Endpoint"});
        sd_bus_message_append(message.get(), "s", name.c_str());
        status = sd_bus_send(peer->get(), message.get(), &cookie);
        if (status >= 0) status = sd_bus_flush(peer->get()); // writes only: the answers stay where they are
        ++sent;
    }
    EXPECT_LT(status, 0);
}

} // namespace
} // namespace brindlemar
