#include <windows.h>

#include <cstring>

#include "platform/Serial.h"
#include "platform/win32/OwnHandle.h"

namespace platform {

struct OverlappedC::Impl {
    OVERLAPPED record{};
    UniqueHandle event;
};

namespace {

static_assert(sizeof(DCB) <= sizeof(CommStateT::native), "the DCB must fit its portable holder");

DCB toDcb(const CommStateT& state)
{
    DCB dcb;
    std::memcpy(&dcb, state.native.data(), sizeof dcb);
    dcb.DCBlength = sizeof dcb;
    dcb.BaudRate = state.baudRate;
    dcb.ByteSize = state.byteSize;
    dcb.Parity = state.parity;
    dcb.StopBits = state.stopBits;
    return dcb;
}

void fromDcb(const DCB& dcb, CommStateT& state)
{
    std::memcpy(state.native.data(), &dcb, sizeof dcb);
    state.baudRate = dcb.BaudRate;
    state.byteSize = dcb.ByteSize;
    state.parity = dcb.Parity;
    state.stopBits = dcb.StopBits;
}

}  // namespace

UniqueHandle openSerialPort(const std::wstring& name)
{
    const std::wstring device = L"\\\\.\\" + name;
    return win32::ownFileHandle(CreateFileW(device.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                                            FILE_FLAG_OVERLAPPED, nullptr));
}

bool setCommTimeouts(HandleValue port, const CommTimeoutsT& timeouts)
{
    COMMTIMEOUTS native{};
    native.ReadIntervalTimeout = timeouts.readIntervalTimeout;
    native.ReadTotalTimeoutMultiplier = timeouts.readTotalTimeoutMultiplier;
    native.ReadTotalTimeoutConstant = timeouts.readTotalTimeoutConstant;
    native.WriteTotalTimeoutMultiplier = timeouts.writeTotalTimeoutMultiplier;
    native.WriteTotalTimeoutConstant = timeouts.writeTotalTimeoutConstant;
    return SetCommTimeouts(port, &native) != FALSE;
}

bool getCommState(HandleValue port, CommStateT& state)
{
    DCB dcb{};
    dcb.DCBlength = sizeof dcb;
    if (!GetCommState(port, &dcb)) return false;
    fromDcb(dcb, state);
    return true;
}

bool buildCommDcb(const std::wstring& mode, CommStateT& state)
{
    DCB dcb = toDcb(state);
    if (!BuildCommDCBW(mode.c_str(), &dcb)) return false;
    fromDcb(dcb, state);
    return true;
}

bool setCommState(HandleValue port, const CommStateT& state)
{
    DCB dcb = toDcb(state);
    return SetCommState(port, &dcb) != FALSE;
}

bool setCommMask(HandleValue port, std::uint32_t mask)
{
    return SetCommMask(port, mask) != FALSE;
}

bool waitCommEvent(HandleValue port, std::uint32_t& events)
{
    OverlappedC overlapped;
    if (!overlapped.createEvent()) return false;
    DWORD happened = 0;
    OVERLAPPED& record = overlapped.impl().record;
    if (!WaitCommEvent(port, &happened, &record)) {
        if (GetLastError() != ERROR_IO_PENDING) return false;
        DWORD ignored = 0;
        if (!GetOverlappedResult(port, &record, &ignored, TRUE)) return false;
    }
    events = happened;
    return true;
}

OverlappedC::OverlappedC() : m_impl(std::make_unique<Impl>()) {}
OverlappedC::~OverlappedC() = default;

bool OverlappedC::createEvent()
{
    m_impl->event.reset(CreateEventW(nullptr, TRUE, FALSE, nullptr));
    m_impl->record = OVERLAPPED{};
    m_impl->record.hEvent = m_impl->event.get();
    return static_cast<bool>(m_impl->event);
}

HandleValue OverlappedC::event() const
{
    return m_impl->event.get();
}

bool readFileOverlapped(HandleValue file, void* buffer, std::uint32_t bytes, OverlappedC& overlapped,
                        std::uint32_t& bytesRead)
{
    DWORD read = 0;
    if (!ReadFile(file, buffer, bytes, &read, &overlapped.impl().record)) return false;
    bytesRead = read;
    return true;
}

bool writeFileOverlapped(HandleValue file, const void* data, std::uint32_t bytes, OverlappedC& overlapped)
{
    return WriteFile(file, data, bytes, nullptr, &overlapped.impl().record) != FALSE;
}

bool getOverlappedResult(HandleValue file, OverlappedC& overlapped, std::uint32_t& bytes)
{
    DWORD transferred = 0;
    if (!GetOverlappedResult(file, &overlapped.impl().record, &transferred, FALSE)) return false;
    bytes = transferred;
    return true;
}

bool cancelIo(HandleValue file)
{
    return CancelIoEx(file, nullptr) != FALSE;
}

}  // namespace platform
