#include <windows.h>

#include <memory>
#include <new>

#include "platform/Thread.h"

namespace platform {

namespace {
DWORD WINAPI runBody(LPVOID parameter)
{
    std::unique_ptr<std::function<void()>> body(static_cast<std::function<void()>*>(parameter));
    (*body)();
    return 0;
}
}  // namespace

UniqueHandle createThread(std::function<void()> body)
{
    std::unique_ptr<std::function<void()>> owned(new (std::nothrow) std::function<void()>(std::move(body)));
    if (!owned) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return UniqueHandle();
    }
    HANDLE thread = CreateThread(nullptr, 0, runBody, owned.get(), 0, nullptr);
    if (thread == nullptr) return UniqueHandle();
    owned.release();  // the thread frees it
    return UniqueHandle(thread);
}

bool terminateThread(HandleValue thread, std::uint32_t exitCode)
{
    return TerminateThread(thread, exitCode) != FALSE;
}

}  // namespace platform
