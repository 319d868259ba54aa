// coturn on loopback for the tests and benchmarks: the stack's TurnProcess in
// a temporary folder of its own (kept for its log).
#pragma once

#include <string>

#include "TurnProcess.h"

class TurnServerFixture : public TurnProcess {
  public:
    TurnServerFixture();

    /// Starts coturn and waits until it answers a STUN binding request; false
    /// (with the reason in `error()`) when it does not come up.
    bool start();
    const std::string& error() const { return error_; }

  private:
    std::string error_;
};
