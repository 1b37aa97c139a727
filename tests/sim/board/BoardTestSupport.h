#pragma once
// What the board tests share: bounded waits for the simulated boards' own time lines.
#include <chrono>
#include <functional>
#include <thread>

namespace halvern::test {

// Polls `condition` until it holds or a generous limit passes; the boards move on real time.
inline bool eventually(const std::function<bool()>& condition)
{
    for (int attempt = 0; attempt < 300; ++attempt) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

}  // namespace halvern::test
