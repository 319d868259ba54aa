// The WebRTC platform's logging entry point, as the library uses it.
#pragma once

#include <functional>
#include <string>

/// Severities as the platform numbers them.
enum RTCLoggingSeverity : int {
    RTCLoggingSeverityVerbose = 0,
    RTCLoggingSeverityInfo = 1,
    RTCLoggingSeverityWarning = 2,
    RTCLoggingSeverityError = 3,
    RTCLoggingSeverityNone = 4,
};

/// Logs one line at `severity`. The default sink writes "[RTC] <text>" to stderr.
void RTCLogEx(int severity, std::string text);

/// The last path component of `path`, as the platform's log lines name files.
std::string RTCFileName(const char* path);

/// Replaces the sink (an empty function restores the default). For tests.
using RTCLogSink = std::function<void(int severity, const std::string& text)>;
void RTCSetLogSink(RTCLogSink sink);
