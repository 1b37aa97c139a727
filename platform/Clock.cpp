#include "platform/Clock.h"

#include <atomic>
#include <thread>

namespace platform {

std::uint64_t RealClockC::tickCount64()
{
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count());
}

void RealClockC::sleep(std::uint32_t milliseconds)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

std::chrono::milliseconds RealClockC::idleWait(std::uint64_t milliseconds)
{
    return std::chrono::milliseconds(milliseconds);
}

ManualClockC::ManualClockC(std::uint64_t start) : m_now(start) {}

std::uint64_t ManualClockC::tickCount64()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_now;
}

void ManualClockC::sleep(std::uint32_t milliseconds)
{
    advance(milliseconds);
    std::this_thread::yield();
}

std::chrono::milliseconds ManualClockC::idleWait(std::uint64_t milliseconds)
{
    advance(milliseconds);
    return std::chrono::milliseconds(0);
}

void ManualClockC::advance(std::uint64_t milliseconds)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_now += milliseconds;
}

namespace {
RealClockC g_realClock;
std::atomic<ClockI*> g_clock{&g_realClock};
}  // namespace

ClockI& clock()
{
    return *g_clock.load();
}

void setClock(ClockI* newClock)
{
    g_clock.store(newClock != nullptr ? newClock : &g_realClock);
}

}  // namespace platform
