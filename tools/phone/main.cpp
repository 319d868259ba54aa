// qxvc-phone: a command-line phone on VelmorinVideoChat, the GStreamer engine and
// the WebSocket chat client. It logs in, then runs commands from a script or
// stdin and prints every callback as one EVENT line (see PhoneEventLog.h).
// Exit status: 0 when every step succeeded, 1 when a step failed or the phone
// could not start, 2 for bad flags, scripts or push files.
#include <unistd.h>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <thread>

#include "PhoneCommand.h"
#include "PhoneController.h"
#include "PhoneEventLog.h"
#include "PhoneOptions.h"
#include "RTCGstPlatform.h"
#include "VelmorinChat/QXDWebSocketChatClient.h"
#include "VelmorinVideoChat/Platform/Chat/QXDMain.h"
#include "VelmorinVideoChat/QXVCMain.h"

namespace {

[[noreturn]] void finish(int status) {
    std::fflush(stdout);
    std::fflush(stderr);
    // The library's queues and the engine's threads live as long as the process;
    // leave without running static destructors under them.
    _exit(status);
}

[[noreturn]] void usageError(const std::string& message) {
    std::fprintf(stderr, "qxvc-phone: %s\n%s", message.c_str(), phoneUsage().c_str());
    finish(2);
}

/// Reads and checks a whole script before anything runs.
std::vector<std::pair<int, PhoneCommand>> loadScript(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        usageError("cannot read script " + path);
    }
    std::vector<std::pair<int, PhoneCommand>> commands;
    std::string text;
    int number = 0;
    while (std::getline(in, text)) {
        ++number;
        auto parsed = parsePhoneCommand(text);
        if (!parsed.error.empty()) {
            usageError(path + ":" + std::to_string(number) + ": " + parsed.error);
        }
        if (parsed.command) {
            commands.emplace_back(number, std::move(*parsed.command));
        }
    }
    return commands;
}

/// A push file holds one payload (an object) or several (an array of objects).
std::vector<nlohmann::json> loadPushFile(const std::string& path) {
    std::ifstream in(path);
    if (!in) {
        usageError("cannot read push file " + path);
    }
    std::stringstream text;
    text << in.rdbuf();
    auto json = nlohmann::json::parse(text.str(), nullptr, false);
    if (json.is_discarded()) {
        usageError("push file " + path + " is not JSON");
    }
    std::vector<nlohmann::json> payloads;
    if (json.is_object()) {
        payloads.push_back(std::move(json));
    } else if (json.is_array() && !json.empty()) {
        for (auto& item : json) {
            if (!item.is_object()) {
                usageError("push file " + path + ": every payload must be a JSON object");
            }
            payloads.push_back(std::move(item));
        }
    } else {
        usageError("push file " + path + " must hold an object or a non-empty array of objects");
    }
    return payloads;
}

}  // namespace

int main(int argc, char** argv) {
    std::signal(SIGPIPE, SIG_IGN);
    auto parsed = parsePhoneOptions(std::vector<std::string>(argv + 1, argv + argc));
    if (parsed.help) {
        std::fputs(phoneUsage().c_str(), stdout);
        finish(0);
    }
    if (!parsed.options) {
        usageError(parsed.error);
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
        usageError("cannot create snapshot folder " + options.snapshotDir + ": " +
                   dirError.message());
    }

    auto log = std::make_shared<PhoneEventLog>(stdout);
    auto engine = RTCGstPlatform::create();
    if (!engine) {
        std::fprintf(stderr, "qxvc-phone: GStreamer lacks webrtcbin, VP8 or Opus elements\n");
        finish(1);
    }
    RTCPlatform::install(engine);
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
    QXDWebSocketChatClient::Options chatOptions;
    chatOptions.host = options.host;
    chatOptions.port = options.port;
    chatOptions.userId = options.user;
    chatOptions.token = options.token;
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
    log->stamped("EXIT", std::string("status=") + (failed ? "1" : "0"));
    finish(failed ? 1 : 0);
}
