// Waiting for a flag that another thread changes.

#pragma once

#include <atomic>
#include <chrono>
#include <thread>

// Looks again and again: std::atomic's own wait misses notifications in the run-time of one target.
template <class Value>
void waitWhile(const std::atomic<Value>& flag, typename std::atomic<Value>::value_type value) {
    while (flag.load() == value)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
}
