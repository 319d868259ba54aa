#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "Platform/Dispatch/QXVCTimerImpl.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

struct QXVCManualQueue::State {
    struct Entry {
        Task task;
        std::shared_ptr<qxvc::dispatch::TimerImpl> timer;  // null for plain tasks
    };

    std::string label;
    mutable std::mutex mutex;
    double now = 0.0;
    std::map<std::pair<double, uint64_t>, Entry> entries;  // by due time, then order
    uint64_t nextSeq = 0;
    std::thread::id runner;
    int depth = 0;

    void post(double delay, Entry entry) {
        std::lock_guard lock(mutex);
        entries.emplace(std::make_pair(now + (delay > 0 ? delay : 0.0), nextSeq++),
                        std::move(entry));
    }

    /// Runs the first entry due at or before `limit`; false when there is none.
    bool runOne(double limit) {
        Entry entry;
        {
            std::lock_guard lock(mutex);
            auto first = entries.begin();
            if (first == entries.end() || first->first.first > limit) {
                return false;
            }
            if (first->first.first > now) {
                now = first->first.first;
            }
            entry = std::move(first->second);
            entries.erase(first);
            runner = std::this_thread::get_id();
            ++depth;
        }
        if (!entry.timer || entry.timer->claimFire()) {
            qxvc::safeCall(label.c_str(), entry.task);
        }
        entry = Entry{};
        std::lock_guard lock(mutex);
        if (--depth == 0) {
            runner = std::thread::id();
        }
        return true;
    }
};

std::shared_ptr<QXVCManualQueue> QXVCManualQueue::create(std::string label) {
    return std::shared_ptr<QXVCManualQueue>(new QXVCManualQueue(std::move(label)));
}

QXVCManualQueue::QXVCManualQueue(std::string label) : state_(std::make_shared<State>()) {
    state_->label = std::move(label);
}

QXVCManualQueue::~QXVCManualQueue() = default;

void QXVCManualQueue::async(Task task) {
    state_->post(0.0, State::Entry{std::move(task), nullptr});
}

QXVCTimerPtr QXVCManualQueue::asyncAfter(double seconds, Task task) {
    auto timer = std::make_shared<qxvc::dispatch::TimerImpl>();
    state_->post(seconds, State::Entry{std::move(task), timer});
    return timer;
}

bool QXVCManualQueue::isCurrent() const {
    std::lock_guard lock(state_->mutex);
    return state_->depth > 0 && state_->runner == std::this_thread::get_id();
}

std::string QXVCManualQueue::label() const {
    return state_->label;
}

size_t QXVCManualQueue::runUntilIdle() {
    size_t count = 0;
    for (;;) {
        double limit;
        {
            std::lock_guard lock(state_->mutex);
            limit = state_->now;
        }
        if (!state_->runOne(limit)) {
            return count;
        }
        ++count;
    }
}

size_t QXVCManualQueue::advance(double seconds) {
    double target;
    {
        std::lock_guard lock(state_->mutex);
        target = state_->now + (seconds > 0 ? seconds : 0.0);
    }
    size_t count = 0;
    while (state_->runOne(target)) {
        ++count;
    }
    std::lock_guard lock(state_->mutex);
    state_->now = target;
    return count;
}

double QXVCManualQueue::now() const {
    std::lock_guard lock(state_->mutex);
    return state_->now;
}

size_t QXVCManualQueue::pendingCount() const {
    std::lock_guard lock(state_->mutex);
    size_t count = 0;
    for (const auto& [key, entry] : state_->entries) {
        if (!entry.timer || entry.timer->isValid()) {
            ++count;
        }
    }
    return count;
}
