// The one-shot timer handle shared by the queue implementations.
#pragma once

#include <atomic>

#include "VelmorinVideoChat/Platform/Dispatch/QXVCDispatchQueue.h"

namespace qxvc::dispatch {

class TimerImpl final : public QXVCTimer {
  public:
    void cancel() override { valid_.store(false); }
    bool isValid() const override { return valid_.load(); }
    /// Claims the right to fire: true once, and only when not cancelled.
    bool claimFire() { return valid_.exchange(false); }

  private:
    std::atomic<bool> valid_{true};
};

}  // namespace qxvc::dispatch
