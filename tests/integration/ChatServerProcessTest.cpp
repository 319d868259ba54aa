// The real velmorin-chat-server binary: start-up line, clean stop, config
// errors, and a restart on the same database file.
#include <gtest/gtest.h>

#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "ChatServerHarness.h"
#include "ChildProcess.h"

using namespace chatserver_test;
namespace fs = std::filesystem;

namespace {

/// The server binary; both its streams go to `log`.
std::unique_ptr<ChildProcess> runServer(std::vector<std::string> args, const fs::path& log) {
    ChildProcess::Setup setup;
    setup.argv = std::move(args);
    setup.argv.insert(setup.argv.begin(), VELMORIN_CHAT_SERVER_PATH);
    setup.logPath = log;
    std::string error;
    auto server = ChildProcess::start(std::move(setup), error);
    EXPECT_TRUE(server) << error;
    return server;
}

/// The port of the "listening on" line, which must come first; 0 when the
/// process ended or the deadline passed first.
uint16_t portOf(const ChildProcess& server) {
    const std::string prefix = "velmorin-chat-server listening on 127.0.0.1:";
    if (server.waitForLine([](const std::string&) { return true; }, 10) != 0) {
        return 0;
    }
    const std::string line = server.lines().front();
    return line.rfind(prefix, 0) == 0 ? static_cast<uint16_t>(std::stoi(line.substr(prefix.size())))
                                      : 0;
}

int stopWith(ChildProcess& server, int signal) {
    server.signalGroup(signal);
    return server.waitExit(10);
}

class ChatServerProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("velmorin-chat-server-test-" + std::to_string(getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
        log_ = dir_ / "server.log";
    }
    void TearDown() override { fs::remove_all(dir_); }

    fs::path file(const std::string& name, const std::string& content) const {
        std::ofstream(dir_ / name) << content;
        return dir_ / name;
    }
    std::string log(const fs::path& path = {}) const {
        std::ifstream in(path.empty() ? log_ : path);
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    fs::path dir_;
    fs::path log_;
};

const char* kConfig = R"({
  "users": [{"user_id": "alice", "nickname": "Alice", "token": "alice-token"},
            {"user_id": "bob", "nickname": "Bob", "token": "bob-token"}],
  "channels": [{"channel_url": "velmorin_group_channel_ab", "name": "", "is_public": false,
                "is_super": false, "members": ["alice", "bob"]}]
})";

nlohmann::json sendRequest(const std::string& data) {
    return {{"op", "send"}, {"channel_url", kChannel}, {"message", "QX_VIDEOCHAT"}, {"data", data}};
}

}  // namespace

TEST_F(ChatServerProcessTest, RestartOnTheSameDatabaseKeepsMessagesIdsAndPushPayloads) {
    const std::vector<std::string> args = {
        "--config",
        file("config.json", kConfig).string(),
        "--db",
        (dir_ / "chat.db").string(),
        "--turn-server",
        kTurnServer,
        "--turn-secret-file",
        file("turn-secret", "process-test-secret-0451\n").string()};
    std::string password;
    nlohmann::json storeId;
    {
        auto server = runServer(args, log_);
        ASSERT_TRUE(server);
        const uint16_t port = portOf(*server);
        ASSERT_NE(port, 0) << log();
        RawClient alice(port);
        auto login = alice.login("alice");
        ASSERT_TRUE(login.value("ok", false));
        storeId = login["result"]["store_id"];
        auto start =
            alice.request(sendRequest(R"(STCA{"type":"start","videochat_protocol_ver":1})"));
        ASSERT_TRUE(start.value("ok", false)) << start.dump();
        auto body =
            nlohmann::json::parse(start["result"]["message"]["data"].get<std::string>().substr(4));
        password = body["credentials"]["caller"]["password"];
        EXPECT_EQ(body["turn_server"], kTurnServer);
        ASSERT_TRUE(alice.request(sendRequest("second")).value("ok", false));
        EXPECT_EQ(stopWith(*server, SIGTERM), 0);
    }

    auto server = runServer(args, dir_ / "restarted.log");
    ASSERT_TRUE(server);
    const uint16_t port = portOf(*server);
    ASSERT_NE(port, 0) << log(dir_ / "restarted.log");
    RawClient bob(port);
    auto login = bob.login("bob");
    ASSERT_TRUE(login.value("ok", false)) << login.dump();
    EXPECT_EQ(login["result"]["channels"][0]["last_message_id"], 2);
    EXPECT_EQ(login["result"]["store_id"], storeId);         // the same history: clients catch up
    ASSERT_EQ(login["result"]["push_payloads"].size(), 2u);  // bob was away for both
    EXPECT_EQ(login["result"]["push_payloads"][1]["velmorin"]["data"], "second");
    auto history =
        bob.request({{"op", "fetch"}, {"channel_url", kChannel}, {"after_message_id", 0}});
    ASSERT_EQ(history["result"]["messages"].size(), 2u);
    EXPECT_EQ(history["result"]["messages"][1]["data"], "second");
    EXPECT_EQ(history["result"]["messages"][1]["sender"]["nickname"], "Alice");
    auto next = bob.request(sendRequest("third"));
    EXPECT_EQ(next["result"]["message"]["message_id"], 3);
    EXPECT_EQ(stopWith(*server, SIGINT), 0);

    // Neither the TURN secret nor a credential reaches the default log.
    for (const std::string& text : {log(), log(dir_ / "restarted.log")}) {
        EXPECT_EQ(text.find("process-test-secret-0451"), std::string::npos);
        EXPECT_EQ(text.find(password), std::string::npos);
        EXPECT_EQ(text.find("alice-token"), std::string::npos);
    }
}

TEST_F(ChatServerProcessTest, BadConfigurationExitsWithTwoAndSaysWhy) {
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
        {"not valid JSON", {"--config", file("broken.json", "{\"users\": [").string()}},
        {"unknown key", {"--config", file("typo.json", R"({"user": []})").string()}},
        {"\"token\" is required",
         {"--config", file("tokenless.json", R"({"users":[{"user_id":"a"}]})").string()}},
        {"Unknown user",
         {"--user=alice:t", "--channel=c:alice,zed", "--turn-server=turn:127.0.0.1:3478",
          "--turn-secret=s"}},
        {"cannot read " + (dir_ / "missing.json").string() + ": No such file or directory",
         {"--config", (dir_ / "missing.json").string()}},
        {"unknown option", {"--frobnicate", "1"}},
        // Refused at start rather than failing every login or every call later.
        {"no users", {}},
        {"--turn-server URL is required", {"--user", "alice:t"}},
        {"--turn-server needs --turn-secret",
         {"--user", "alice:t", "--turn-server", "turn:127.0.0.1:3478"}},
    };
    for (const auto& [why, args] : cases) {
        auto server = runServer(args, log_);
        ASSERT_TRUE(server);
        EXPECT_EQ(portOf(*server), 0) << why;
        EXPECT_EQ(server->waitExit(10), 2) << why;
        EXPECT_NE(log().find(why), std::string::npos) << why << " not in: " << log();
    }
}
