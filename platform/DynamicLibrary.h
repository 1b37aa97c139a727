#pragma once
// Libraries loaded at run time (LoadLibraryW, GetProcAddress, FreeLibrary), for the system libraries that
// only some installations carry. On the simulation platform a library is one the platform itself models,
// present when its file is in the sim root's "C:\Windows\System32".
#include <string>

#include "platform/Owner.h"

namespace platform {

// What GetProcAddress answers (FARPROC): cast to the function's own type before the call.
using ProcAddress = void (*)();

// FreeLibrary.
struct ModuleTraits {
    using Value = void*;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value module) noexcept;
};
using UniqueModule = UniqueOwner<ModuleTraits>;

// An empty owner with the last error set (126 when the library is not installed).
UniqueModule loadLibrary(const std::wstring& name);
// nullptr with the last error set (127 when the library has no such export).
ProcAddress getProcAddress(const UniqueModule& module, const char* name);

}  // namespace platform
