// Windows time zones and the Windows clock: zone lookup in the registry, applying a zone, setting and
// reading the date and time.
#include <algorithm>
#include <cstring>
#include <limits>

#include "app/Log.h"
#include "platform/Privilege.h"
#include "platform/Registry.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "sysmanager/TimeKeepingC.h"
#include "sysmanager/TimeKeepingInternal.h"

namespace {

int lastErrorCode()
{
    return static_cast<int>(platform::lastError());
}

std::int32_t int32At(const std::vector<std::uint8_t>& bytes, std::size_t at)
{
    const std::uint32_t value =
        bytes[at] | (bytes[at + 1] << 8) | (bytes[at + 2] << 16) | (static_cast<std::uint32_t>(bytes[at + 3]) << 24);
    return static_cast<std::int32_t>(value);
}

platform::SystemTime systemTimeAt(const std::vector<std::uint8_t>& bytes, std::size_t at)
{
    std::uint16_t fields[8] = {};
    for (int i = 0; i < 8; ++i)
        fields[i] = static_cast<std::uint16_t>(bytes[at + 2 * i] | (bytes[at + 2 * i + 1] << 8));
    return platform::SystemTime{fields[0], fields[1], fields[2], fields[3], fields[4], fields[5], fields[6], fields[7]};
}

bool tziFromBytes(const std::vector<std::uint8_t>& bytes, platform::RegTziFormat& tzi)
{
    if (bytes.size() != platform::kRegTziFormatBytes) return false;
    tzi.bias = int32At(bytes, 0);
    tzi.standardBias = int32At(bytes, 4);
    tzi.daylightBias = int32At(bytes, 8);
    tzi.standardDate = systemTimeAt(bytes, 12);
    tzi.daylightDate = systemTimeAt(bytes, 28);
    return true;
}

// At most `capacity` wide characters including the terminator: a longer name is cut, never overflowing.
void copyZoneName(const std::string& name, wchar_t* target, std::size_t capacity)
{
    const std::wstring wide = platform::widen(name);
    const std::size_t length = std::min(wide.size(), capacity - 1);
    std::copy(wide.begin(), wide.begin() + static_cast<std::ptrdiff_t>(length), target);
    target[length] = L'\0';
}

// The record's name field up to its terminator (a full field without one counts as 256 characters).
std::string timeZoneIdOf(const WindowsTimeInfo& info)
{
    return std::string(info.timeZoneId, strnlen(info.timeZoneId, sizeof info.timeZoneId));
}

bool fitsSystemTimeField(std::int64_t value)
{
    return value >= 0 && value <= std::numeric_limits<std::uint16_t>::max();
}

}  // namespace

namespace halvern::time {

bool copyTimeZoneId(const std::string& name, char (&field)[256])
{
    if (name.size() + 1 > sizeof field) {
        field[0] = '\0';
        return false;
    }
    std::memcpy(field, name.c_str(), name.size() + 1);
    return true;
}

WindowsTimeInfo timeInfoFrom(const platform::SystemTime& time)
{
    WindowsTimeInfo info;
    info.tm_sec = time.second;
    info.tm_min = time.minute;
    info.tm_hour = time.hour;
    info.tm_mday = time.day;
    info.tm_mon = time.month - 1;
    info.tm_year = time.year - 1900;
    return info;
}

bool setSystemClock(const platform::SystemTime& time, bool local)
{
    const platform::PrivilegeScopeC privilege(platform::kSeSystemtimePrivilege);
    return local ? platform::setLocalTime(time) : platform::setSystemTime(time);
}

}  // namespace halvern::time

bool TimeKeepingC::GetTzDisplayWndKeyAndStdName(const std::wstring& standardName, TimeZoneDescription& zone)
{
    const char* const function = "SysManagerC::GetTzDisplayWndKeyAndStdName";
    platform::UniqueRegKey zones;
    platform::RegStatus status = platform::regOpenKeyRead(
        platform::RegHive::LocalMachine, L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Time Zones\\", zones);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Failed to get time zone. Error:%d", function, static_cast<int>(status));
        return false;
    }
    platform::UniqueRegKey found;
    std::wstring keyName;
    std::wstring standard;
    for (std::uint32_t index = 0; !found; ++index) {
        status = platform::regEnumKey(zones, index, keyName);
        if (status == static_cast<platform::RegStatus>(platform::kErrorNoMoreItems)) {
            WriteLog("[%s] [ERROR]: Cannot find the standard name of the requested time zone. ERROR(%d)", function,
                     static_cast<int>(status));
            return false;
        }
        if (status != 0) {
            WriteLog("[%s] [ERROR]: Cannot enumerate the available time zones in the registry editor. ERROR(%d)",
                     function, static_cast<int>(status));
            return false;
        }
        platform::UniqueRegKey candidate;
        status = platform::regOpenKeyRead(zones, keyName, candidate);
        if (status != 0) {
            WriteLog("[%s] [ERROR]: Cannot handle the current time zone in the registry. ERROR(%d)", function,
                     static_cast<int>(status));
            return false;
        }
        status = platform::regQueryString(candidate, L"Std", standard);
        if (status != 0) {
            WriteLog("[%s] [ERROR]: Cannot find the standard name of the requested time zone. ERROR(%d)", function,
                     static_cast<int>(status));
            return false;
        }
        // A zone's key name is what getting reports, so a client may hand it back; it differs from "Std" for
        // "UTC" ("Coordinated Universal Time") and, on a localised Windows, for every zone.
        if (standard == standardName || keyName == standardName) found = std::move(candidate);
    }

    std::wstring display;
    std::wstring daylight;
    std::vector<std::uint8_t> tzi;
    status = platform::regQueryString(found, L"Display", display);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Cannot find the display name of the requested time zone. ERROR(%d)", function,
                 static_cast<int>(status));
        return false;
    }
    status = platform::regQueryString(found, L"Dlt", daylight);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Cannot find the daylight name of the requested time zone. ERROR(%d)", function,
                 static_cast<int>(status));
        return false;
    }
    status = platform::regQueryBinary(found, L"TZI", tzi);
    if (status == 0 && !tziFromBytes(tzi, zone.tzi))
        status = static_cast<platform::RegStatus>(platform::kErrorInvalidData);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Cannot find the TZI value of the requested time zone. ERROR(%d)", function,
                 static_cast<int>(status));
        return false;
    }
    const auto displayText = platform::narrow(display);
    const auto standardText = platform::narrow(standard);
    const auto keyText = platform::narrow(keyName);
    const auto daylightText = platform::narrow(daylight);
    if (!displayText || !standardText || !keyText || !daylightText) {
        WriteLog("[%s] [ERROR]: Cannot handle the current time zone in the registry. ERROR(%d)", function,
                 static_cast<int>(platform::kErrorInvalidData));
        return false;
    }
    zone.displayName = *displayText;
    zone.standardName = *standardText;
    zone.keyName = *keyText;
    zone.daylightName = *daylightText;
    return true;
}

bool TimeKeepingC::SetWindowsTimeZoneInfo(const WindowsTimeInfo& info)
{
    const char* const function = "SysManagerC::SetWindowsTimeZoneInfo";
    TimeZoneDescription zone;
    if (!GetTzDisplayWndKeyAndStdName(platform::widen(timeZoneIdOf(info)), zone)) {
        WriteLog("[%s] [ERROR]: Cannot get the display name of this time zone! Error(%d)", function, lastErrorCode());
        return false;
    }
    platform::DynamicTimeZoneInformation dynamic;
    dynamic.bias = zone.tzi.bias;
    dynamic.standardBias = zone.tzi.standardBias;
    dynamic.daylightBias = zone.tzi.daylightBias;
    dynamic.standardDate = zone.tzi.standardDate;
    dynamic.daylightDate = zone.tzi.daylightDate;
    copyZoneName(zone.standardName, dynamic.standardName, platform::kTimeZoneNameChars);
    copyZoneName(zone.daylightName, dynamic.daylightName, platform::kTimeZoneNameChars);
    copyZoneName(zone.keyName, dynamic.timeZoneKeyName, platform::kTimeZoneNameChars);
    dynamic.dynamicDaylightTimeDisabled = info.daylightSavingDisabled;

    // A new zone changes the local time only: the UTC clock is put back to where it was.
    const platform::SystemTime utc = platform::systemTime();
    bool set = false;
    {
        const platform::PrivilegeScopeC privilege(platform::kSeTimeZonePrivilege);
        set = platform::setDynamicTimeZoneInformation(dynamic);
    }
    if (!set) {
        WriteLog("[%s] [ERROR]: During debug mode, there is not privilege to set the time zone info. Error(%d)",
                 function, lastErrorCode());
        return false;
    }
    WriteLog("The time zone (standard) name was set successfully.");
    WriteLog("Set Daylight Time Saving status : %s", info.daylightSavingDisabled ? "disabled" : "enabled");
    if (!halvern::time::setSystemClock(utc))
        WriteLog("[%s] [ERROR]: Failed to put the UTC time back after the time zone change. Error:%d", function,
                 lastErrorCode());
    return true;
}

bool TimeKeepingC::SetWindowsDateTime(const WindowsTimeInfo& info, bool local)
{
    const char* const function = "SysManagerC::SetWindowsDateTime";
    const std::int64_t year = std::int64_t{info.tm_year} + 1900;
    const std::int64_t month = std::int64_t{info.tm_mon} + 1;
    bool set = false;
    platform::SystemTime time;
    // A field that a SYSTEMTIME cannot hold is invalid, not a value to wrap into range.
    if (fitsSystemTimeField(year) && fitsSystemTimeField(month) && fitsSystemTimeField(info.tm_mday) &&
        fitsSystemTimeField(info.tm_hour) && fitsSystemTimeField(info.tm_min) && fitsSystemTimeField(info.tm_sec)) {
        time.year = static_cast<std::uint16_t>(year);
        time.month = static_cast<std::uint16_t>(month);
        time.day = static_cast<std::uint16_t>(info.tm_mday);
        time.hour = static_cast<std::uint16_t>(info.tm_hour);
        time.minute = static_cast<std::uint16_t>(info.tm_min);
        time.second = static_cast<std::uint16_t>(info.tm_sec);
        set = halvern::time::setSystemClock(time, local);
    } else {
        platform::setLastError(platform::kErrorInvalidParameter);
    }
    if (!set) {
        WriteLog("[%s] [ERROR]: Failed to set windows time and date. Error:%d", function, lastErrorCode());
        return false;
    }
    const char* const kind = local ? "local" : "UTC";
    WriteLog("Set %s Windows date: %02d/%02d/%04d", kind, time.day, time.month, time.year);
    WriteLog("Set %s Windows time: %02d:%02d:%02d", kind, time.hour, time.minute, time.second);
    return true;
}

bool TimeKeepingC::GetWindowsTimeInformation(WindowsTimeInfo& info)
{
    const char* const function = "SysManagerC::GetWindowsTimeInformation";
    const platform::SystemTime local = platform::localTime();
    info = halvern::time::timeInfoFrom(local);
    WriteLog("Get Windows local time: %02d:%02d:%02d", local.hour, local.minute, local.second);
    WriteLog("Get Windows date: %02d/%02d/%04d", local.day, local.month, local.year);

    platform::DynamicTimeZoneInformation dynamic;
    const std::uint32_t zoneId = platform::getDynamicTimeZoneInformation(dynamic);
    if (zoneId == platform::kTimeZoneIdInvalid) {
        WriteLog("[%s] [ERROR]: Failed to get time zone information. Error:%d", function, lastErrorCode());
        return false;
    }
    if (zoneId != platform::kTimeZoneIdUnknown && zoneId != platform::kTimeZoneIdStandard &&
        zoneId != platform::kTimeZoneIdDaylight) {
        WriteLog("[%s] [ERROR]: GetTimeZoneInformation failed! Error(%d)\n", function, lastErrorCode());
        return false;
    }
    TimeZoneDescription zone;
    if (!GetTzDisplayWndKeyAndStdName(dynamic.standardName, zone)) {
        WriteLog("[%s] [ERROR]: Cannot get the display name of this time zone! Error(%d)", function, lastErrorCode());
        return false;
    }
    // Getting answers the key name (the reference list's names), setting matches "Std": on an English system
    // the two are the same text for the zones the instrument offers.
    if (!halvern::time::copyTimeZoneId(zone.keyName, info.timeZoneId)) {
        WriteLog("[%s] [ERROR]: Cannot initialize 'timeZoneId'! Error(%d)\n", function, halvern::time::kCopyError);
        return false;
    }
    WriteLog("Get Time Zone: %S", platform::widen(zone.keyName).c_str());

    platform::UniqueRegKey key;
    platform::RegStatus status = platform::regOpenKeyRead(
        platform::RegHive::LocalMachine, L"SYSTEM\\CurrentControlSet\\Control\\TimeZoneInformation\\", key);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Unable to open the TimeZoneInformation in the registry editor., ERROR(%d)", function,
                 static_cast<int>(status));
        return false;
    }
    std::uint32_t daylightBias = 0;
    std::uint32_t type = platform::kRegNone;
    status = platform::regQueryDword(key, L"DaylightBias", daylightBias, type);
    if (status != 0) {
        WriteLog("[%s] [ERROR]: Unable to get 'DaylightBias' registry key. , ERROR(%d)", function,
                 static_cast<int>(status));
        return false;
    }
    info.daylightSavingDisabled = daylightBias == 0 || dynamic.dynamicDaylightTimeDisabled;
    WriteLog("Get Daylight Time Saving: %s", info.daylightSavingDisabled ? "disabled" : "enabled");
    WriteLog("Windows time information was successfully retrieved.");
    return true;
}
