#include "ChatServerConfig.h"

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <set>

#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace velmorin::server {

namespace {

/// The whole file; nullopt with the system's reason in `error`.
std::optional<std::string> readFile(const std::string& path, std::string& error) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    if (file == nullptr) {
        error = std::strerror(errno);
        return std::nullopt;
    }
    std::string text;
    char chunk[4096];
    size_t n = 0;
    while ((n = std::fread(chunk, 1, sizeof chunk, file)) > 0) {
        text.append(chunk, n);
    }
    const int failure = std::ferror(file) ? errno : 0;
    std::fclose(file);
    if (failure != 0) {
        error = std::strerror(failure);
        return std::nullopt;
    }
    return text;
}

std::string trimmed(const std::string& text) {
    const auto first = text.find_first_not_of(" \t\r\n");
    if (first == std::string::npos) {
        return {};
    }
    const auto last = text.find_last_not_of(" \t\r\n");
    return text.substr(first, last - first + 1);
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::string::size_type start = 0;
    for (;;) {
        const auto at = text.find(separator, start);
        parts.push_back(text.substr(start, at == std::string::npos ? at : at - start));
        if (at == std::string::npos) {
            return parts;
        }
        start = at + 1;
    }
}

std::string checkKeys(const nlohmann::json& object, const std::set<std::string>& allowed,
                      const std::string& where) {
    for (const auto& item : object.items()) {
        if (allowed.count(item.key()) == 0) {
            return where + ": unknown key \"" + item.key() + "\"";
        }
    }
    return {};
}

std::string stringField(const nlohmann::json& object, const char* key, bool required,
                        std::string& out, const std::string& where) {
    const auto it = object.find(key);
    if (it == object.end()) {
        return required ? where + ": \"" + key + "\" is required" : std::string();
    }
    if (!it->is_string()) {
        return where + ": \"" + key + "\" must be a string";
    }
    out = it->get<std::string>();
    if (required && out.empty()) {
        return where + ": \"" + key + "\" must not be empty";
    }
    return {};
}

std::string boolField(const nlohmann::json& object, const char* key, bool& out,
                      const std::string& where) {
    const auto it = object.find(key);
    if (it == object.end()) {
        return {};
    }
    if (!it->is_boolean()) {
        return where + ": \"" + key + "\" must be true or false";
    }
    out = it->get<bool>();
    return {};
}

std::string applyUser(const nlohmann::json& object, ServerConfig& config,
                      const std::string& where) {
    if (!object.is_object()) {
        return where + " must be an object";
    }
    std::string error = checkKeys(object, {"user_id", "nickname", "token", "profile_url"}, where);
    std::string id, nickname, token, profileUrl;
    for (auto field : {stringField(object, "user_id", true, id, where),
                       stringField(object, "token", true, token, where),
                       stringField(object, "nickname", false, nickname, where),
                       stringField(object, "profile_url", false, profileUrl, where)}) {
        if (error.empty()) {
            error = field;
        }
    }
    if (!error.empty()) {
        return error;
    }
    config.users.push_back({QXDUser(id, nickname, profileUrl), token});
    return {};
}

std::string applyChannel(const nlohmann::json& object, ServerConfig& config,
                         const std::string& where) {
    if (!object.is_object()) {
        return where + " must be an object";
    }
    GroupChannelSpec channel;
    std::string error =
        checkKeys(object, {"channel_url", "name", "is_public", "is_super", "members"}, where);
    for (auto field : {stringField(object, "channel_url", true, channel.channelUrl, where),
                       stringField(object, "name", false, channel.name, where),
                       boolField(object, "is_public", channel.isPublic, where),
                       boolField(object, "is_super", channel.isSuper, where)}) {
        if (error.empty()) {
            error = field;
        }
    }
    if (!error.empty()) {
        return error;
    }
    const auto members = object.find("members");
    if (members == object.end() || !members->is_array()) {
        return where + ": \"members\" must be an array of user ids";
    }
    for (const auto& member : *members) {
        if (!member.is_string() || member.get<std::string>().empty()) {
            return where + ": \"members\" must be an array of user ids";
        }
        channel.memberIds.push_back(member.get<std::string>());
    }
    config.channels.push_back(std::move(channel));
    return {};
}

template <typename T>
bool parseNumber(const std::string& text, T& out) {
    const char* end = text.data() + text.size();
    auto [ptr, ec] = std::from_chars(text.data(), end, out);
    return ec == std::errc() && ptr == end && !text.empty();
}

}  // namespace

std::string usage() {
    return "usage: velmorin-chat-server --user ID:TOKEN... | --config FILE --turn-server URL\n"
           "                            --turn-secret S | --turn-secret-file F [options]\n"
           "options take their value as --option VALUE or --option=VALUE\n"
           "  --listen HOST              address to listen on (default 127.0.0.1)\n"
           "  --port N                   port (default 0: any free port)\n"
           "  --config FILE              users and channels (JSON)\n"
           "  --user ID:TOKEN[:NICKNAME] add a user\n"
           "  --channel URL:ID,ID...     add a private two-member (or larger) channel\n"
           "  --db PATH                  SQLite file for messages and push payloads\n"
           "                             (default: in memory)\n"
           "  --turn-server URL          TURN server written into call starts (required)\n"
           "  --turn-secret S            secret shared with the TURN server (or the file:)\n"
           "  --turn-secret-file F       read that secret from F\n"
           "  --start-call-window SECONDS  how long a start blocks another one\n"
           "  --log-level LEVEL          error, warning, info (default) or debug\n";
}

std::string applyConfigJson(const nlohmann::json& object, ServerConfig& config) {
    if (!object.is_object()) {
        return "the config must be a JSON object";
    }
    if (auto error = checkKeys(object, {"users", "channels"}, "config"); !error.empty()) {
        return error;
    }
    for (const char* key : {"users", "channels"}) {
        const auto list = object.find(key);
        if (list == object.end()) {
            continue;
        }
        if (!list->is_array()) {
            return std::string("config: \"") + key + "\" must be an array";
        }
        for (size_t i = 0; i < list->size(); ++i) {
            const std::string where = std::string(key) + "[" + std::to_string(i) + "]";
            auto error = std::string(key) == "users" ? applyUser((*list)[i], config, where)
                                                     : applyChannel((*list)[i], config, where);
            if (!error.empty()) {
                return error;
            }
        }
    }
    return {};
}

CommandLine parseCommandLine(int argc, const char* const* argv) {
    CommandLine result;
    ServerConfig config;
    auto fail = [&](std::string error) {
        result.error = std::move(error);
        return result;
    };
    bool turnServerGiven = false;
    bool turnSecretGiven = false;
    for (int i = 1; i < argc; ++i) {
        const std::string arg = argv[i];
        if (arg == "--help" || arg == "-h") {
            result.help = true;
            return result;
        }
        // --option VALUE or --option=VALUE
        const auto equals = arg.rfind("--", 0) == 0 ? arg.find('=') : std::string::npos;
        const std::string option = arg.substr(0, equals);
        if (equals == std::string::npos && i + 1 >= argc) {
            return fail(option.rfind("--", 0) == 0 ? option + " needs a value"
                                                   : "unexpected argument " + option);
        }
        const std::string value = equals == std::string::npos ? argv[++i] : arg.substr(equals + 1);
        turnServerGiven = turnServerGiven || option == "--turn-server";
        turnSecretGiven =
            turnSecretGiven || option == "--turn-secret" || option == "--turn-secret-file";
        if (option == "--listen") {
            config.host = value;
        } else if (option == "--port") {
            if (!parseNumber(value, config.port)) {
                return fail("--port: not a port number: " + value);
            }
        } else if (option == "--db") {
            config.dbPath = value;
        } else if (option == "--config") {
            std::string why;
            const auto text = readFile(value, why);
            if (!text) {
                return fail("--config: cannot read " + value + ": " + why);
            }
            const auto parsed = qxvc::json::parse(*text);
            if (!parsed) {
                return fail("--config: " + value + " is not valid JSON");
            }
            if (auto error = applyConfigJson(*parsed, config); !error.empty()) {
                return fail("--config " + value + ": " + error);
            }
        } else if (option == "--user") {
            const auto parts = split(value, ':');
            if (parts.size() < 2 || parts.size() > 3 || parts[0].empty() || parts[1].empty()) {
                return fail("--user: expected ID:TOKEN[:NICKNAME], got " + value);
            }
            config.users.push_back(
                {QXDUser(parts[0], parts.size() == 3 ? parts[2] : std::string()), parts[1]});
        } else if (option == "--channel") {
            const auto colon = value.rfind(':');
            if (colon == std::string::npos || colon == 0 || colon + 1 == value.size()) {
                return fail("--channel: expected URL:ID,ID..., got " + value);
            }
            GroupChannelSpec channel;
            channel.channelUrl = value.substr(0, colon);
            channel.memberIds = split(value.substr(colon + 1), ',');
            config.channels.push_back(std::move(channel));
        } else if (option == "--turn-server") {
            config.settings.turnServer = value;
        } else if (option == "--turn-secret") {
            if (trimmed(value).empty()) {
                return fail("--turn-secret must not be empty");
            }
            config.settings.turnSharedSecret = value;
        } else if (option == "--turn-secret-file") {
            std::string why = "the file is empty";
            const auto text = readFile(value, why);
            if (!text || trimmed(*text).empty()) {
                return fail("--turn-secret-file: cannot read a secret from " + value + ": " + why);
            }
            config.settings.turnSharedSecret = trimmed(*text);
        } else if (option == "--start-call-window") {
            double seconds = 0;
            if (!parseNumber(value, seconds) || !(seconds > 0)) {
                return fail("--start-call-window: expected a positive number of seconds");
            }
            config.settings.startCallWindowSeconds = seconds;
        } else if (option == "--log-level") {
            const auto level = logLevelFromName(value);
            if (!level) {
                return fail("--log-level: expected error, warning, info or debug");
            }
            config.logLevel = *level;
        } else {
            return fail("unknown option " + option);
        }
    }
    // A server nobody can log in to, or whose calls carry TURN credentials the
    // TURN server does not know, only fails later and far away: refuse it now.
    if (config.users.empty()) {
        return fail("no users: add --user ID:TOKEN[:NICKNAME] or --config FILE with \"users\"");
    }
    if (!turnServerGiven) {
        return fail("--turn-server URL is required: call starts carry it to both phones");
    }
    if (!turnSecretGiven) {
        return fail(
            "--turn-server needs --turn-secret S or --turn-secret-file F, the secret "
            "the TURN server was started with (--static-auth-secret)");
    }
    result.config = std::move(config);
    return result;
}

std::string setUpService(ChatService& service, const ServerConfig& config) {
    std::set<std::string> seen;
    for (const auto& account : config.users) {
        if (!seen.insert(account.user.userId()).second) {
            return "user " + account.user.userId() + " is listed twice";
        }
        if (auto error = service.upsertUser(account.user)) {
            return "user " + account.user.userId() + ": " + error->localizedDescription();
        }
    }
    for (const auto& channel : config.channels) {
        if (auto created = service.createGroupChannel(channel); created.error) {
            return "channel " + channel.channelUrl + ": " + created.error->localizedDescription();
        }
    }
    return {};
}

std::map<std::string, std::string> tokensOf(const ServerConfig& config) {
    std::map<std::string, std::string> tokens;
    for (const auto& account : config.users) {
        tokens[account.user.userId()] = account.token;
    }
    return tokens;
}

}  // namespace velmorin::server
