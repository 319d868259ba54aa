#include "ServerLog.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <mutex>

namespace velmorin::server {

namespace {

std::atomic<int> gLevel{static_cast<int>(LogLevel::Info)};
std::mutex gWriteMutex;

const char* levelName(LogLevel level) {
    switch (level) {
        case LogLevel::Error:
            return "error";
        case LogLevel::Warning:
            return "warning";
        case LogLevel::Info:
            return "info";
        case LogLevel::Debug:
            return "debug";
    }
    return "?";
}

}  // namespace

std::optional<LogLevel> logLevelFromName(std::string_view name) {
    if (name == "error") {
        return LogLevel::Error;
    }
    if (name == "warning" || name == "warn") {
        return LogLevel::Warning;
    }
    if (name == "info") {
        return LogLevel::Info;
    }
    if (name == "debug") {
        return LogLevel::Debug;
    }
    return std::nullopt;
}

void setLogLevel(LogLevel level) {
    gLevel.store(static_cast<int>(level));
}

bool logEnabled(LogLevel level) {
    return static_cast<int>(level) <= gLevel.load();
}

void log(LogLevel level, const std::string& line) {
    if (!logEnabled(level)) {
        return;
    }
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto millis =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() %
        1000;
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%H:%M:%S", &utc);
    std::lock_guard lock(gWriteMutex);
    std::fprintf(stderr, "%s.%03d velmorin-chat-server %s: %s\n", stamp, static_cast<int>(millis),
                 levelName(level), line.c_str());
}

}  // namespace velmorin::server
