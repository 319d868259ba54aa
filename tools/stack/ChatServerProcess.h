// velmorin-chat-server as a child process: a generated config of users and
// channels, its SQLite database in a work folder, and the address it listens on.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"

class ChatServerProcess {
  public:
    struct User {
        std::string id;
        std::string nickname;
        std::string token;
    };
    struct Channel {
        std::string url;
        std::string name;
        bool isPublic = false;
        bool isSuper = false;
        std::vector<std::string> members;
    };
    struct Config {
        std::vector<User> users;
        std::vector<Channel> channels;
        std::string turnUrl;
        std::string turnSecret;
    };

    ChatServerProcess(std::string workDir, Config config);
    ~ChatServerProcess();

    /// Writes the config and starts the server; waits until it says where it
    /// listens. `port` 0 lets it choose.
    bool start(std::string& error, uint16_t port = 0);
    /// Stops the server and starts it again on the same port and database.
    bool restart(std::string& error);
    void stop();
    bool running() const { return process_ != nullptr; }

    const std::string& host() const { return host_; }
    uint16_t port() const { return port_; }
    /// "host:port", as qxvc-phone's --server wants it.
    std::string address() const { return host_ + ":" + std::to_string(port_); }
    std::string dbPath() const { return workDir_ + "/chat.db"; }
    std::string configPath() const { return workDir_ + "/chat-config.json"; }
    std::string logPath() const { return workDir_ + "/chat-server.log"; }
    const Config& config() const { return config_; }

  private:
    std::string workDir_;
    Config config_;
    std::unique_ptr<ChildProcess> process_;
    std::string host_ = "127.0.0.1";
    uint16_t port_ = 0;
    int starts_ = 0;
};
