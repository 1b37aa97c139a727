#pragma once
// Operations of which only one may run at a time, whoever asks: clients on different connections reach
// them side by side. The second caller is refused at once instead of queueing behind a run that can take
// minutes, and can tell the refusal from a failure by the last error ERROR_BUSY. It sits in the runtime
// beside the log, so that every layer above can use it.
#include <mutex>

#include "app/Log.h"
#include "platform/WinError.h"

namespace halvern {

// Owns `lock` when the turn was free; otherwise logs "[tag] [ERROR]: <what> is already in progress".
inline std::unique_lock<std::mutex> takeExclusiveTurn(std::mutex& lock, const char* tag, const char* what)
{
    std::unique_lock<std::mutex> turn(lock, std::try_to_lock);
    if (!turn.owns_lock()) {
        WriteLog("[%s] [ERROR]: %s is already in progress", tag, what);
        platform::setLastError(platform::kErrorBusy);
    }
    return turn;
}

}  // namespace halvern
