// The data string of a chat message, as any peer could send it.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "VelmorinVideoChat/MessageParser/QXVCMessageParser.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::string text(reinterpret_cast<const char*>(data), size);
    const auto message = QXVCMessageParser::parseMessageData(text, 42);
    if (!message) {
        return 0;
    }
    // A recognised command always yields a message whose queries agree.
    if (message->isEnd() && message->endType() == QXVCEndTypeNone) {
        std::abort();
    }
    if (message->type() == std::nullopt &&
        (message->isStart() || message->isOffer() || message->isEnd())) {
        std::abort();
    }
    volatile size_t sink = message->description().size();
    (void)sink;
    if (auto start = std::dynamic_pointer_cast<QXVCStartCallMessage>(message)) {
        if (start->messageId() != 42) {
            std::abort();
        }
        if (start->callee() &&
            (start->callee()->isAudioEnabled() || start->callee()->isVideoEnabled())) {
            std::abort();  // constraints never reach the callee
        }
    }
    return 0;
}
