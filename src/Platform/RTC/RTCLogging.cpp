#include "VelmorinVideoChat/Platform/RTC/RTCLogging.h"

#include <cstdio>
#include <mutex>
#include <utility>

#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {

std::mutex& sinkMutex() {
    static std::mutex mutex;
    return mutex;
}

RTCLogSink& sinkSlot() {
    static RTCLogSink sink;
    return sink;
}

}  // namespace

void RTCLogEx(int severity, std::string text) {
    RTCLogSink sink;
    {
        std::lock_guard<std::mutex> lock(sinkMutex());
        sink = sinkSlot();
    }
    if (sink) {
        qxvc::safeCall("RTCLogEx", sink, severity, text);
        return;
    }
    std::fprintf(stderr, "[RTC] %s\n", text.c_str());
}

std::string RTCFileName(const char* path) {
    if (path == nullptr) {
        return "";
    }
    const std::string full(path);
    const auto slash = full.find_last_of("/\\");
    return slash == std::string::npos ? full : full.substr(slash + 1);
}

void RTCSetLogSink(RTCLogSink sink) {
    std::lock_guard<std::mutex> lock(sinkMutex());
    sinkSlot() = std::move(sink);
}
