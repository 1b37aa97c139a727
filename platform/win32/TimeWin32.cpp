#include <windows.h>

#include "platform/Time.h"

namespace platform {

SystemTime localTime()
{
    SYSTEMTIME st{};
    GetLocalTime(&st);
    return SystemTime{st.wYear, st.wMonth, st.wDayOfWeek, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds};
}

}  // namespace platform
