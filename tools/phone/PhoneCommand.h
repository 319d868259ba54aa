// One line of a phone script: a command and its arguments, checked before it
// runs so that a typo fails with a clear message instead of doing something else.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

struct PhoneCommand {
    std::string name;
    std::vector<std::string> args;
    /// `wait`/`wait-frames`: how long to wait; `sleep`: how long to sleep.
    double seconds = 0;
    /// `wait-frames`: how many remote frames to wait for.
    long count = 0;
};

struct PhoneCommandResult {
    std::optional<PhoneCommand> command;  ///< nullopt with no error: blank line or comment
    std::string error;
};

/// Events a script can wait for: every delegate callback, plus the phone's own
/// (completions, first remote frame, push handling).
const std::vector<std::string>& phoneEventNames();

/// Default deadline of `wait` and `wait-frames`, in seconds.
inline constexpr double kDefaultWaitSeconds = 30;

PhoneCommandResult parsePhoneCommand(std::string_view line);
