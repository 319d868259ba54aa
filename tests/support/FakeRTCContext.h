// What every object of the fake RTC engine shares: the ordered log of calls
// made on the engine, and where its callbacks run.
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

#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "support/Locked.h"

class FakeRTCContext {
  public:
    void record(std::string entry) { lockedAppend(mutex_, entries_, std::move(entry)); }
    std::vector<std::string> entries() const { return lockedCopy(mutex_, entries_); }
    /// Entries that begin with `prefix`, in order.
    std::vector<std::string> entriesWithPrefix(const std::string& prefix) const;
    /// Position of the first entry equal to `entry`, or -1.
    long indexOf(const std::string& entry) const;
    bool contains(const std::string& entry) const { return indexOf(entry) >= 0; }
    void clearEntries() { lockedSet(mutex_, entries_, std::vector<std::string>{}); }

    /// Where completion handlers and delegate callbacks run. nullptr (the
    /// default): inline, on the thread of the test call that causes them. A
    /// queue (a QXVCSerialQueue standing for the engine's signalling thread, or
    /// a manual queue) gets every callback posted to it in order.
    void setCallbackQueue(QXVCDispatchQueuePtr queue) { lockedSet(mutex_, queue_, queue); }
    QXVCDispatchQueuePtr callbackQueue() const { return lockedCopy(mutex_, queue_); }
    /// Runs `task` inline or posts it to the callback queue.
    void dispatch(std::function<void()> task) const;

    /// A fresh name "<prefix><n>", numbered per prefix (pc1, pc2, ...).
    std::string nextName(const std::string& prefix);

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> entries_;
    QXVCDispatchQueuePtr queue_;
    std::map<std::string, size_t> counters_;
};
