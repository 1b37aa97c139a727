#pragma once
// Threads as kernel objects: the handle is signalled once the thread has ended, so waitForSingleObject
// (platform/Sync.h) waits for it with a time-out.
#include <cstdint>
#include <functional>

#include "platform/Handle.h"

namespace platform {

// CreateThread running `body`; an empty owner with the last error set on failure.
UniqueHandle createThread(std::function<void()> body);
// TerminateThread. The simulation platform cannot end a thread from outside and answers false (5).
bool terminateThread(HandleValue thread, std::uint32_t exitCode);

}  // namespace platform
