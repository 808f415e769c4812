#include "linux/dbus/Control.h"
#include "linux/TemporaryRuntime.h"

namespace brindlemar {
namespace {

void writeLine(const FileDescriptor& output, const std::string& line) {
    ASSERT_EQ(::write(output.get(), line.data(), line.size()), static_cast<ssize_t>(line.size()));
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
        handlers.callItem = [](std::string identifier, FileDescriptor output) { writeLine(output, "i " + identifier); };
        handlers.callList = [](std::string identifier, std::uint32_t pageSize, FileDescriptor output) {
            writeLine(output, "l " + identifier + " " + std::to_string(pageSize));
        };
        return ControlServer::start(runtime.directory, std::move(handlers), [](std::string_view) {});
    }
    void SetUp() override { server = std::get<std::unique_ptr<ControlServer>>(start()); }
    auto connect() const { return ControlClient::connect(runtime.directory); }
    std::string path() const { return runtime.directory.path() + "/control"; }
};

TEST_F(ControlTest, RoundTrips) {
    const auto readAll = [](const FileDescriptor& input) {
        char buffer[4096];
        std::string all;
        for (ssize_t got; (got = ::read(input.get(), buffer, sizeof buffer)) > 0;) all.append(buffer, got);
        return all;
    };
    auto client = connect();
    ASSERT_TRUE(client);
    EXPECT_EQ(client->status(), R"({"configured":true})");
    EXPECT_EQ(client->endpoint("known"), "unix:path=/x");
    EXPECT_EQ(client->endpoint("other"), std::nullopt);
    EXPECT_EQ(client->error(), "there is no service named other");
    const auto item = client->callItem("c7|a\nü"), list = client->callList("c7|0", 4'000'000'000u);
    ASSERT_TRUE(item && list);
    EXPECT_EQ(readAll(*item), "i c7|a\nü");
    EXPECT_EQ(readAll(*list), "l c7|0 4000000000");
    server.reset();
    EXPECT_EQ(client->status(), std::nullopt);
    EXPECT_FALSE(client->error().empty());
    EXPECT_FALSE(connect());
    EXPECT_EQ(runtime.named("control"), std::vector<std::string>{"control.lock"});
}

TEST_F(ControlTest, OneServerHoldsThePlace) {
    const auto second = start();
    ASSERT_TRUE(std::holds_alternative<ControlServer::Refusal>(second));
    EXPECT_EQ(std::get<ControlServer::Refusal>(second).holder, ::getpid());
    EXPECT_TRUE(connect()) << "the first one still answers";
    server.reset();
    runtime.leaveSocket("control");
    SetUp();
    EXPECT_TRUE(connect()) << "a dead one is replaced";
    server.reset();
    std::filesystem::create_directory(path());
    EXPECT_TRUE(std::holds_alternative<ControlServer::Refusal>(start())) << "other files are not";
}

TEST_F(ControlTest, ThousandStrangersDoNotKeepOthersOut) {
    const auto silent = connectMany(path(), 300, "");
    const auto noisy = connectMany(path(), 300, std::string(70'000, 'x'));
    const auto half = connectMany(path(), 400, std::string_view("\0AUTH EXTERNAL\r\n", 16));
    auto client = connect();
    ASSERT_TRUE(client);
    EXPECT_EQ(client->status(), R"({"configured":true})");
}

TEST_F(ControlTest, WrongCallsAreAnsweredWithAnErrorAndUnreadAnswersEndAPeer) {
    RawBusPeer peer(path());
    const auto method = [](const char* member, const char* version = "1") {
        return BusPeer::Method{"/io/brindlemar/Control", std::string("io.brindlemar.Control") + version, member};
    };
    const std::string refused = SD_BUS_ERROR_UNKNOWN_METHOD;
    EXPECT_EQ(peer.call(method("Status"), "s", "x"), refused);
    EXPECT_EQ(peer.call(method("CallItem"), "ss", "x", "y"), refused);
    EXPECT_EQ(peer.call(method("Stop"), ""), refused);
    EXPECT_EQ(peer.call(method("Status", "2"), ""), refused);
    EXPECT_EQ(peer.call(method("CallItem"), "sh", "x", runtime.directory.descriptor()),
              SD_BUS_ERROR_INVALID_ARGS); // no pipe
    EXPECT_EQ(peer.call(method("Status"), ""), "");

    const std::string name(100'000, 'n');
    std::uint64_t cookie = 0; // asking for it asks for an answer
    int sent = 0, status = 0;
    for (; status >= 0 && sent < 10'000; ++sent) {
        const BusMessage message = peer.bus->makeCall(method("Endpoint"));
        sd_bus_message_append(message.get(), "s", name.c_str());
        status = sd_bus_send(peer.bus->get(), message.get(), &cookie);
        if (status >= 0) status = sd_bus_flush(peer.bus->get()); // writes only: the answers stay where they are
    }
    EXPECT_LT(status, 0);
}

} // namespace
} // namespace brindlemar
