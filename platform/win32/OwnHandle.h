#pragma once
// Windows-side helper for calls that answer INVALID_HANDLE_VALUE on failure (CreateFile, CreateNamedPipe).
#include <windows.h>

#include "platform/Handle.h"

namespace platform::win32 {

// UniqueHandle's empty value is null: INVALID_HANDLE_VALUE must not leak into an owner, yet the caller
// still needs the error of the failed call.
inline UniqueHandle ownFileHandle(HANDLE handle)
{
    const DWORD error = GetLastError();
    UniqueHandle owner(handle == INVALID_HANDLE_VALUE ? nullptr : handle);
    SetLastError(error);
    return owner;
}

}  // namespace platform::win32
