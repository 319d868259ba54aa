// The server's log: one line per event on stderr, filtered by level. Tokens,
// the TURN secret and TURN credentials are never passed to it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace velmorin::server {

enum class LogLevel { Error = 0, Warning = 1, Info = 2, Debug = 3 };

/// "error", "warning" (or "warn"), "info", "debug"; nullopt for anything else.
std::optional<LogLevel> logLevelFromName(std::string_view name);
void setLogLevel(LogLevel level);
bool logEnabled(LogLevel level);
void log(LogLevel level, const std::string& line);

}  // namespace velmorin::server
