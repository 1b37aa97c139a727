#include "platform/WinError.h"

namespace platform {

namespace {
thread_local std::uint32_t t_lastError = 0;
}

std::uint32_t lastError()
{
    return t_lastError;
}
void setLastError(std::uint32_t error)
{
    t_lastError = error;
}

}  // namespace platform
