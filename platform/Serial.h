#pragma once
// Serial ports (COMn) opened for overlapped I/O, with Windows semantics. On the simulation platform "COMn"
// is $HALVERN_ROOT/dev/COMn, a pseudo-terminal whose other end a device model holds: the line settings
// become termios settings, and reads and writes complete at once.
#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/Handle.h"

namespace platform {

constexpr std::uint32_t kEvRxChar = 0x0001;
constexpr std::uint32_t kMaxDword = 0xFFFFFFFF;

constexpr std::uint8_t kNoParity = 0;
constexpr std::uint8_t kOddParity = 1;
constexpr std::uint8_t kEvenParity = 2;
constexpr std::uint8_t kMarkParity = 3;
constexpr std::uint8_t kSpaceParity = 4;
constexpr std::uint8_t kOneStopBit = 0;
constexpr std::uint8_t kOne5StopBits = 1;
constexpr std::uint8_t kTwoStopBits = 2;

// COMMTIMEOUTS.
struct CommTimeoutsT {
    std::uint32_t readIntervalTimeout = 0;
    std::uint32_t readTotalTimeoutMultiplier = 0;
    std::uint32_t readTotalTimeoutConstant = 0;
    std::uint32_t writeTotalTimeoutMultiplier = 0;
    std::uint32_t writeTotalTimeoutConstant = 0;
};

// The device control block (DCB): the line settings a mode string sets, and the platform's whole block,
// kept from getCommState to setCommState so that what the mode string does not name stays as it was.
struct CommStateT {
    std::uint32_t baudRate = 0;
    std::uint8_t byteSize = 8;
    std::uint8_t parity = kNoParity;
    std::uint8_t stopBits = kOneStopBit;
    alignas(8) std::array<std::uint8_t, 64> native{};
};

// CreateFileW("\\.\COMn") for reading and writing, exclusive, existing only, overlapped. An empty owner
// with the last error set on failure (2 no such port, 5 already open).
UniqueHandle openSerialPort(const std::wstring& name);
bool setCommTimeouts(HandleValue port, const CommTimeoutsT& timeouts);
// GetCommState, with the block's length set.
bool getCommState(HandleValue port, CommStateT& state);
// BuildCommDCBW: the system's mode-string parser ("115200,n,8,1", "baud=9600 parity=n data=8 stop=1").
bool buildCommDcb(const std::wstring& mode, CommStateT& state);
bool setCommState(HandleValue port, const CommStateT& state);
bool setCommMask(HandleValue port, std::uint32_t mask);
// WaitCommEvent, waited for to its end: true with the events that happened; false with 995 once the
// port's I/O was cancelled.
bool waitCommEvent(HandleValue port, std::uint32_t& events);

// An OVERLAPPED record with its manual-reset event, for one operation at a time.
class OverlappedC {
public:
    OverlappedC();
    ~OverlappedC();
    OverlappedC(const OverlappedC&) = delete;
    OverlappedC& operator=(const OverlappedC&) = delete;
    // CreateEventW for the record; false with the last error set.
    bool createEvent();
    HandleValue event() const;

    struct Impl;
    Impl& impl() { return *m_impl; }

private:
    std::unique_ptr<Impl> m_impl;
};

// ReadFile / WriteFile on an overlapped handle: true when done at once (bytesRead set), false with 997
// while the operation is under way, else false with the error.
bool readFileOverlapped(HandleValue file, void* buffer, std::uint32_t bytes, OverlappedC& overlapped,
                        std::uint32_t& bytesRead);
bool writeFileOverlapped(HandleValue file, const void* data, std::uint32_t bytes, OverlappedC& overlapped);
// GetOverlappedResult without waiting (the caller has waited on the record's event).
bool getOverlappedResult(HandleValue file, OverlappedC& overlapped, std::uint32_t& bytes);
// CancelIoEx for every operation on the handle, whichever thread started it.
bool cancelIo(HandleValue file);

}  // namespace platform
