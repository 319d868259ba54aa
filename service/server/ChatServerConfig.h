// What velmorin-chat-server is told at start: command line, config file, and
// setting the service up from them.
//
// Config file (JSON):
//   {"users":[{"user_id":"alice","nickname":"Alice","token":"alice-token",
//              "profile_url":""}...],
//    "channels":[{"channel_url":"...","name":"...","is_public":false,
//                 "is_super":false,"members":["alice","bob"]}...]}
// Both keys are optional; anything else in the file is an error, so a typo
// does not silently leave a user out.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "ServerLog.h"
#include "VelmorinService/ChatService.h"

namespace velmorin::server {

struct UserAccount {
    QXDUser user;
    std::string token;
};

struct ServerConfig {
    std::string host = "127.0.0.1";
    uint16_t port = 0;
    std::string dbPath;  // "": in memory
    LogLevel logLevel = LogLevel::Info;
    ServiceSettings settings;
    std::vector<UserAccount> users;
    std::vector<GroupChannelSpec> channels;
};

struct CommandLine {
    std::optional<ServerConfig> config;  // nullopt on error or --help
    std::string error;                   // set on error
    bool help = false;
};

/// Parses the arguments (argv[0] is the program). Reads the config file and the
/// TURN secret file it names.
CommandLine parseCommandLine(int argc, const char* const* argv);
std::string usage();

/// Adds the users and channels of `object` (the config file's JSON) to
/// `config`. Returns an error text, "" on success.
std::string applyConfigJson(const nlohmann::json& object, ServerConfig& config);

/// Creates the users and channels of `config` in `service`. Returns an error
/// text, "" on success.
std::string setUpService(ChatService& service, const ServerConfig& config);

/// User id to token, for the login check.
std::map<std::string, std::string> tokensOf(const ServerConfig& config);

}  // namespace velmorin::server
