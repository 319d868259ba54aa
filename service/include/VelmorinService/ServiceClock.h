// The service's clock: wall-clock time in milliseconds since the Unix epoch.
// Call durations ("period"), the start-call window and the expiry of TURN
// credentials are all read from it, so tests control time by giving the
// service a manual clock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

class QXVCManualQueue;

namespace velmorin {

class ServiceClock {
  public:
    virtual ~ServiceClock() = default;
    /// Milliseconds since the Unix epoch. Thread-safe.
    virtual int64_t nowMilliseconds() const = 0;

    /// The system's real-time clock.
    static std::shared_ptr<ServiceClock> system();
    /// A clock that follows the virtual clock of `queue`: `epochMilliseconds`
    /// plus the queue's virtual seconds. Advancing the queue advances the
    /// service, so timers of the library and the service's time move together.
    static std::shared_ptr<ServiceClock> followingQueue(std::shared_ptr<QXVCManualQueue> queue,
                                                        int64_t epochMilliseconds);
};
using ServiceClockPtr = std::shared_ptr<ServiceClock>;

/// A clock that moves only when told. Thread-safe.
class ManualServiceClock : public ServiceClock {
  public:
    explicit ManualServiceClock(int64_t nowMilliseconds = 1'700'000'000'000)
        : now_(nowMilliseconds) {}
    int64_t nowMilliseconds() const override { return now_.load(); }
    void setNowMilliseconds(int64_t value) { now_.store(value); }
    void advanceMilliseconds(int64_t delta) { now_.fetch_add(delta); }
    void advanceSeconds(double seconds) { now_.fetch_add(static_cast<int64_t>(seconds * 1000.0)); }

  private:
    std::atomic<int64_t> now_;
};

}  // namespace velmorin
