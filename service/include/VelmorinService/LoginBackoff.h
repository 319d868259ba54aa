// How long the server holds back the answer to a wrong login.
//
// Every wrong login (unknown user or wrong token) is counted twice: for the
// user id it named (whoever sent it, so spreading guesses over connections does
// not help) and for the connection it came on (so cycling through user ids does
// not help). The answer waits for the longer of the two delays, and the
// connection reads nothing else meanwhile, so guesses cannot be pipelined. A
// right login is never held: it is answered at once, even for a user whose
// failures are being counted, and the count of its user is not reset by it.
//
// The delay after the n-th failure in a row is 0 for the first `freeFailures`
// (a mistyped token costs nothing), then `firstDelay`, doubling up to
// `maxDelay`. A user's count is forgotten `forgetAfter` after its last failure.
// At most `maxUsers` user ids are tracked; beyond that the ones whose last
// failure is oldest are forgotten first.
//
// Thread-safe. Time comes from the clock it is given, so tests need not sleep.
#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace velmorin {

class LoginBackoff {
  public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    using Delay = std::chrono::milliseconds;

    struct Settings {
        unsigned freeFailures = 1;
        Delay firstDelay{250};
        Delay maxDelay{8000};
        std::chrono::seconds forgetAfter{15 * 60};
        size_t maxUsers = 10000;
    };

    explicit LoginBackoff(Settings settings, Clock clock = nullptr);

    /// The delay owed after `failures` wrong logins in a row.
    Delay delayAfter(unsigned failures) const;
    /// Counts a wrong login naming `userId`; returns the user's delay.
    Delay userFailed(const std::string& userId);
    /// How many user ids are tracked (for tests).
    size_t trackedUsers() const;

  private:
    struct Failures {
        unsigned count = 0;
        std::chrono::steady_clock::time_point last;
    };
    void makeRoom(std::chrono::steady_clock::time_point now);

    const Settings settings_;
    const Clock clock_;
    mutable std::mutex mutex_;
    std::map<std::string, Failures> users_;
};

}  // namespace velmorin
