#include "ChatServerProcess.h"

#include <fstream>

#include <nlohmann/json.hpp>

#include "ToolPaths.h"

ChatServerProcess::ChatServerProcess(std::string workDir, Config config)
    : workDir_(std::move(workDir)), config_(std::move(config)) {}

ChatServerProcess::~ChatServerProcess() {
    stop();
}

bool ChatServerProcess::start(std::string& error, uint16_t port) {
    nlohmann::json users = nlohmann::json::array();
    for (const auto& user : config_.users) {
        users.push_back({{"user_id", user.id}, {"nickname", user.nickname}, {"token", user.token}});
    }
    nlohmann::json channels = nlohmann::json::array();
    for (const auto& channel : config_.channels) {
        channels.push_back({{"channel_url", channel.url},
                            {"name", channel.name},
                            {"is_public", channel.isPublic},
                            {"is_super", channel.isSuper},
                            {"members", channel.members}});
    }
    {
        std::ofstream out(configPath());
        out << nlohmann::json{{"users", users}, {"channels", channels}}.dump(2) << "\n";
        if (!out) {
            error = "cannot write " + configPath();
            return false;
        }
    }
    ChildProcess::Setup setup;
    setup.argv = {chatServerBinary(), "--port",          std::to_string(port),
                  "--config",         configPath(),      "--db",
                  dbPath(),           "--turn-server",   config_.turnUrl,
                  "--turn-secret",    config_.turnSecret};
    // Each run keeps its own log, so a restart does not hide the first run's.
    const std::string log = ++starts_ == 1 ? logPath() : logPath() + "." + std::to_string(starts_);
    setup.logPath = log;
    process_ = ChildProcess::start(std::move(setup), error);
    if (!process_) {
        return false;
    }
    const std::string marker = "velmorin-chat-server listening on ";
    const long index = process_->waitForLine(
        [&](const std::string& line) { return line.rfind(marker, 0) == 0; }, 15);
    if (index < 0) {
        error = "velmorin-chat-server did not start; see " + log;
        stop();
        return false;
    }
    const std::string where =
        process_->lines().at(static_cast<size_t>(index)).substr(marker.size());
    const auto colon = where.rfind(':');
    try {
        host_ = where.substr(0, colon);
        port_ = static_cast<uint16_t>(std::stoul(where.substr(colon + 1)));
    } catch (const std::exception&) {
        error = "velmorin-chat-server printed an address I cannot read: " + where;
        stop();
        return false;
    }
    return true;
}

bool ChatServerProcess::restart(std::string& error) {
    const uint16_t port = port_;
    stop();
    return start(error, port);
}

void ChatServerProcess::stop() {
    if (process_) {
        process_->stop(5);
        process_.reset();
    }
}
