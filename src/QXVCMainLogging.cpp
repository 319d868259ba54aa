// QXVCMain: the log switch and the log sink.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>

#include <unistd.h>

#include "QXVCMainState.h"
#include "VelmorinVideoChat/QXVCMain.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

namespace {

/// One line on stderr: "2026-01-31 12:00:00.123 app[1234] <line>", written with
/// a single call so that lines of different threads do not interleave.
void writeToStderr(const std::string& line) {
    using namespace std::chrono;
    const auto now = system_clock::now();
    const std::time_t seconds = system_clock::to_time_t(now);
    const auto millis = duration_cast<milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char stamp[32];
    std::strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    std::string text = qxvc::format("%s.%03d %s[%d] ", stamp, millis, program_invocation_short_name,
                                    static_cast<int>(getpid()));
    text += line;
    text += '\n';
    std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

void QXVCMain::setLogLevel(long level) {
    state().logLevel.store(level);
}

long QXVCMain::getLogLevel() {
    return state().logLevel.load();
}

void QXVCMain::setLogSink(QXVCLogSink sink) {
    State& s = state();
    std::lock_guard lock(s.logSinkMutex);
    s.logSink = sink ? std::make_shared<const QXVCLogSink>(std::move(sink)) : nullptr;
}

void QXVCMain::writeLogLine(const std::string& line) {
    State& s = state();
    std::shared_ptr<const QXVCLogSink> sink;
    {
        std::lock_guard lock(s.logSinkMutex);
        sink = s.logSink;
    }
    if (sink) {
        qxvc::safeCall("log sink", *sink, line);
    } else {
        writeToStderr(line);
    }
}
