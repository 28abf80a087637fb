#pragma once

#include <chrono>
#include <thread>

namespace Testing {

/// For what another process does: whether the condition holds within a minute.
template <class Condition>
bool eventually(Condition condition) {
    auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace Testing
