#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <utility>

#include "Platform/Dispatch/QXVCTimerImpl.h"
#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"
#include "VelmorinVideoChat/Utils/QXVCSafeCall.h"

using Clock = std::chrono::steady_clock;

struct QXVCSerialQueue::State {
    struct Entry {
        Task task;
        std::shared_ptr<qxvc::dispatch::TimerImpl> timer;  // null for plain tasks
    };

    std::string label;
    std::mutex mutex;
    std::condition_variable wake;
    // Ordered by due time, then by posting order.
    std::map<std::pair<Clock::time_point, uint64_t>, Entry> entries;
    uint64_t nextSeq = 0;
    bool stopping = false;
    std::thread::id workerId;

    void post(Clock::time_point due, Entry entry) {
        {
            std::lock_guard lock(mutex);
            if (stopping) {
                return;
            }
            entries.emplace(std::make_pair(due, nextSeq++), std::move(entry));
        }
        wake.notify_one();
    }

    void run() {
        std::unique_lock lock(mutex);
        while (!stopping) {
            if (entries.empty()) {
                wake.wait(lock);
                continue;
            }
            auto first = entries.begin();
            // A copy: the entry may be gone when the wait ends (the queue's
            // owner drops every entry as it goes).
            const Clock::time_point due = first->first.first;
            if (due > Clock::now()) {
                wake.wait_until(lock, due);
                continue;
            }
            Entry entry = std::move(first->second);
            entries.erase(first);
            lock.unlock();
            if (!entry.timer || entry.timer->claimFire()) {
                qxvc::safeCall(label.c_str(), entry.task);
            }
            entry = Entry{};  // release captures outside the lock
            lock.lock();
        }
    }
};

std::shared_ptr<QXVCSerialQueue> QXVCSerialQueue::create(std::string label) {
    return std::shared_ptr<QXVCSerialQueue>(new QXVCSerialQueue(std::move(label)));
}

QXVCSerialQueue::QXVCSerialQueue(std::string label) : state_(std::make_shared<State>()) {
    state_->label = std::move(label);
    std::thread worker([state = state_] { state->run(); });
    {
        std::lock_guard lock(state_->mutex);
        state_->workerId = worker.get_id();
    }
    worker.detach();  // the worker owns the state; it leaves when told to stop
}

QXVCSerialQueue::~QXVCSerialQueue() {
    std::map<std::pair<Clock::time_point, uint64_t>, State::Entry> dropped;
    {
        std::lock_guard lock(state_->mutex);
        state_->stopping = true;
        dropped.swap(state_->entries);
    }
    state_->wake.notify_all();
}

void QXVCSerialQueue::async(Task task) {
    state_->post(Clock::now(), State::Entry{std::move(task), nullptr});
}

QXVCTimerPtr QXVCSerialQueue::asyncAfter(double seconds, Task task) {
    auto timer = std::make_shared<qxvc::dispatch::TimerImpl>();
    const auto delay = std::chrono::duration_cast<Clock::duration>(
        std::chrono::duration<double>(seconds > 0 ? seconds : 0.0));
    state_->post(Clock::now() + delay, State::Entry{std::move(task), timer});
    return timer;
}

bool QXVCSerialQueue::isCurrent() const {
    std::lock_guard lock(state_->mutex);
    return state_->workerId == std::this_thread::get_id();
}

std::string QXVCSerialQueue::label() const {
    return state_->label;
}

void QXVCSerialQueue::sync(const Task& task) {
    if (isCurrent()) {
        qxvc::safeCall(state_->label.c_str(), task);
        return;
    }
    std::mutex doneMutex;
    std::condition_variable doneCv;
    bool done = false;
    async([&] {
        qxvc::safeCall(state_->label.c_str(), task);
        std::lock_guard lock(doneMutex);
        done = true;
        doneCv.notify_one();
    });
    std::unique_lock lock(doneMutex);
    doneCv.wait(lock, [&] { return done; });
}
