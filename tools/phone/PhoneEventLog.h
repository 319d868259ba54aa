// Everything the phone prints goes through here, one whole line at a time and
// flushed at once, so that a program reading the phone's output sees each
// event as it happens:
//
//   EVENT t=<ms since start> wall=<UTC time> <name> call=<id|-> state=<state> [key=value ...]
//   EVENT ... startCallCompleted|acceptCompleted|endCompleted ... error=0
//   EVENT ... startCallCompleted ... error=<code> (<localized description>)
//   STATS t=... wall=... call=... state=... frames=<remote frames> width=.. height=..
//         localFrames=.. videoBytesSent=.. videoBytesReceived=.. audioBytesSent=..
//         audioBytesReceived=.. countersUs=<when the engine read its counters>
//   OK <command> / FAIL <reason> / INFO <text>
//
// It also remembers how often each event was seen, for the script's `wait`.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <string>

#include "VelmorinVideoChat/Call/QXVCCall.h"

class PhoneEventLog {
  public:
    explicit PhoneEventLog(std::FILE* out);

    /// Prints an EVENT line for `call` (which may be null) and records it.
    void event(const std::string& name, const QXVCCallPtr& call, const std::string& extra = "");
    /// Prints the EVENT line of a completion with its error field; an error
    /// counts as a failed step.
    void completion(const std::string& name, const QXVCCallPtr& call, const QXDErrorPtr& error);
    /// How many completions reported an error.
    int failedCompletions() const;
    /// Prints "<kind> t=... wall=... <text>".
    void stamped(const std::string& kind, const std::string& text);
    /// Prints `text` as it is.
    void line(const std::string& text);

    /// Waits until `name` has been seen more often than earlier waits for it
    /// consumed, then consumes one sighting. False on timeout.
    bool waitFor(const std::string& name, double seconds);
    /// How often `name` was seen.
    int count(const std::string& name) const;

    int64_t elapsedMs() const;
    static std::string stateName(QXVCState state);
    static std::string roleName(QXVCRole role);

  private:
    std::string stamp() const;

    std::FILE* out_;
    const std::chrono::steady_clock::time_point start_;
    mutable std::mutex mutex_;
    std::condition_variable seen_;
    std::map<std::string, int> counts_;
    std::map<std::string, int> consumed_;
    int failedCompletions_ = 0;
};
