#include <windows.h>

#include "platform/win32/OwnHandle.h"

#include "platform/NamedPipe.h"

namespace platform {

namespace {

// Message pipes are small; these sizes only advise the system's buffering.
constexpr DWORD kPipeBufferBytes = 65536;

}  // namespace

UniqueHandle openPipe(const std::wstring& name)
{
    return win32::ownFileHandle(
        CreateFileW(name.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr));
}

bool waitNamedPipe(const std::wstring& name, std::uint32_t milliseconds)
{
    return WaitNamedPipeW(name.c_str(), milliseconds) != FALSE;
}

bool setPipeMessageReadMode(HandleValue pipe)
{
    DWORD mode = PIPE_READMODE_MESSAGE;
    return SetNamedPipeHandleState(pipe, &mode, nullptr, nullptr) != FALSE;
}

bool transactPipe(HandleValue pipe, const void* request, std::uint32_t requestBytes, void* reply,
                  std::uint32_t replyBytes, std::uint32_t& bytesRead)
{
    DWORD read = 0;
    const BOOL ok =
        TransactNamedPipe(pipe, const_cast<void*>(request), requestBytes, reply, replyBytes, &read, nullptr);
    bytesRead = read;
    return ok != FALSE;
}

bool readPipe(HandleValue pipe, void* buffer, std::uint32_t bytes, std::uint32_t& bytesRead)
{
    DWORD read = 0;
    const BOOL ok = ReadFile(pipe, buffer, bytes, &read, nullptr);
    bytesRead = read;
    return ok != FALSE;
}

bool writePipe(HandleValue pipe, const void* data, std::uint32_t bytes)
{
    DWORD written = 0;
    return WriteFile(pipe, data, bytes, &written, nullptr) != FALSE && written == bytes;
}

bool cancelPipeIo(HandleValue pipe)
{
    return CancelIoEx(pipe, nullptr) != FALSE;
}

UniqueHandle createPipeServer(const std::wstring& name)
{
    return win32::ownFileHandle(
        CreateNamedPipeW(name.c_str(), PIPE_ACCESS_DUPLEX, PIPE_TYPE_MESSAGE | PIPE_READMODE_MESSAGE | PIPE_WAIT,
                         PIPE_UNLIMITED_INSTANCES, kPipeBufferBytes, kPipeBufferBytes, 0, nullptr));
}

bool connectPipeClient(HandleValue pipe)
{
    if (ConnectNamedPipe(pipe, nullptr)) return true;
    return GetLastError() == ERROR_PIPE_CONNECTED;
}

bool disconnectPipeClient(HandleValue pipe)
{
    return DisconnectNamedPipe(pipe) != FALSE;
}

bool flushPipe(HandleValue pipe)
{
    return FlushFileBuffers(pipe) != FALSE;
}

}  // namespace platform
