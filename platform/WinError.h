#pragma once
// Windows error numbers as Halvern sees them on both platforms, and the calling thread's last error.
#include <cstdint>

namespace platform {

constexpr std::uint32_t kErrorSuccess = 0;
constexpr std::uint32_t kErrorFileNotFound = 2;
constexpr std::uint32_t kErrorPathNotFound = 3;
constexpr std::uint32_t kErrorAccessDenied = 5;
constexpr std::uint32_t kErrorInvalidHandle = 6;
constexpr std::uint32_t kErrorNotEnoughMemory = 8;
constexpr std::uint32_t kErrorInvalidData = 13;
constexpr std::uint32_t kErrorFileExists = 80;
constexpr std::uint32_t kErrorInvalidParameter = 87;
constexpr std::uint32_t kErrorBrokenPipe = 109;
constexpr std::uint32_t kErrorBufferOverflow = 111;
constexpr std::uint32_t kErrorBusy = 170;
constexpr std::uint32_t kErrorInsufficientBuffer = 122;
constexpr std::uint32_t kErrorClassAlreadyExists = 1410;
constexpr std::uint32_t kErrorAlreadyExists = 183;
constexpr std::uint32_t kErrorPipeBusy = 231;
constexpr std::uint32_t kErrorNoData = 232;
constexpr std::uint32_t kErrorPipeNotConnected = 233;
constexpr std::uint32_t kErrorMoreData = 234;
constexpr std::uint32_t kStillActive = 259;
constexpr std::uint32_t kErrorInvalidWindowHandle = 1400;
constexpr std::uint32_t kErrorCannotFindWndClass = 1407;
constexpr std::uint32_t kErrorResourceNameNotFound = 1814;
constexpr std::uint32_t kErrorOperationAborted = 995;
constexpr std::uint32_t kErrorNotFound = 1168;
constexpr std::uint32_t kErrorIoPending = 997;
constexpr std::uint32_t kWsaEWouldBlock = 10035;
constexpr std::uint32_t kErrorNotSupported = 50;
constexpr std::uint32_t kErrorModNotFound = 126;
constexpr std::uint32_t kErrorProcNotFound = 127;
constexpr std::uint32_t kErrorNoMoreItems = 259;
constexpr std::uint32_t kErrorServiceAlreadyRunning = 1056;
constexpr std::uint32_t kErrorServiceDisabled = 1058;
constexpr std::uint32_t kErrorServiceDoesNotExist = 1060;
constexpr std::uint32_t kErrorNotAllAssigned = 1300;
constexpr std::uint32_t kErrorPrivilegeNotHeld = 1314;
constexpr std::uint32_t kErrorUnsupportedType = 1630;

// Registry calls answer with the error number directly (LSTATUS), like the Windows API.
using RegStatus = std::int32_t;

// The last error of the calling thread (GetLastError/SetLastError).
std::uint32_t lastError();
void setLastError(std::uint32_t error);

// Puts the thread's last error back as it found it when it ends: for work done on a caller's behalf (a log
// line, closing a handle) that must not change the error the caller reads next.
class LastErrorKeeperC {
public:
    LastErrorKeeperC() : m_error(lastError()) {}
    ~LastErrorKeeperC() { setLastError(m_error); }
    LastErrorKeeperC(const LastErrorKeeperC&) = delete;
    LastErrorKeeperC& operator=(const LastErrorKeeperC&) = delete;

private:
    std::uint32_t m_error;
};

}  // namespace platform
