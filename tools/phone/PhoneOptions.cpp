#include "PhoneOptions.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <functional>

std::optional<long> parseWholeNumber(const std::string& text, long min, long max) {
    if (text.empty() || text.size() > 18) {
        return std::nullopt;
    }
    char* end = nullptr;
    errno = 0;
    const long value = std::strtol(text.c_str(), &end, 10);
    if (errno != 0 || end != text.c_str() + text.size() || value < min || value > max) {
        return std::nullopt;
    }
    return value;
}

std::optional<double> parseSeconds(const std::string& text, double min, double max) {
    if (text.empty() || text.size() > 32) {
        return std::nullopt;
    }
    char* end = nullptr;
    errno = 0;
    const double value = std::strtod(text.c_str(), &end);
    if (errno != 0 || end != text.c_str() + text.size() || !std::isfinite(value) || value < min ||
        value > max) {
        return std::nullopt;
    }
    return value;
}

namespace {

/// One flag of the command line. A flag without `value` is a switch. `apply`
/// stores the value and returns what is wrong with it ("" when nothing is).
struct PhoneFlag {
    const char* name;
    const char* value;
    const char* help;
    std::function<std::string(PhoneOptions&, const std::string&)> apply;
};

std::string parseServer(const std::string& text, PhoneOptions& options) {
    const auto colon = text.rfind(':');
    auto port = colon == std::string::npos || colon == 0
                    ? std::nullopt
                    : parseWholeNumber(text.substr(colon + 1), 1, 65535);
    if (!port) {
        return "wants HOST:PORT with a port of 1..65535, got '" + text + "'";
    }
    options.host = text.substr(0, colon);
    options.port = static_cast<uint16_t>(*port);
    return {};
}

template <typename Field>
std::function<std::string(PhoneOptions&, const std::string&)> store(Field PhoneOptions::*field) {
    return [field](PhoneOptions& options, const std::string& value) {
        options.*field = value;
        return std::string();
    };
}

/// Every flag qxvc-phone knows; add a row to add a flag.
const std::vector<PhoneFlag>& phoneFlags() {
    static const std::vector<PhoneFlag> flags = {
        {"--server", "HOST:PORT", "the chat server (required)",
         [](PhoneOptions& o, const std::string& v) { return parseServer(v, o); }},
        {"--user", "ID", "the user to log in as (required)", store(&PhoneOptions::user)},
        {"--token", "TOKEN", "the user's chat token", store(&PhoneOptions::token)},
        {"--channel", "URL", "the private channel calls go through (required)",
         store(&PhoneOptions::channel)},
        {"--auto-accept", nullptr, "answer incoming calls by itself",
         [](PhoneOptions& o, const std::string&) {
             o.autoAccept = true;
             return std::string();
         }},
        {"--auto-accept-simultaneous", nullptr, "merge two simultaneous starts into one call",
         [](PhoneOptions& o, const std::string&) {
             o.autoAcceptSimultaneous = true;
             return std::string();
         }},
        {"--script", "FILE", "read commands from FILE (default: stdin)",
         store(&PhoneOptions::scriptPath)},
        {"--snapshot-dir", "DIR", "where `snapshot` writes PNGs (default: .)",
         store(&PhoneOptions::snapshotDir)},
        {"--push-file", "FILE", "a push payload (JSON object or array) to handle",
         store(&PhoneOptions::pushFile)},
        {"--push-mode", "handle|build",
         "handleNotification or buildCallFromNotification (default: handle)",
         [](PhoneOptions& o, const std::string& v) {
             if (v != "handle" && v != "build") {
                 return "wants handle or build, got '" + v + "'";
             }
             o.pushMode =
                 v == "handle" ? PhoneOptions::PushMode::Handle : PhoneOptions::PushMode::Build;
             return std::string();
         }},
        {"--start-call-timeout", "N", "seconds, 30..60 (default 30)",
         [](PhoneOptions& o, const std::string& v) {
             auto seconds = parseWholeNumber(v, 30, 60);
             o.startCallTimeout = seconds.value_or(0);
             return seconds ? std::string() : "wants whole seconds from 30 to 60, got '" + v + "'";
         }},
        {"--mic", "DEVICE|FILE|tone",
         "a sound-server source, an audio file (looped) or a test tone (default: the default "
         "source)",
         store(&PhoneOptions::microphone)},
        {"--speaker", "SINK", "where received audio plays (default: the default sink)",
         store(&PhoneOptions::speaker)},
        {"--camera", "DEVICE|FILE|front|back",
         "the front camera: a V4L2 device, a video file (looped) or a test camera (default: the "
         "first V4L2 camera, else the front test camera)",
         store(&PhoneOptions::camera)},
        {"--record-audio", "FILE", "also write received audio to a WAV file",
         store(&PhoneOptions::recordAudio)},
        {"--echo-cancellation", "on|off", "voice processing of the microphone (default on)",
         [](PhoneOptions& o, const std::string& v) {
             if (v != "on" && v != "off") {
                 return "wants on or off, got '" + v + "'";
             }
             o.echoCancellation = v == "on";
             return std::string();
         }},
        {"--window", nullptr, "show the call's video in an X11 window",
         [](PhoneOptions& o, const std::string&) {
             o.window = true;
             return std::string();
         }},
        {"--list-devices", nullptr, "print cameras, microphones and speakers, and leave",
         [](PhoneOptions& o, const std::string&) {
             o.listDevices = true;
             return std::string();
         }},
        {"--log-level", "N", "library log level (1112017 prints its diagnostics)",
         [](PhoneOptions& o, const std::string& v) {
             auto level = parseWholeNumber(v, -2147483648L, 2147483647L);
             o.logLevel = level.value_or(0);
             return level ? std::string() : "wants an integer, got '" + v + "'";
         }},
    };
    return flags;
}

}  // namespace

std::string phoneUsage() {
    std::string text =
        "usage: qxvc-phone --server HOST:PORT --user ID --channel URL [options]\n"
        "flags take their value as --flag VALUE or --flag=VALUE\n";
    for (const auto& flag : phoneFlags()) {
        std::string left = std::string("  ") + flag.name + (flag.value ? " " : "") +
                           (flag.value ? flag.value : "");
        left.resize(std::max<size_t>(left.size() + 1, 32), ' ');
        text += left + flag.help + "\n";
    }
    return text +
           "commands: call video|audio, accept, decline, end, mute, unmute, video-off,\n"
           "  video-on, switch-camera, speaker-on, speaker-off, wait EVENT [SECONDS],\n"
           "  wait-frames N [SECONDS], sleep SECONDS, snapshot [FILE], stats, devices, quit\n";
}

PhoneOptionsResult parsePhoneOptions(const std::vector<std::string>& args) {
    PhoneOptionsResult result;
    PhoneOptions options;
    bool haveServer = false;
    auto fail = [&](std::string message) {
        result.error = std::move(message);
        return result;
    };
    for (size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--help" || args[i] == "-h") {
            result.help = true;
            return result;
        }
        const auto equals = args[i].rfind("--", 0) == 0 ? args[i].find('=') : std::string::npos;
        const std::string name = args[i].substr(0, equals);
        const auto flag = std::find_if(phoneFlags().begin(), phoneFlags().end(),
                                       [&](const PhoneFlag& f) { return name == f.name; });
        if (flag == phoneFlags().end()) {
            return fail("unknown flag '" + name + "' (qxvc-phone --help lists them)");
        }
        std::string value;
        if (!flag->value) {
            if (equals != std::string::npos) {
                return fail(name + " takes no value");
            }
        } else if (equals != std::string::npos) {
            value = args[i].substr(equals + 1);
        } else if (i + 1 < args.size() && args[i + 1].rfind("--", 0) != 0) {
            value = args[++i];
        }
        if (flag->value && value.empty()) {
            return fail(name + " needs a value: " + flag->value);
        }
        if (auto problem = flag->apply(options, value); !problem.empty()) {
            return fail(name + " " + problem);
        }
        haveServer = haveServer || name == "--server";
    }
    if (options.listDevices) {
        result.options = std::move(options);  // needs no server, user or channel
        return result;
    }
    if (!haveServer) {
        return fail("--server HOST:PORT is required");
    }
    if (options.user.empty()) {
        return fail("--user is required");
    }
    if (options.channel.empty()) {
        return fail("--channel is required");
    }
    result.options = std::move(options);
    return result;
}
