// A push payload handed over by the application. The first byte chooses how the
// rest is used: as the whole payload JSON, or as the "data" of a payload whose
// other fields are fixed (which reaches the command dispatch far more often).
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
    nlohmann::json payload;
    if (data[0] & 1) {
        payload = nlohmann::json::parse(rest, nullptr, /*allow_exceptions=*/false);
        if (payload.is_discarded()) {
            return 0;
        }
    } else {
        payload = {{"velmorin", {{"message_id", 77}, {"data", rest}}}};
    }
    const auto message = QXVCMessageParser::parsePushNotification(payload);
    if (!message) {
        return 0;
    }
    // The push path only yields messages with a parsed JSON object behind them.
    if (!message->payload().is_object()) {
        std::abort();
    }
    if (!(data[0] & 1)) {
        // The chat path must agree with the push path on the same data.
        const auto chat = QXVCMessageParser::parseMessageData(rest, 77);
        if (!chat || chat->payload() != message->payload() || chat->callId() != message->callId()) {
            std::abort();
        }
    }
    volatile size_t sink = message->description().size();
    (void)sink;
    return 0;
}
