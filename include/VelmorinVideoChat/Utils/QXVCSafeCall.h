// Runs code that the library does not control (application callbacks, queued
// tasks) so that an exception it throws cannot unwind into the library's threads.
#pragma once

#include <cstdio>
#include <exception>
#include <utility>

namespace qxvc {

/// Calls `fn(args...)`; an exception is caught and reported on stderr with
/// `where`. Returns true when the call completed normally.
template <typename Fn, typename... Args>
bool safeCall(const char* where, Fn&& fn, Args&&... args) noexcept {
    try {
        std::forward<Fn>(fn)(std::forward<Args>(args)...);
        return true;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "[QXVC] exception escaped a callback in %s: %s\n", where, e.what());
    } catch (...) {
        std::fprintf(stderr, "[QXVC] exception escaped a callback in %s\n", where);
    }
    return false;
}

}  // namespace qxvc
