#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cwchar>
#include <fstream>
#include <map>
#include <sstream>
#include <vector>

#include "platform/Calendar.h"
#include "platform/Privilege.h"
#include "platform/Registry.h"
#include "platform/Text.h"
#include "platform/Time.h"
#include "platform/WinError.h"
#include "platform/sim/SimClock.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace sim {

namespace {

constexpr std::int64_t kUnitsPerSecond = 10'000'000;
constexpr std::int64_t kUnitsPerMinute = 60 * kUnitsPerSecond;
constexpr std::int64_t kUnitsPerDay = 86400 * kUnitsPerSecond;
// Days from 1601-01-01, where FILETIME counts from, to 1970-01-01.
constexpr std::int64_t kDaysFrom1601To1970 = 134774;
// The largest FILETIME that FileTimeToSystemTime accepts.
constexpr FileTime kMaxFileTime = 0x7FFFFFFFFFFFFFFFULL;

const char* const kOffsetFile = "/clock/SystemTimeOffset";
const char* const kZoneFile = "/clock/TimeZone";
const char* const kZoneRegistryKey = "/registry/HKLM/SYSTEM/CurrentControlSet/Control/TimeZoneInformation";

unsigned daysInMonth(std::int64_t year, unsigned month)
{
    static const unsigned kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

// Minutes since 1970-01-01 at which a transition rule falls in `year`, on the zone's local clock.
bool transitionMinute(const SystemTime& rule, std::int64_t year, std::int64_t& minute)
{
    if (rule.month < 1 || rule.month > 12) return false;
    std::int64_t days = 0;
    if (rule.year != 0) {
        // An absolute date belongs to its own year only.
        if (rule.year != year) return false;
        days = daysFromCivil(year, rule.month, rule.day);
    } else {
        const std::int64_t first = daysFromCivil(year, rule.month, 1);
        unsigned day = 1 + (rule.dayOfWeek + 7 - weekdayFromDays(first)) % 7 + (rule.day - 1u) * 7;
        while (day > daysInMonth(year, rule.month))
            day -= 7;
        days = first + day - 1;
    }
    minute = days * 1440 + rule.hour * 60 + rule.minute;
    return true;
}

std::int64_t toUnixMinutes(FileTime fileTime)
{
    return static_cast<std::int64_t>(fileTime / kUnitsPerMinute) - kDaysFrom1601To1970 * 1440;
}

std::string fileInRoot(const std::string& root, const char* name)
{
    return root.empty() ? std::string() : root + name;
}

std::string narrowName(const wchar_t* name)
{
    return narrow(name).value_or(std::string());
}

void copyName(const std::string& text, wchar_t* target, std::size_t capacity)
{
    const std::wstring wide = widen(text);
    const std::size_t length = std::min(wide.size(), capacity - 1);
    std::wmemcpy(target, wide.data(), length);
    target[length] = L'\0';
}

std::string dateText(const SystemTime& date)
{
    std::ostringstream text;
    text << date.year << ',' << date.month << ',' << date.dayOfWeek << ',' << date.day << ',' << date.hour << ','
         << date.minute << ',' << date.second << ',' << date.milliseconds;
    return text.str();
}

SystemTime dateFromText(const std::string& text)
{
    SystemTime date;
    std::uint16_t* fields[] = {&date.year, &date.month,  &date.dayOfWeek, &date.day,
                               &date.hour, &date.minute, &date.second,    &date.milliseconds};
    std::istringstream in(text);
    for (auto* field : fields) {
        unsigned value = 0;
        char separator = 0;
        if (!(in >> value)) break;
        *field = static_cast<std::uint16_t>(value);
        in >> separator;
    }
    return date;
}

std::vector<std::uint8_t> dateBytes(const SystemTime& date)
{
    std::vector<std::uint8_t> bytes;
    for (std::uint16_t field :
         {date.year, date.month, date.dayOfWeek, date.day, date.hour, date.minute, date.second, date.milliseconds}) {
        bytes.push_back(static_cast<std::uint8_t>(field & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(field >> 8));
    }
    return bytes;
}

bool writeFileAtomically(const std::string& path, const std::string& content)
{
    const std::string temp = path + ".tmp";
    {
        std::ofstream out(temp, std::ios::trunc);
        out << content;
        if (!out) return false;
    }
    return std::rename(temp.c_str(), path.c_str()) == 0;
}

bool writeRegistryValue(const std::string& keyFolder, const char* name, std::uint32_t type, const std::string& data)
{
    return writeFileAtomically(keyFolder + "/" + name, std::string(typeName(type)) + "\n" + data + "\n");
}

std::string dwordText(std::int32_t value)
{
    return std::to_string(static_cast<std::uint32_t>(value));
}

std::int64_t readOffset()
{
    std::ifstream in(fileInRoot(root(), kOffsetFile));
    std::int64_t offset = 0;
    if (!(in >> offset)) return 0;
    return offset;
}

FileTime virtualUtcNow()
{
    return static_cast<FileTime>(static_cast<std::int64_t>(hostUtcNow()) + readOffset());
}

}  // namespace

FileTime hostUtcNow()
{
    const auto sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
    const auto units =
        std::chrono::duration_cast<std::chrono::duration<std::int64_t, std::ratio<1, 10'000'000>>>(sinceEpoch).count();
    return static_cast<FileTime>(units + kDaysFrom1601To1970 * kUnitsPerDay);
}

DynamicTimeZoneInformation utcTimeZone()
{
    DynamicTimeZoneInformation zone;
    copyName("Coordinated Universal Time", zone.standardName, kTimeZoneNameChars);
    copyName("Coordinated Universal Time", zone.daylightName, kTimeZoneNameChars);
    copyName("UTC", zone.timeZoneKeyName, kTimeZoneKeyNameChars);
    return zone;
}

bool storeTimeZone(const std::string& rootPath, const DynamicTimeZoneInformation& zone)
{
    if (rootPath.empty() || !makeDirectories(rootPath + "/clock") || !makeDirectories(rootPath + kZoneRegistryKey))
        return false;
    std::ostringstream record;
    record << "Bias=" << zone.bias << "\nStandardName=" << narrowName(zone.standardName)
           << "\nStandardDate=" << dateText(zone.standardDate) << "\nStandardBias=" << zone.standardBias
           << "\nDaylightName=" << narrowName(zone.daylightName) << "\nDaylightDate=" << dateText(zone.daylightDate)
           << "\nDaylightBias=" << zone.daylightBias << "\nTimeZoneKeyName=" << narrowName(zone.timeZoneKeyName)
           << "\nDynamicDaylightTimeDisabled=" << (zone.dynamicDaylightTimeDisabled ? 1 : 0) << "\n";
    if (!writeFileAtomically(rootPath + kZoneFile, record.str())) return false;
    const std::string key = rootPath + kZoneRegistryKey;
    const DynamicTimeZoneInformation& z = zone;
    return writeRegistryValue(key, "Bias", kRegDword, dwordText(z.bias)) &&
           writeRegistryValue(key, "StandardName", kRegSz, narrowName(z.standardName)) &&
           writeRegistryValue(key, "StandardBias", kRegDword, dwordText(z.standardBias)) &&
           writeRegistryValue(key, "StandardStart", kRegBinary, hexText(dateBytes(z.standardDate))) &&
           writeRegistryValue(key, "DaylightName", kRegSz, narrowName(z.daylightName)) &&
           writeRegistryValue(key, "DaylightBias", kRegDword, dwordText(z.daylightBias)) &&
           writeRegistryValue(key, "DaylightStart", kRegBinary, hexText(dateBytes(z.daylightDate))) &&
           writeRegistryValue(key, "TimeZoneKeyName", kRegSz, narrowName(z.timeZoneKeyName)) &&
           writeRegistryValue(key, "DynamicDaylightTimeDisabled", kRegDword, z.dynamicDaylightTimeDisabled ? "1" : "0");
}

DynamicTimeZoneInformation loadTimeZone(const std::string& rootPath)
{
    std::ifstream in(fileInRoot(rootPath, kZoneFile));
    if (!in) return utcTimeZone();
    std::map<std::string, std::string> fields;
    std::string line;
    while (std::getline(in, line)) {
        const auto equals = line.find('=');
        if (equals != std::string::npos) fields[line.substr(0, equals)] = line.substr(equals + 1);
    }
    auto number = [&fields](const char* name) {
        try {
            return static_cast<std::int32_t>(std::stol(fields[name]));
        } catch (...) {
            return 0;
        }
    };
    DynamicTimeZoneInformation zone;
    zone.bias = number("Bias");
    copyName(fields["StandardName"], zone.standardName, kTimeZoneNameChars);
    zone.standardDate = dateFromText(fields["StandardDate"]);
    zone.standardBias = number("StandardBias");
    copyName(fields["DaylightName"], zone.daylightName, kTimeZoneNameChars);
    zone.daylightDate = dateFromText(fields["DaylightDate"]);
    zone.daylightBias = number("DaylightBias");
    copyName(fields["TimeZoneKeyName"], zone.timeZoneKeyName, kTimeZoneKeyNameChars);
    zone.dynamicDaylightTimeDisabled = number("DynamicDaylightTimeDisabled") != 0;
    return zone;
}

bool isDaylightTime(const DynamicTimeZoneInformation& zone, FileTime utc)
{
    if (zone.dynamicDaylightTimeDisabled || zone.daylightDate.month == 0 || zone.standardDate.month == 0) return false;
    const std::int64_t now = toUnixMinutes(utc);
    std::int64_t year = 0;
    unsigned month = 0;
    unsigned day = 0;
    civilFromDays((now - zone.bias - zone.standardBias) / 1440, year, month, day);
    std::int64_t start = 0;
    std::int64_t end = 0;
    if (!transitionMinute(zone.daylightDate, year, start) || !transitionMinute(zone.standardDate, year, end))
        return false;
    // Daylight time starts on the standard clock and ends on the daylight clock.
    start += zone.bias + zone.standardBias;
    end += zone.bias + zone.daylightBias;
    if (start < end) return start <= now && now < end;
    // Southern hemisphere: daylight time spans the turn of the year.
    return !(end <= now && now < start);
}

FileTime utcToLocal(const DynamicTimeZoneInformation& zone, FileTime utc)
{
    const std::int32_t bias = zone.bias + (isDaylightTime(zone, utc) ? zone.daylightBias : zone.standardBias);
    return static_cast<FileTime>(static_cast<std::int64_t>(utc) - bias * kUnitsPerMinute);
}

FileTime localToUtc(const DynamicTimeZoneInformation& zone, FileTime local)
{
    const auto asStandard =
        static_cast<FileTime>(static_cast<std::int64_t>(local) + (zone.bias + zone.standardBias) * kUnitsPerMinute);
    if (!isDaylightTime(zone, asStandard)) return asStandard;
    return static_cast<FileTime>(static_cast<std::int64_t>(local) + (zone.bias + zone.daylightBias) * kUnitsPerMinute);
}

}  // namespace sim

bool systemTimeToFileTime(const SystemTime& time, FileTime& fileTime)
{
    if (time.year < 1601 || time.year > 30827 || time.month < 1 || time.month > 12 || time.day < 1 ||
        time.day > sim::daysInMonth(time.year, time.month) || time.hour > 23 || time.minute > 59 || time.second > 59 ||
        time.milliseconds > 999) {
        setLastError(kErrorInvalidParameter);
        return false;
    }
    const std::int64_t days = daysFromCivil(time.year, time.month, time.day) + sim::kDaysFrom1601To1970;
    const std::int64_t seconds = days * 86400 + time.hour * 3600 + time.minute * 60 + time.second;
    fileTime = static_cast<FileTime>(seconds * sim::kUnitsPerSecond + time.milliseconds * 10'000);
    return true;
}

bool fileTimeToSystemTime(FileTime fileTime, SystemTime& time)
{
    if (fileTime > sim::kMaxFileTime) {
        setLastError(kErrorInvalidParameter);
        return false;
    }
    const auto units = static_cast<std::int64_t>(fileTime);
    const std::int64_t days = units / sim::kUnitsPerDay;
    const std::int64_t rest = units % sim::kUnitsPerDay;
    std::int64_t year = 0;
    unsigned month = 0;
    unsigned day = 0;
    civilFromDays(days - sim::kDaysFrom1601To1970, year, month, day);
    time.year = static_cast<std::uint16_t>(year);
    time.month = static_cast<std::uint16_t>(month);
    time.day = static_cast<std::uint16_t>(day);
    time.dayOfWeek = static_cast<std::uint16_t>(weekdayFromDays(days - sim::kDaysFrom1601To1970));
    time.hour = static_cast<std::uint16_t>(rest / (3600 * sim::kUnitsPerSecond));
    time.minute = static_cast<std::uint16_t>(rest / sim::kUnitsPerMinute % 60);
    time.second = static_cast<std::uint16_t>(rest / sim::kUnitsPerSecond % 60);
    time.milliseconds = static_cast<std::uint16_t>(rest / 10'000 % 1000);
    return true;
}

SystemTime systemTime()
{
    SystemTime time;
    fileTimeToSystemTime(sim::virtualUtcNow(), time);
    return time;
}

SystemTime localTime()
{
    SystemTime time;
    fileTimeToSystemTime(sim::utcToLocal(sim::loadTimeZone(sim::root()), sim::virtualUtcNow()), time);
    return time;
}

namespace {

bool setVirtualUtc(FileTime utc)
{
    const std::string path = sim::fileInRoot(sim::root(), sim::kOffsetFile);
    // Without a sim root there is no instrument clock, and the host's is not Halvern's to set.
    if (path.empty() || !sim::makeDirectories(sim::root() + "/clock")) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    const std::int64_t offset = static_cast<std::int64_t>(utc) - static_cast<std::int64_t>(sim::hostUtcNow());
    if (!sim::writeFileAtomically(path, std::to_string(offset) + "\n")) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    return true;
}

std::atomic<unsigned> g_clockSetsRefusedForPrivilege{0};

// Windows holds SeSystemtimePrivilege disabled until the caller enables it; the instrument's clock asks
// for it as the real one does, so a caller that forgets it fails here as it would there.
bool systemtimePrivilegeHeld()
{
    if (privilegeEnabled(kSeSystemtimePrivilege)) return true;
    ++g_clockSetsRefusedForPrivilege;
    setLastError(kErrorPrivilegeNotHeld);
    return false;
}

}  // namespace

namespace sim {
unsigned clockSetsRefusedForPrivilege()
{
    return g_clockSetsRefusedForPrivilege.load();
}
}  // namespace sim

bool setSystemTime(const SystemTime& time)
{
    if (!systemtimePrivilegeHeld()) return false;
    FileTime utc = 0;
    return systemTimeToFileTime(time, utc) && setVirtualUtc(utc);
}

bool setLocalTime(const SystemTime& time)
{
    if (!systemtimePrivilegeHeld()) return false;
    FileTime local = 0;
    return systemTimeToFileTime(time, local) && setVirtualUtc(sim::localToUtc(sim::loadTimeZone(sim::root()), local));
}

std::uint32_t getDynamicTimeZoneInformation(DynamicTimeZoneInformation& info)
{
    info = sim::loadTimeZone(sim::root());
    if (info.dynamicDaylightTimeDisabled || info.daylightDate.month == 0) return kTimeZoneIdUnknown;
    return sim::isDaylightTime(info, sim::virtualUtcNow()) ? kTimeZoneIdDaylight : kTimeZoneIdStandard;
}

bool setDynamicTimeZoneInformation(const DynamicTimeZoneInformation& info)
{
    if (!privilegeEnabled(kSeTimeZonePrivilege)) {
        setLastError(kErrorPrivilegeNotHeld);
        return false;
    }
    if (!sim::storeTimeZone(sim::root(), info)) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    return true;
}

}  // namespace platform
