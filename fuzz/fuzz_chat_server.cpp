// velmorin-chat-server as any member can drive it, with inputs up to the frame
// limit. The first byte chooses the route; the rest is the input:
//   0: request frames, one per line, from a connection (logged in as alice
//      first when bit 2 of the first byte is set), through the request handler;
//   1: the data of a message alice sends in her channel with bob, as it stands;
//   2, 3: the same data after "STCA" / "ENCA", where "CALLID" in it stands for
//      the id of a call started just before (so ends reach a known call).
// Whatever comes out must be readable by the server's clients and by the
// library: every reply and event frame, every stored message and every push
// payload parses (within the depth limit) and has its expected shape.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ChatRequestHandler.h"
#include "ServerLog.h"
#include "VelmorinService/ChatService.h"
#include "VelmorinService/ChatWireCodec.h"
#include "VelmorinService/ChatWireProtocol.h"
#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"
#include "VelmorinVideoChat/Utils/QXVCJSON.h"

namespace {

using velmorin::ChatService;
using velmorin::server::ChatRequestHandler;

constexpr const char* kChannel = "ab";

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

/// A frame the server wrote: a JSON object of the given type.
void checkFrame(const std::string& frame, const char* type) {
    const auto parsed = qxvc::json::parse(frame);
    require(parsed && parsed->is_object());
    require(qxvc::json::getString(*parsed, velmorin::wire::kType, "") == type);
}

std::shared_ptr<ChatService> makeService() {
    velmorin::ServiceSettings settings;
    settings.turnSharedSecret = "fuzz-secret";
    auto service = ChatService::create(settings, std::make_shared<velmorin::ManualServiceClock>());
    for (const char* id : {"alice", "bob", "carol"}) {
        service->upsertUser(QXDUser(id, id));
    }
    service->createGroupChannel({kChannel, "", false, false, {"alice", "bob"}});
    return service;
}

std::shared_ptr<const ChatRequestHandler::TokenMap> tokens() {
    static const auto map = std::make_shared<const ChatRequestHandler::TokenMap>(
        ChatRequestHandler::TokenMap{{"alice", "alice-token"}, {"bob", "bob-token"}});
    return map;
}

void driveFrames(const std::shared_ptr<ChatService>& service, std::string_view input,
                 bool loggedIn) {
    auto events = std::make_shared<std::vector<std::string>>();
    ChatRequestHandler bob(service, tokens(), "store");
    bob.setPush([events](std::string frame) { events->push_back(std::move(frame)); });
    checkFrame(bob.handleText(R"({"op":"login","id":1,"user_id":"bob","token":"bob-token"})"),
               "reply");
    ChatRequestHandler alice(
        service, tokens(), "store",
        std::make_shared<velmorin::LoginBackoff>(velmorin::LoginBackoff::Settings{}));
    alice.setPush([](std::string frame) { checkFrame(frame, "event"); });
    if (loggedIn) {
        alice.handleText(R"({"op":"login","id":0,"user_id":"alice","token":"alice-token"})");
    }
    while (!input.empty()) {
        const size_t end = input.find('\n');
        checkFrame(alice.handleText(input.substr(0, end)), "reply");
        input = end == std::string_view::npos ? std::string_view() : input.substr(end + 1);
    }
    for (const auto& frame : *events) {
        checkFrame(frame, "event");
    }
}

std::string replaceAll(std::string text, const std::string& from, const std::string& to) {
    for (size_t at = text.find(from); at != std::string::npos;
         at = text.find(from, at + to.size())) {
        text.replace(at, from.size(), to);
    }
    return text;
}

void driveSend(const std::shared_ptr<ChatService>& service, std::string data) {
    auto params = QXDUserMessageParams::initWithMessage("QX_VIDEOCHAT");
    params->setCustomType("QX_VIDEOCHAT");
    params->setData(std::move(data));
    const auto sent = service->send("alice", kChannel, *params);
    require((sent.value != nullptr) != (sent.error != nullptr));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool quiet = [] {
        velmorin::server::setLogLevel(velmorin::server::LogLevel::Error);
        return true;
    }();
    (void)quiet;
    if (size == 0) {
        return 0;
    }
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    const auto service = makeService();
    switch (data[0] % 4) {
        case 0:
            driveFrames(service, input, (data[0] & 4) != 0);
            break;
        case 1:
            driveSend(service, std::string(input));
            break;
        default: {
            driveSend(service, R"(STCA{"type":"start","videochat_protocol_ver":1})");
            const auto callId = service->startUnderWay(kChannel).value_or("");
            const char* command = data[0] % 4 == 2 ? "STCA" : "ENCA";
            driveSend(service, command + replaceAll(std::string(input), "CALLID", callId));
            break;
        }
    }

    // What was stored reaches bob as a message and, offline, as a push payload.
    const auto stored = service->messages("bob", kChannel);
    for (const auto& message : stored.value) {
        require(qxvc::json::parse(velmorin::wire::dump(velmorin::wire::messageToJson(*message)))
                    .has_value());
        volatile auto parsed = QXVCMessageParser::parseMessageData(message->data(), 1) != nullptr;
        (void)parsed;
        const auto& text = message->data();
        // A start whose body the service could read went out with a call id.
        const auto body = text.rfind("STCA{", 0) == 0
                              ? qxvc::json::parse(std::string_view(text).substr(4))
                              : std::nullopt;
        require(!body || qxvc::json::getString(*body, "call_id").has_value());
    }
    for (const auto& payload : service->takePushPayloads("bob")) {
        require(qxvc::json::parse(velmorin::wire::dump(payload)).has_value());
        volatile auto parsed = QXVCMessageParser::parsePushNotification(payload) != nullptr;
        (void)parsed;
    }
    return 0;
}
