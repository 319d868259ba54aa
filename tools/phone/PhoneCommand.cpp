#include "PhoneCommand.h"

#include <algorithm>
#include <optional>
#include <sstream>

#include "PhoneOptions.h"

const std::vector<std::string>& phoneEventNames() {
    static const std::vector<std::string> names = {
        // QXVCVideoChatDelegate
        "didReceiveStartCall", "didSendStartCall", "didReceiveAcceptCall", "didReceiveEndCall",
        "didOpponentAudioStateChange", "didOpponentVideoStateChange", "didSendAcceptCall",
        "didSendEndCall", "didOpenCall", "didDropCall", "didReopenCall",
        // QXVCVideoViewDelegate
        "didChangeVideoSize",
        // the phone's own
        "startCallCompleted", "acceptCompleted", "endCompleted", "firstRemoteFrame", "pushHandled",
        "pushBuilt"};
    return names;
}

namespace {

bool isNoArgCommand(const std::string& name) {
    static const char* const kNames[] = {
        "accept",        "decline",    "end",         "mute",  "unmute", "video-off", "video-on",
        "switch-camera", "speaker-on", "speaker-off", "stats", "quit",   "devices"};
    return std::any_of(std::begin(kNames), std::end(kNames),
                       [&](const char* known) { return name == known; });
}

}  // namespace

PhoneCommandResult parsePhoneCommand(std::string_view line) {
    PhoneCommandResult result;
    std::istringstream words{std::string(line)};
    std::string word;
    std::vector<std::string> tokens;
    while (words >> word) {
        tokens.push_back(word);
    }
    if (tokens.empty() || tokens.front().front() == '#') {
        return result;
    }
    PhoneCommand command;
    command.name = tokens.front();
    command.args.assign(tokens.begin() + 1, tokens.end());
    const auto& name = command.name;
    const auto& args = command.args;
    auto fail = [&](std::string message) {
        result.error = name + ": " + message;
        return result;
    };
    // The optional second argument of the waits: a timeout in seconds.
    auto takeTimeout = [&] {
        auto seconds = args.size() == 2 ? parseSeconds(args[1], 0, 3600)
                                        : std::optional<double>(kDefaultWaitSeconds);
        command.seconds = seconds.value_or(kDefaultWaitSeconds);
        return seconds.has_value();
    };

    if (isNoArgCommand(name)) {
        if (!args.empty()) {
            return fail("takes no arguments");
        }
    } else if (name == "call") {
        if (args.size() != 1 || (args[0] != "video" && args[0] != "audio")) {
            return fail("wants `call video` or `call audio`");
        }
    } else if (name == "wait") {
        if (args.empty() || args.size() > 2) {
            return fail("wants `wait EVENT [SECONDS]`");
        }
        const auto& events = phoneEventNames();
        if (std::find(events.begin(), events.end(), args[0]) == events.end()) {
            return fail("unknown event '" + args[0] + "'");
        }
        if (!takeTimeout()) {
            return fail("timeout wants seconds from 0 to 3600, got '" + args[1] + "'");
        }
    } else if (name == "wait-frames") {
        if (args.empty() || args.size() > 2) {
            return fail("wants `wait-frames COUNT [SECONDS]`");
        }
        auto count = parseWholeNumber(args[0], 1, 1000000);
        if (!count) {
            return fail("count wants a whole number from 1, got '" + args[0] + "'");
        }
        command.count = *count;
        if (!takeTimeout()) {
            return fail("timeout wants seconds from 0 to 3600, got '" + args[1] + "'");
        }
    } else if (name == "sleep") {
        auto seconds = args.size() == 1 ? parseSeconds(args[0], 0, 3600) : std::nullopt;
        if (!seconds) {
            return fail("wants `sleep SECONDS` (0 to 3600)");
        }
        command.seconds = *seconds;
    } else if (name == "snapshot") {
        if (args.size() > 1) {
            return fail("wants `snapshot [FILE]`");
        }
    } else {
        result.error = "unknown command '" + name + "'";
        return result;
    }
    result.command = std::move(command);
    return result;
}
