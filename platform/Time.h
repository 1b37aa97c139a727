#pragma once
// Calendar time as the Windows API gives it (SYSTEMTIME, FILETIME, the dynamic time-zone information). On
// the simulation platform the instrument's clock is an offset from the host's UTC clock and its zone a
// record, both kept in the sim root; the host's clock is only read, never set.
#include <cstddef>
#include <cstdint>

namespace platform {

struct SystemTime {
    std::uint16_t year = 0;
    std::uint16_t month = 0;
    std::uint16_t dayOfWeek = 0;
    std::uint16_t day = 0;
    std::uint16_t hour = 0;
    std::uint16_t minute = 0;
    std::uint16_t second = 0;
    std::uint16_t milliseconds = 0;
};

// A FILETIME as one number: 100-nanosecond units since 1601-01-01 00:00 UTC.
using FileTime = std::uint64_t;

// GetLocalTime / GetSystemTime.
SystemTime localTime();
SystemTime systemTime();
// SetSystemTime / SetLocalTime: false with the last error set. Both need SeSystemtimePrivilege enabled by
// the caller (else ERROR_PRIVILEGE_NOT_HELD), on both platforms.
bool setSystemTime(const SystemTime& time);
bool setLocalTime(const SystemTime& time);
// SystemTimeToFileTime / FileTimeToSystemTime: a field out of range (or a FILETIME above 0x7FFF...) fails
// with ERROR_INVALID_PARAMETER.
bool systemTimeToFileTime(const SystemTime& time, FileTime& fileTime);
bool fileTimeToSystemTime(FileTime fileTime, SystemTime& time);

constexpr std::size_t kTimeZoneNameChars = 32;
constexpr std::size_t kTimeZoneKeyNameChars = 128;

// DYNAMIC_TIME_ZONE_INFORMATION; the names are NUL-terminated within their arrays. A transition date
// with year 0 is a rule: month, day of week and week of the month (5 = the last), at hour:minute.
struct DynamicTimeZoneInformation {
    std::int32_t bias = 0;
    wchar_t standardName[kTimeZoneNameChars] = {};
    SystemTime standardDate;
    std::int32_t standardBias = 0;
    wchar_t daylightName[kTimeZoneNameChars] = {};
    SystemTime daylightDate;
    std::int32_t daylightBias = 0;
    wchar_t timeZoneKeyName[kTimeZoneKeyNameChars] = {};
    bool dynamicDaylightTimeDisabled = false;
};

// The results of GetDynamicTimeZoneInformation.
constexpr std::uint32_t kTimeZoneIdUnknown = 0;
constexpr std::uint32_t kTimeZoneIdStandard = 1;
constexpr std::uint32_t kTimeZoneIdDaylight = 2;
constexpr std::uint32_t kTimeZoneIdInvalid = 0xFFFFFFFF;

std::uint32_t getDynamicTimeZoneInformation(DynamicTimeZoneInformation& info);
// SetDynamicTimeZoneInformation: needs SeTimeZonePrivilege enabled by the caller (else
// ERROR_PRIVILEGE_NOT_HELD). The UTC clock stays where it is; local time follows the new zone.
bool setDynamicTimeZoneInformation(const DynamicTimeZoneInformation& info);

// A zone's "TZI" registry value (REG_TZI_FORMAT): 44 bytes, little-endian.
struct RegTziFormat {
    std::int32_t bias = 0;
    std::int32_t standardBias = 0;
    std::int32_t daylightBias = 0;
    SystemTime standardDate;
    SystemTime daylightDate;
};
constexpr std::size_t kRegTziFormatBytes = 44;

}  // namespace platform
