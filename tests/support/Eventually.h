#pragma once
// A bounded wait for something another thread or process brings about on its own time line.
#include <chrono>
#include <functional>
#include <thread>

namespace halvern::test {

// Polls `condition` until it holds or a generous limit (3 s) passes.
inline bool eventually(const std::function<bool()>& condition)
{
    for (int attempt = 0; attempt < 300; ++attempt) {
        if (condition()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return condition();
}

}  // namespace halvern::test
