#include <windows.h>

#include "platform/WinError.h"

namespace platform {

std::uint32_t lastError()
{
    return GetLastError();
}

void setLastError(std::uint32_t error)
{
    SetLastError(error);
}

}  // namespace platform
