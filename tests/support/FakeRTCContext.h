// What every object of the fake RTC engine shares: the ordered log of calls
// made on the engine, and the guard its callbacks run under.
//
// Entries are short strings "<object>.<operation>(<arguments>)", for example
// "pc1.setLocalDescription(offer)" or "audioSession.setActive(0)", so a test can
// check the order of calls across objects. Typed records of the same calls are
// kept by each fake object.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "support/Locked.h"

class FakeRTCContext {
  public:
    void record(std::string entry) { lockedAppend(mutex_, entries_, std::move(entry)); }
    std::vector<std::string> entries() const { return lockedCopy(mutex_, entries_); }
    /// Position of the first entry equal to `entry`, or -1.
    long indexOf(const std::string& entry) const;
    bool contains(const std::string& entry) const { return indexOf(entry) >= 0; }
    void clearEntries() { lockedSet(mutex_, entries_, std::vector<std::string>{}); }

    /// Runs a completion handler or delegate callback inline, on the thread of
    /// the test call that causes it; an exception it throws is contained.
    void dispatch(const std::function<void()>& task) const;

    /// A fresh name "<prefix><n>", numbered per prefix (pc1, pc2, ...).
    std::string nextName(const std::string& prefix);

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
    std::map<std::string, size_t> counters_;
};
