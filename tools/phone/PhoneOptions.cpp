#include "PhoneOptions.h"

#include <cerrno>
#include <cmath>
#include <cstdlib>

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

std::string phoneUsage() {
    return "usage: qxvc-phone --server HOST:PORT --user ID --channel URL [options]\n"
           "  --token TOKEN                 the user's chat token\n"
           "  --auto-accept                 answer incoming calls by itself\n"
           "  --auto-accept-simultaneous    merge two simultaneous starts into one call\n"
           "  --script FILE                 read commands from FILE (default: stdin)\n"
           "  --snapshot-dir DIR            where `snapshot` writes PNGs (default: .)\n"
           "  --push-file FILE              a push payload (JSON object or array) to handle\n"
           "  --push-mode handle|build      handleNotification or buildCallFromNotification,\n"
           "                                then accept (default: handle)\n"
           "  --start-call-timeout N        seconds, 30..60 (default 30)\n"
           "  --log-level N                 library log level (1112017 prints its diagnostics)\n"
           "  --mic DEVICE|FILE|tone        microphone: a sound-server source, an audio file\n"
           "                                (looped) or a test tone (default: the default source)\n"
           "  --speaker SINK                where received audio plays (default: the default "
           "sink)\n"
           "  --camera DEVICE|FILE|front|back  the front camera: a V4L2 device, a video file\n"
           "                                (looped) or a test camera (default: the first V4L2\n"
           "                                camera, else the front test camera)\n"
           "  --record-audio FILE           also write received audio to a WAV file\n"
           "  --echo-cancellation on|off    voice processing of the microphone (default on)\n"
           "  --window                      show the call's video in an X11 window\n"
           "  --list-devices                print cameras, microphones and speakers, and leave\n"
           "commands: call video|audio, accept, decline, end, mute, unmute, video-off,\n"
           "  video-on, switch-camera, speaker-on, speaker-off, wait EVENT [SECONDS],\n"
           "  wait-frames N [SECONDS], sleep SECONDS, snapshot [FILE], stats, devices, quit\n";
}

namespace {

bool parseServer(const std::string& text, PhoneOptions& options) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return false;
    }
    auto port = parseWholeNumber(text.substr(colon + 1), 1, 65535);
    if (!port) {
        return false;
    }
    options.host = text.substr(0, colon);
    options.port = static_cast<uint16_t>(*port);
    return true;
}

}  // namespace

PhoneOptionsResult parsePhoneOptions(const std::vector<std::string>& args) {
    PhoneOptionsResult result;
    PhoneOptions options;
    bool haveServer = false;
    auto fail = [&](std::string message) {
        result.error = std::move(message);
        return result;
    };
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& flag = args[i];
        if (flag == "--help" || flag == "-h") {
            result.help = true;
            return result;
        }
        if (flag == "--auto-accept") {
            options.autoAccept = true;
            continue;
        }
        if (flag == "--auto-accept-simultaneous") {
            options.autoAcceptSimultaneous = true;
            continue;
        }
        if (flag == "--window") {
            options.window = true;
            continue;
        }
        if (flag == "--list-devices") {
            options.listDevices = true;
            continue;
        }
        static const char* const kWithValue[] = {
            "--server",    "--user",         "--token",
            "--channel",   "--script",       "--snapshot-dir",
            "--push-file", "--push-mode",    "--start-call-timeout",
            "--log-level", "--mic",          "--speaker",
            "--camera",    "--record-audio", "--echo-cancellation"};
        bool known = false;
        for (const char* name : kWithValue) {
            known = known || flag == name;
        }
        if (!known) {
            return fail("unknown flag '" + flag + "'");
        }
        if (i + 1 >= args.size()) {
            return fail("flag " + flag + " needs a value");
        }
        const std::string& value = args[++i];
        if (flag == "--server") {
            if (!parseServer(value, options)) {
                return fail("--server wants HOST:PORT with a port of 1..65535, got '" + value +
                            "'");
            }
            haveServer = true;
        } else if (flag == "--user") {
            options.user = value;
        } else if (flag == "--token") {
            options.token = value;
        } else if (flag == "--channel") {
            options.channel = value;
        } else if (flag == "--script") {
            options.scriptPath = value;
        } else if (flag == "--snapshot-dir") {
            options.snapshotDir = value;
        } else if (flag == "--push-file") {
            options.pushFile = value;
        } else if (flag == "--push-mode") {
            if (value == "handle") {
                options.pushMode = PhoneOptions::PushMode::Handle;
            } else if (value == "build") {
                options.pushMode = PhoneOptions::PushMode::Build;
            } else {
                return fail("--push-mode wants handle or build, got '" + value + "'");
            }
        } else if (flag == "--start-call-timeout") {
            auto seconds = parseWholeNumber(value, 30, 60);
            if (!seconds) {
                return fail("--start-call-timeout wants whole seconds from 30 to 60, got '" +
                            value + "'");
            }
            options.startCallTimeout = *seconds;
        } else if (flag == "--log-level") {
            auto level = parseWholeNumber(value, -2147483648L, 2147483647L);
            if (!level) {
                return fail("--log-level wants an integer, got '" + value + "'");
            }
            options.logLevel = *level;
        } else if (flag == "--mic") {
            options.microphone = value;
        } else if (flag == "--speaker") {
            options.speaker = value;
        } else if (flag == "--camera") {
            options.camera = value;
        } else if (flag == "--record-audio") {
            options.recordAudio = value;
        } else if (flag == "--echo-cancellation") {
            if (value != "on" && value != "off") {
                return fail("--echo-cancellation wants on or off, got '" + value + "'");
            }
            options.echoCancellation = value == "on";
        }
    }
    if (options.listDevices) {
        result.options = std::move(options);
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
