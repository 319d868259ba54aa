// The one queue abstraction of the library.
//
// A queue runs tasks one at a time, in the order they were posted. Timers are
// one-shot: `asyncAfter` returns a handle whose `cancel()` stops a timer that
// has not fired yet. Three kinds exist:
//  - QXVCSerialQueue: a queue on its own thread with a real (steady) clock;
//  - QXVCManualQueue: a queue with a virtual clock that runs only when a test
//    says so (`runUntilIdle()`, `advance(seconds)`), so a 20-second timer is
//    tested in microseconds and deterministically;
//  - the main queue (QXVCMainQueue): a library-owned serial queue unless the
//    application installs its own before first use.
#pragma once

#include <functional>
#include <memory>
#include <string>

/// A one-shot timer created by `asyncAfter`. Thread-safe.
class QXVCTimer {
  public:
    virtual ~QXVCTimer() = default;
    /// Stops the timer if it has not fired; afterwards it never fires.
    virtual void cancel() = 0;
    /// True until the timer fires or is cancelled.
    virtual bool isValid() const = 0;
};
using QXVCTimerPtr = std::shared_ptr<QXVCTimer>;

class QXVCDispatchQueue {
  public:
    using Task = std::function<void()>;
    virtual ~QXVCDispatchQueue() = default;

    /// Posts `task` to run later on the queue, never inline.
    virtual void async(Task task) = 0;
    /// Runs `task` on the queue after `seconds` (negative counts as 0) unless the
    /// returned timer is cancelled first.
    virtual QXVCTimerPtr asyncAfter(double seconds, Task task) = 0;
    /// True when the calling thread is running a task of this queue.
    virtual bool isCurrent() const = 0;
    virtual std::string label() const = 0;
};
using QXVCDispatchQueuePtr = std::shared_ptr<QXVCDispatchQueue>;

/// A serial queue on its own thread. Destroying it stops the thread: tasks still
/// pending are dropped, and a destructor called from the queue's own thread
/// detaches instead of joining.
class QXVCSerialQueue : public QXVCDispatchQueue {
  public:
    static std::shared_ptr<QXVCSerialQueue> create(std::string label);
    ~QXVCSerialQueue() override;

    void async(Task task) override;
    QXVCTimerPtr asyncAfter(double seconds, Task task) override;
    bool isCurrent() const override;
    std::string label() const override;

    /// Runs `task` on the queue and waits for it (runs inline when already on
    /// the queue). For set-up and tests; never call it from a task of another
    /// queue that this one may wait on.
    void sync(const Task& task);

    struct State;

  private:
    explicit QXVCSerialQueue(std::string label);
    std::shared_ptr<State> state_;
};

/// A queue with a virtual clock, for tests. Nothing runs until the owner calls
/// `runUntilIdle()` or `advance()`; tasks then run on the calling thread.
class QXVCManualQueue : public QXVCDispatchQueue {
  public:
    static std::shared_ptr<QXVCManualQueue> create(std::string label = "manual");
    ~QXVCManualQueue() override;

    void async(Task task) override;
    QXVCTimerPtr asyncAfter(double seconds, Task task) override;
    bool isCurrent() const override;
    std::string label() const override;

    /// Runs every task that is due now, including tasks those tasks post, until
    /// none is due. Returns how many ran.
    size_t runUntilIdle();
    /// Moves the virtual clock forward by `seconds`, running every task and timer
    /// that falls due on the way, in time order (ties in posting order).
    size_t advance(double seconds);
    /// Virtual seconds since creation.
    double now() const;
    /// Tasks and live timers waiting, due or not.
    size_t pendingCount() const;

    struct State;

  private:
    explicit QXVCManualQueue(std::string label);
    std::shared_ptr<State> state_;
};

/// The library's main queue: every timer is created, fired and cancelled there.
class QXVCMainQueue {
  public:
    /// The main queue; creates the library-owned serial queue on first use when
    /// the application installed none.
    static QXVCDispatchQueuePtr get();
    /// Installs the application's queue. Returns false (and changes nothing) when
    /// the main queue was already in use.
    static bool install(QXVCDispatchQueuePtr queue);
    /// Replaces the main queue even after use. For tests only.
    static void replaceForTesting(QXVCDispatchQueuePtr queue);
};
