// qxvc-phone: a command-line phone on VelmorinVideoChat, the GStreamer engine and
// the WebSocket chat client. It logs in, then runs commands from a script or
// stdin and prints every callback as one EVENT line (see PhoneEventLog.h).
// Exit status: 0 when every step succeeded, 1 when a step failed (a command, a
// wait, or a start, accept or end whose completion reported an error) or the
// phone could not start, 2 for bad flags, scripts or push files.
#include <unistd.h>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <sstream>
#include <thread>

#include "PhoneCommand.h"
#include "PhoneController.h"
#include "PhoneEngine.h"
#include "PhoneEventLog.h"
#include "PhoneOptions.h"
#include "VelmorinChat/QXDWebSocketChatClient.h"
#include "VelmorinGStreamer/RTCGstPlatform.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/QXVCMain.h"

namespace {

[[noreturn]] void finish(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    // The library's queues and the engine's threads live as long as the process;
    // leave without running static destructors under them.
    _exit(status);
}

/// Bad flags, scripts and push files: the reason, and status 2.
[[noreturn]] void inputError(const std::string& message) {
    std::fprintf(stderr, "qxvc-phone: %s\n", message.c_str());
    finish(2);
}

/// The whole file, or an input error that says why it cannot be read.
std::string readInputFile(const std::string& what, const std::string& path) {
    std::FILE* file = std::fopen(path.c_str(), "rb");
    std::string text;
    int error = file ? 0 : errno;
    char chunk[4096];
    while (file) {
        const size_t n = std::fread(chunk, 1, sizeof chunk, file);
        text.append(chunk, n);
        if (n < sizeof chunk) {
            error = std::ferror(file) ? errno : 0;
            break;
        }
    }
    if (file) {
        std::fclose(file);
    }
    if (error != 0) {
        inputError("cannot read " + what + " " + path + ": " + std::strerror(error));
    }
    return text;
}

/// Reads and checks a whole script before anything runs.
std::vector<std::pair<int, PhoneCommand>> loadScript(const std::string& path) {
    std::istringstream in(readInputFile("script", path));
    std::vector<std::pair<int, PhoneCommand>> commands;
    std::string text;
    int number = 0;
    while (std::getline(in, text)) {
        ++number;
        auto parsed = parsePhoneCommand(text);
        if (!parsed.error.empty()) {
            inputError(path + ":" + std::to_string(number) + ": " + parsed.error);
        }
        if (parsed.command) {
            commands.emplace_back(number, std::move(*parsed.command));
        }
    }
    return commands;
}

/// A push file holds one payload (an object) or several (an array of objects).
std::vector<nlohmann::json> loadPushFile(const std::string& path) {
    auto json = nlohmann::json::parse(readInputFile("push file", path), nullptr, false);
    if (json.is_discarded()) {
        inputError("push file " + path + " is not JSON");
    }
    std::vector<nlohmann::json> payloads;
    if (json.is_object()) {
        payloads.push_back(std::move(json));
    } else if (json.is_array() && !json.empty()) {
        for (auto& item : json) {
            if (!item.is_object()) {
                inputError("push file " + path + ": every payload must be a JSON object");
            }
            payloads.push_back(std::move(item));
        }
    } else {
        inputError("push file " + path + " must hold an object or a non-empty array of objects");
    }
    return payloads;
}

}  // namespace

int main(int argc, char** argv) {
    // A phone stays up for many calls: GLib before 2.76 would keep the small
    // objects of every call's streaming threads.
    RTCGstPlatform::restartWithSystemAllocator(argv);
    std::signal(SIGPIPE, SIG_IGN);
    auto parsed = parsePhoneOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (parsed.help) {
        std::fputs(phoneUsage().c_str(), stdout);
        finish(0);
    }
    if (!parsed.options) {
        inputError(parsed.error);
    }
    const PhoneOptions options = *parsed.options;
    const bool scripted = !options.scriptPath.empty();
    const auto script =
        scripted ? loadScript(options.scriptPath) : std::vector<std::pair<int, PhoneCommand>>{};
    const auto pushPayloads =
        options.pushFile.empty() ? std::vector<nlohmann::json>{} : loadPushFile(options.pushFile);
    std::error_code dirError;
    std::filesystem::create_directories(options.snapshotDir, dirError);
    if (dirError) {
        inputError("cannot create snapshot folder " + options.snapshotDir + ": " +
                   dirError.message());
    }

    auto log = std::make_shared<PhoneEventLog>(stdout);
    auto engine = makePhoneEngine(options, log);
    if (!engine) {
        std::fprintf(stderr, "qxvc-phone: GStreamer lacks webrtcbin, VP8 or Opus elements\n");
        finish(1);
    }
    RTCPlatform::install(engine);
    auto media = makePhoneMedia(engine, log);
    if (options.listDevices) {
        for (const auto& line : media.devices()) {
            log->stamped("DEVICE", line);
        }
        finish(0);
    }
    // Says when the engine's work ahead of calls (plugins, DTLS, certificates)
    // is done; benchmarks read it.
    std::thread([engine, log] {
        if (engine->waitUntilPrepared(60)) {
            log->stamped("INFO", "engine=prepared");
        }
    }).detach();
    QXVCMain::setLogLevel(options.logLevel);
    if (options.startCallTimeout > 0) {
        QXVCMain::setStartCallTimeout(options.startCallTimeout);
    }
    QXVCMain::setAutoAcceptSimultaneousStartCall(options.autoAcceptSimultaneous);

    auto controller = PhoneController::create(options, log);
    controller->setMedia(std::move(media));
    QXDWebSocketChatClient::Options chatOptions;
    chatOptions.host = options.host;
    chatOptions.port = options.port;
    chatOptions.userId = options.user;
    chatOptions.token = options.token;
    // Events and completions in the order they came off the wire, on one
    // thread: the library and the phone see an incoming start and the refusal
    // of their own start in that order (PhoneSimultaneousStart.h).
    chatOptions.eventQueue = QXVCSerialQueue::create("qxvc-phone.chat");
    chatOptions.callbackQueue = chatOptions.eventQueue;
    auto client = QXDWebSocketChatClient::create(chatOptions);
    if (!client) {
        std::fprintf(stderr, "qxvc-phone: cannot create the chat client\n");
        finish(1);
    }
    client->setConnectionStateHandler([log](bool connected) {
        log->stamped("INFO", connected ? "chat=connected" : "chat=disconnected");
    });
    std::weak_ptr<PhoneController> weakController = controller;
    client->setPushPayloadHandler([weakController](const nlohmann::json& payload) {
        if (auto phone = weakController.lock()) {
            phone->handlePushPayloads({payload}, "live");
        }
    });
    // Everything is in place before the login: push payloads the client hands
    // over as it logs in reach delegates that are already listening.
    QXDMain::setChatClient(client);
    QXVCMain::config();
    controller->install();
    if (auto error = client->connect()) {
        std::fprintf(stderr, "qxvc-phone: cannot log in to %s:%u as %s: %s\n", options.host.c_str(),
                     static_cast<unsigned>(options.port), options.user.c_str(),
                     error->localizedDescription().c_str());
        finish(1);
    }
    log->stamped("READY", "user=" + options.user + " channel=" + options.channel);
    controller->handlePushPayloads(client->takePushPayloads(), "login");
    if (!pushPayloads.empty()) {
        controller->handlePushPayloads(pushPayloads, "file");
    }

    bool failed = false;
    auto runOne = [&](int number, const PhoneCommand& command) {
        std::string text = command.name;
        for (const auto& arg : command.args) {
            text += " " + arg;
        }
        log->stamped("CMD", "line=" + std::to_string(number) + " " + text);
        std::string error;
        if (!controller->run(command, error)) {
            log->stamped("FAIL", "line=" + std::to_string(number) + " " + text + ": " + error);
            failed = true;
            return false;
        }
        return true;
    };
    if (scripted) {
        for (const auto& [number, command] : script) {
            if (!runOne(number, command) || controller->quitRequested()) {
                break;
            }
        }
    } else {
        std::string text;
        int number = 0;
        while (!controller->quitRequested() && std::getline(std::cin, text)) {
            ++number;
            auto command = parsePhoneCommand(text);
            if (!command.error.empty()) {
                log->stamped("FAIL", "line=" + std::to_string(number) + " " + command.error);
                failed = true;
            } else if (command.command) {
                runOne(number, *command.command);
            }
        }
    }

    // Leave no call behind: the other side hears the end.
    if (auto call = QXVCMain::getActiveCall(); call && call->state() != QXVCStateClosed) {
        std::string ignored;
        PhoneCommand end;
        end.name = "end";
        controller->run(end, ignored);
        log->waitFor("endCompleted", 3);
    }
    controller->shutdown();
    client->disconnect();
    // A step whose completion reported an error failed too.
    failed = failed || log->failedCompletions() > 0;
    log->stamped("EXIT", std::string("status=") + (failed ? "1" : "0"));
    finish(failed ? 1 : 0);
}
