#pragma once
// Kernel object handles (mutexes, events, files, processes, threads, pipes) and their one owner.
#include <cstdint>

#include "platform/Owner.h"

namespace platform {

using HandleValue = void*;

// CloseHandle semantics: false with the last error set when the handle is not valid.
bool closeHandle(HandleValue handle);

struct HandleTraits {
    using Value = HandleValue;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value handle) noexcept { closeHandle(handle); }
};
using UniqueHandle = UniqueOwner<HandleTraits>;

// The handle as it appears in log lines ("[H:0x%X]").
inline unsigned logValue(const UniqueHandle& handle)
{
    return static_cast<unsigned>(reinterpret_cast<std::uintptr_t>(handle.get()));
}

}  // namespace platform
