// The fakes keep their records under their own mutex: a copy read, a value written.
#pragma once

#include <mutex>
#include <utility>

template <class T>
T lockedCopy(std::mutex& mutex, const T& value) {
    std::lock_guard lock(mutex);
    return value;
}

template <class T, class V>
void lockedSet(std::mutex& mutex, T& field, V&& value) {
    std::lock_guard lock(mutex);
    field = std::forward<V>(value);
}

template <class Container, class V>
void lockedAppend(std::mutex& mutex, Container& container, V&& value) {
    std::lock_guard lock(mutex);
    container.push_back(std::forward<V>(value));
}
