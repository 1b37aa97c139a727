#pragma once
// Kernel objects of the simulation platform. A handle is a pointer to one of these, registered in a table
// so that closing or using a stale handle fails the way Windows fails (ERROR_INVALID_HANDLE).
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

#include "platform/Handle.h"

namespace platform::sim {

class SimObjectC {
public:
    virtual ~SimObjectC() = default;
    // WaitForSingleObject on this object; the default object cannot be waited on.
    virtual std::uint32_t wait(std::uint32_t milliseconds);
};

// Registers the object and answers its handle (ownership passes to the handle table).
HandleValue registerObject(std::unique_ptr<SimObjectC> object);
// The live object behind a handle, or nullptr (last error 6).
SimObjectC* lookupObject(HandleValue handle);

// Waits on `cv` until `ready()` holds or `milliseconds` of the installed clock pass. `lock` is held.
bool waitWithClock(std::unique_lock<std::mutex>& lock, std::condition_variable& cv, std::uint32_t milliseconds,
                   const std::function<bool()>& ready);

// Looks at `ready()` a slice of the installed clock apart until it holds or `milliseconds` pass (kInfinite:
// never), for states that another process or a child's exit changes, which no condition variable here
// hears of. `pause` blocks for the real time of one slice.
bool pollWithClock(std::uint32_t milliseconds, std::uint64_t sliceMs, const std::function<bool()>& ready,
                   const std::function<void(std::chrono::milliseconds)>& pause);

}  // namespace platform::sim
