#pragma once
// The one clock that Halvern's waits go through. Tests install a virtual clock so that a 15-second
// countdown runs in milliseconds; everything else runs on the real monotonic clock.
#include <chrono>
#include <cstdint>
#include <mutex>

namespace platform {

class ClockI {
public:
    virtual ~ClockI() = default;
    // Milliseconds since an arbitrary start (GetTickCount64 semantics: never goes back).
    virtual std::uint64_t tickCount64() = 0;
    virtual void sleep(std::uint32_t milliseconds) = 0;
    // How long to block in real time while waiting for `milliseconds` of this clock to pass. A virtual
    // clock advances itself by that much and answers zero, so idle waits complete at once.
    virtual std::chrono::milliseconds idleWait(std::uint64_t milliseconds) = 0;
};

class RealClockC final : public ClockI {
public:
    std::uint64_t tickCount64() override;
    void sleep(std::uint32_t milliseconds) override;
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override;
};

// Virtual time: starts at `start` and moves only when someone sleeps, waits idle or calls advance().
class ManualClockC final : public ClockI {
public:
    explicit ManualClockC(std::uint64_t start = 1'000'000);
    std::uint64_t tickCount64() override;
    void sleep(std::uint32_t milliseconds) override;
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override;
    void advance(std::uint64_t milliseconds);

private:
    std::mutex m_lock;
    std::uint64_t m_now;
};

// The process's clock; the real one unless a test installed another (the caller keeps it alive).
ClockI& clock();
void setClock(ClockI* clock);  // nullptr restores the real clock

inline std::uint64_t tickCount64()
{
    return clock().tickCount64();
}
inline void sleepMs(std::uint32_t milliseconds)
{
    clock().sleep(milliseconds);
}

}  // namespace platform
