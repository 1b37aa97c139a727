#include <windows.h>

#include <cwchar>

#include "platform/Privilege.h"
#include "platform/Time.h"
#include "platform/win32/WineGuard.h"

namespace platform {

namespace {

SystemTime fromWindows(const SYSTEMTIME& st)
{
    return SystemTime{st.wYear, st.wMonth, st.wDayOfWeek, st.wDay, st.wHour, st.wMinute, st.wSecond, st.wMilliseconds};
}

SYSTEMTIME toWindows(const SystemTime& time)
{
    SYSTEMTIME st{};
    st.wYear = time.year;
    st.wMonth = time.month;
    st.wDayOfWeek = time.dayOfWeek;
    st.wDay = time.day;
    st.wHour = time.hour;
    st.wMinute = time.minute;
    st.wSecond = time.second;
    st.wMilliseconds = time.milliseconds;
    return st;
}

template <std::size_t N>
void copyName(wchar_t (&target)[N], const WCHAR* source)
{
    std::size_t i = 0;
    for (; i + 1 < N && source[i] != 0; ++i)
        target[i] = static_cast<wchar_t>(source[i]);
    target[i] = L'\0';
}

// Windows refuses a clock change unless the caller enabled SeSystemtimePrivilege; Wine does not ask for it.
// Asking here as well makes a caller that forgot it fail under Wine as it would on the instrument.
bool systemtimePrivilegeHeld()
{
    if (privilegeEnabled(kSeSystemtimePrivilege)) return true;
    SetLastError(ERROR_PRIVILEGE_NOT_HELD);
    return false;
}

}  // namespace

SystemTime localTime()
{
    SYSTEMTIME st{};
    GetLocalTime(&st);
    return fromWindows(st);
}

SystemTime systemTime()
{
    SYSTEMTIME st{};
    GetSystemTime(&st);
    return fromWindows(st);
}

bool setSystemTime(const SystemTime& time)
{
    if (!systemtimePrivilegeHeld() || win32::refusedUnderWine()) return false;
    const SYSTEMTIME st = toWindows(time);
    return SetSystemTime(&st) != FALSE;
}

bool setLocalTime(const SystemTime& time)
{
    if (!systemtimePrivilegeHeld() || win32::refusedUnderWine()) return false;
    const SYSTEMTIME st = toWindows(time);
    return SetLocalTime(&st) != FALSE;
}

bool systemTimeToFileTime(const SystemTime& time, FileTime& fileTime)
{
    const SYSTEMTIME st = toWindows(time);
    FILETIME ft{};
    if (!SystemTimeToFileTime(&st, &ft)) return false;
    fileTime = (static_cast<FileTime>(ft.dwHighDateTime) << 32) | ft.dwLowDateTime;
    return true;
}

bool fileTimeToSystemTime(FileTime fileTime, SystemTime& time)
{
    FILETIME ft{};
    ft.dwLowDateTime = static_cast<DWORD>(fileTime & 0xFFFFFFFF);
    ft.dwHighDateTime = static_cast<DWORD>(fileTime >> 32);
    SYSTEMTIME st{};
    if (!FileTimeToSystemTime(&ft, &st)) return false;
    time = fromWindows(st);
    return true;
}

std::uint32_t getDynamicTimeZoneInformation(DynamicTimeZoneInformation& info)
{
    DYNAMIC_TIME_ZONE_INFORMATION dtzi{};
    const DWORD result = GetDynamicTimeZoneInformation(&dtzi);
    info.bias = dtzi.Bias;
    copyName(info.standardName, dtzi.StandardName);
    info.standardDate = fromWindows(dtzi.StandardDate);
    info.standardBias = dtzi.StandardBias;
    copyName(info.daylightName, dtzi.DaylightName);
    info.daylightDate = fromWindows(dtzi.DaylightDate);
    info.daylightBias = dtzi.DaylightBias;
    copyName(info.timeZoneKeyName, dtzi.TimeZoneKeyName);
    info.dynamicDaylightTimeDisabled = dtzi.DynamicDaylightTimeDisabled != FALSE;
    return result;
}

bool setDynamicTimeZoneInformation(const DynamicTimeZoneInformation& info)
{
    if (win32::refusedUnderWine()) return false;
    DYNAMIC_TIME_ZONE_INFORMATION dtzi{};
    dtzi.Bias = info.bias;
    copyName(dtzi.StandardName, info.standardName);
    dtzi.StandardDate = toWindows(info.standardDate);
    dtzi.StandardBias = info.standardBias;
    copyName(dtzi.DaylightName, info.daylightName);
    dtzi.DaylightDate = toWindows(info.daylightDate);
    dtzi.DaylightBias = info.daylightBias;
    copyName(dtzi.TimeZoneKeyName, info.timeZoneKeyName);
    dtzi.DynamicDaylightTimeDisabled = info.dynamicDaylightTimeDisabled ? TRUE : FALSE;
    return SetDynamicTimeZoneInformation(&dtzi) != FALSE;
}

}  // namespace platform
