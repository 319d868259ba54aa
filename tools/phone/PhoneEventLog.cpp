#include "PhoneEventLog.h"

#include <algorithm>
#include <ctime>

PhoneEventLog::PhoneEventLog(std::FILE* out)
    : out_(out), start_(std::chrono::steady_clock::now()) {}

int64_t PhoneEventLog::elapsedMs() const {
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                                 start_)
        .count();
}

std::string PhoneEventLog::stamp() const {
    const auto now = std::chrono::system_clock::now();
    const auto ms =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count();
    const std::time_t seconds = static_cast<std::time_t>(ms / 1000);
    std::tm utc{};
    gmtime_r(&seconds, &utc);
    char wall[32];
    std::snprintf(wall, sizeof wall, "%02d:%02d:%02d.%03dZ", utc.tm_hour, utc.tm_min, utc.tm_sec,
                  static_cast<int>(ms % 1000));
    return "t=" + std::to_string(elapsedMs()) + " wall=" + wall;
}

std::string PhoneEventLog::stateName(QXVCState state) {
    switch (state) {
        case QXVCStateNone:
            return "none";
        case QXVCStateConnecting:
            return "connecting";
        case QXVCStateOpened:
            return "opened";
        case QXVCStateDropped:
            return "dropped";
        case QXVCStateClosed:
            return "closed";
    }
    return "state" + std::to_string(static_cast<long>(state));
}

std::string PhoneEventLog::roleName(QXVCRole role) {
    switch (role) {
        case QXVCRoleCaller:
            return "caller";
        case QXVCRoleCallee:
            return "callee";
        case QXVCRoleNone:
            break;
    }
    return "none";
}

void PhoneEventLog::line(const std::string& text) {
    std::lock_guard lock(mutex_);
    std::fputs(text.c_str(), out_);
    std::fputc('\n', out_);
    std::fflush(out_);
}

void PhoneEventLog::stamped(const std::string& kind, const std::string& text) {
    line(kind + " " + stamp() + " " + text);
}

void PhoneEventLog::event(const std::string& name, const QXVCCallPtr& call,
                          const std::string& extra) {
    std::string text = stamp() + " " + name;
    if (call) {
        const auto id = call->callId();
        text += " call=" + (id.empty() ? std::string("-") : id);
        text += " state=" + stateName(call->state());
        text += " role=" + roleName(call->myRole());
    } else {
        text += " call=- state=- role=-";
    }
    if (!extra.empty()) {
        text += " " + extra;
    }
    {
        std::lock_guard lock(mutex_);
        std::fputs(("EVENT " + text + "\n").c_str(), out_);
        std::fflush(out_);
        ++counts_[name];
    }
    seen_.notify_all();
}

void PhoneEventLog::completion(const std::string& name, const QXVCCallPtr& call,
                               const QXDErrorPtr& error) {
    if (!error) {
        event(name, call, "error=0");
        return;
    }
    std::string text = error->localizedDescription();
    std::replace_if(
        text.begin(), text.end(), [](char c) { return c == '\n' || c == '\r'; }, ' ');
    {
        std::lock_guard lock(mutex_);
        ++failedCompletions_;
    }
    event(name, call, "error=" + std::to_string(error->code()) + " (" + text + ")");
}

int PhoneEventLog::failedCompletions() const {
    std::lock_guard lock(mutex_);
    return failedCompletions_;
}

bool PhoneEventLog::waitFor(const std::string& name, double seconds) {
    std::unique_lock lock(mutex_);
    const bool seen = seen_.wait_for(lock, std::chrono::duration<double>(seconds),
                                     [&] { return counts_[name] > consumed_[name]; });
    if (seen) {
        ++consumed_[name];
    }
    return seen;
}

int PhoneEventLog::count(const std::string& name) const {
    std::lock_guard lock(mutex_);
    auto it = counts_.find(name);
    return it == counts_.end() ? 0 : it->second;
}
