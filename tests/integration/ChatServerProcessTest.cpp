// The real velmorin-chat-server binary: start-up line, clean stop, config
// errors, and a restart on the same database file.
#include <gtest/gtest.h>

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "ChatServerHarness.h"

extern char** environ;

using namespace chatserver_test;
namespace fs = std::filesystem;

namespace {

/// The server binary as a child process; stdout is read for the ready line,
/// stderr goes to a file.
class ServerProcess {
  public:
    ServerProcess(std::vector<std::string> args, const fs::path& stderrFile) {
        std::vector<char*> argv = {program_.data()};
        for (auto& arg : args) {
            argv.push_back(arg.data());
        }
        argv.push_back(nullptr);
        int out[2];
        if (pipe(out) != 0) {
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
        posix_spawn_file_actions_addclose(&actions, out[0]);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, stderrFile.c_str(),
                                         O_WRONLY | O_CREAT | O_APPEND, 0644);
        if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
            pid_ = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        close(out[1]);
        stdout_ = out[0];
    }
    ~ServerProcess() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        if (stdout_ >= 0) {
            close(stdout_);
        }
    }

    /// The port of the "listening on" line; 0 when the process ended or the
    /// deadline passed first.
    uint16_t waitForPort() {
        std::string text;
        const auto end = std::chrono::steady_clock::now() + kDeadline;
        while (std::chrono::steady_clock::now() < end) {
            pollfd fd{stdout_, POLLIN, 0};
            if (poll(&fd, 1, 100) <= 0) {
                continue;
            }
            char chunk[256];
            const ssize_t n = read(stdout_, chunk, sizeof chunk);
            if (n <= 0) {
                return 0;
            }
            text.append(chunk, static_cast<size_t>(n));
            const std::string prefix = "velmorin-chat-server listening on 127.0.0.1:";
            const auto newline = text.find('\n');
            if (newline != std::string::npos) {
                if (text.rfind(prefix, 0) != 0) {
                    return 0;
                }
                return static_cast<uint16_t>(std::stoi(text.substr(prefix.size())));
            }
        }
        return 0;
    }

    /// Exit code after `signal` (or without one); -1 when it did not exit normally.
    int stop(int signal = SIGTERM) {
        if (signal != 0) {
            kill(pid_, signal);
        }
        int status = 0;
        const auto end = std::chrono::steady_clock::now() + kDeadline;
        while (waitpid(pid_, &status, WNOHANG) == 0) {
            if (std::chrono::steady_clock::now() > end) {
                return -1;
            }
            usleep(10000);
        }
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

  private:
    std::string program_ = VELMORIN_CHAT_SERVER_PATH;
    pid_t pid_ = -1;
    int stdout_ = -1;
};

class ChatServerProcessTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::temp_directory_path() /
               ("velmorin-chat-server-test-" + std::to_string(getpid()) + "-" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    fs::path file(const std::string& name, const std::string& content) const {
        std::ofstream(dir_ / name) << content;
        return dir_ / name;
    }
    std::string log() const {
        std::ifstream in(dir_ / "stderr.log");
        std::stringstream text;
        text << in.rdbuf();
        return text.str();
    }

    fs::path dir_;
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
    const auto config = file("config.json", kConfig);
    const auto secret = file("turn-secret", "process-test-secret-0451\n");
    const auto db = dir_ / "chat.db";
    const std::vector<std::string> args = {"--config",      config.string(),      "--db",
                                           db.string(),     "--turn-secret-file", secret.string(),
                                           "--turn-server", kTurnServer};
    std::string password;
    nlohmann::json storeId;
    {
        ServerProcess server(args, dir_ / "stderr.log");
        const uint16_t port = server.waitForPort();
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
        EXPECT_EQ(server.stop(), 0);
    }
    {
        sqlite3* handle = nullptr;
        ASSERT_EQ(sqlite3_open_v2(db.c_str(), &handle, SQLITE_OPEN_READONLY, nullptr), SQLITE_OK);
        sqlite3_stmt* rows = nullptr;
        ASSERT_EQ(sqlite3_prepare_v2(handle,
                                     "SELECT message_id, channel_url, sender_id, message, "
                                     "custom_type, data, created_at FROM messages "
                                     "ORDER BY message_id",
                                     -1, &rows, nullptr),
                  SQLITE_OK);
        std::vector<int64_t> ids;
        while (sqlite3_step(rows) == SQLITE_ROW) {
            ids.push_back(sqlite3_column_int64(rows, 0));
            EXPECT_STREQ(reinterpret_cast<const char*>(sqlite3_column_text(rows, 2)), "alice");
        }
        sqlite3_finalize(rows);
        sqlite3_close(handle);
        EXPECT_EQ(ids, (std::vector<int64_t>{1, 2}));
    }

    ServerProcess server(args, dir_ / "stderr.log");
    const uint16_t port = server.waitForPort();
    ASSERT_NE(port, 0) << log();
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
    EXPECT_EQ(server.stop(SIGINT), 0);

    // Neither the TURN secret nor a credential reaches the default log.
    const std::string text = log();
    EXPECT_EQ(text.find("process-test-secret-0451"), std::string::npos);
    EXPECT_EQ(text.find(password), std::string::npos);
    EXPECT_EQ(text.find("alice-token"), std::string::npos);
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
        fs::remove(dir_ / "stderr.log");
        ServerProcess server(args, dir_ / "stderr.log");
        EXPECT_EQ(server.waitForPort(), 0) << why;
        EXPECT_EQ(server.stop(0), 2) << why;
        EXPECT_NE(log().find(why), std::string::npos) << why << " not in: " << log();
    }
}
