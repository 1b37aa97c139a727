#include <algorithm>
#include <unordered_map>

#include "platform/Clock.h"
#include "platform/Sync.h"
#include "platform/WinError.h"
#include "platform/sim/SimObject.h"

namespace platform::sim {

namespace {
std::mutex g_tableLock;
std::unordered_map<HandleValue, std::unique_ptr<SimObjectC>>& table()
{
    static auto* objects = new std::unordered_map<HandleValue, std::unique_ptr<SimObjectC>>();
    return *objects;
}
}  // namespace

std::uint32_t SimObjectC::wait(std::uint32_t)
{
    setLastError(kErrorInvalidHandle);
    return kWaitFailed;
}

HandleValue registerObject(std::unique_ptr<SimObjectC> object)
{
    HandleValue handle = object.get();
    std::lock_guard<std::mutex> guard(g_tableLock);
    table().emplace(handle, std::move(object));
    return handle;
}

SimObjectC* lookupObject(HandleValue handle)
{
    std::lock_guard<std::mutex> guard(g_tableLock);
    auto it = table().find(handle);
    if (it == table().end()) {
        setLastError(kErrorInvalidHandle);
        return nullptr;
    }
    return it->second.get();
}

bool waitWithClock(std::unique_lock<std::mutex>& lock, std::condition_variable& cv, std::uint32_t milliseconds,
                   const std::function<bool()>& ready)
{
    if (milliseconds == kInfinite) {
        cv.wait(lock, ready);
        return true;
    }
    auto& clk = clock();
    const std::uint64_t deadline = clk.tickCount64() + milliseconds;
    while (!ready()) {
        const std::uint64_t now = clk.tickCount64();
        if (now >= deadline) return false;
        const auto realWait = clk.idleWait(deadline - now);
        if (realWait.count() > 0) cv.wait_for(lock, realWait);
    }
    return true;
}

bool pollWithClock(std::uint32_t milliseconds, std::uint64_t sliceMs, const std::function<bool()>& ready,
                   const std::function<void(std::chrono::milliseconds)>& pause)
{
    auto& clk = clock();
    const std::uint64_t deadline = clk.tickCount64() + milliseconds;
    while (!ready()) {
        const std::uint64_t now = clk.tickCount64();
        if (milliseconds != kInfinite && now >= deadline) return false;
        const std::uint64_t slice =
            milliseconds == kInfinite ? sliceMs : std::min<std::uint64_t>(deadline - now, sliceMs);
        const auto realWait = clk.idleWait(slice);
        if (realWait.count() > 0) pause(realWait);
    }
    return true;
}

}  // namespace platform::sim

namespace platform {

bool closeHandle(HandleValue handle)
{
    std::unique_ptr<sim::SimObjectC> doomed;
    {
        std::lock_guard<std::mutex> guard(sim::g_tableLock);
        auto it = sim::table().find(handle);
        if (it == sim::table().end()) {
            setLastError(kErrorInvalidHandle);
            return false;
        }
        doomed = std::move(it->second);
        sim::table().erase(it);
    }
    return true;  // the object goes away outside the table lock
}

}  // namespace platform
