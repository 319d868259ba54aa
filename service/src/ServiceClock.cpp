#include "VelmorinService/ServiceClock.h"

#include <chrono>
#include <cmath>
#include <utility>

#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"

namespace velmorin {

namespace {

class SystemClock : public ServiceClock {
  public:
    int64_t nowMilliseconds() const override {
        using namespace std::chrono;
        return duration_cast<milliseconds>(system_clock::now().time_since_epoch()).count();
    }
};

class QueueClock : public ServiceClock {
  public:
    QueueClock(std::shared_ptr<QXVCManualQueue> queue, int64_t epoch)
        : queue_(std::move(queue)), epoch_(epoch) {}
    int64_t nowMilliseconds() const override {
        if (!queue_) {
            return epoch_;
        }
        return epoch_ + static_cast<int64_t>(std::llround(queue_->now() * 1000.0));
    }

  private:
    std::shared_ptr<QXVCManualQueue> queue_;
    int64_t epoch_;
};

}  // namespace

std::shared_ptr<ServiceClock> ServiceClock::system() {
    return std::make_shared<SystemClock>();
}

std::shared_ptr<ServiceClock> ServiceClock::followingQueue(std::shared_ptr<QXVCManualQueue> queue,
                                                           int64_t epochMilliseconds) {
    return std::make_shared<QueueClock>(std::move(queue), epochMilliseconds);
}

}  // namespace velmorin
