#include "client/TimeZones.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <sstream>

#include "client/TimeZoneData.h"
#include "platform/Calendar.h"

namespace SEP {
namespace {

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A little-endian number of `bytes` bytes at byte `at` of a hex text.
std::int64_t hexNumber(const std::string& hex, std::size_t at, std::size_t bytes, bool isSigned)
{
    std::uint64_t value = 0;
    for (std::size_t i = bytes; i-- > 0;)
        value = value << 8 | std::strtoul(hex.substr(2 * (at + i), 2).c_str(), nullptr, 16);
    if (isSigned && (value >> (8 * bytes - 1)) != 0)
        return static_cast<std::int64_t>(value) - (std::int64_t{1} << (8 * bytes));
    return static_cast<std::int64_t>(value);
}

// REG_TZI_FORMAT: Bias, StandardBias, DaylightBias, then the SYSTEMTIMEs StandardDate and DaylightDate.
bool parseRule(const std::string& hex, TimeZoneT& zone)
{
    if (hex.size() != 88) return false;
    zone.bias = static_cast<std::int32_t>(hexNumber(hex, 0, 4, true));
    zone.daylightBias = static_cast<std::int32_t>(hexNumber(hex, 8, 4, true));
    const auto date = [&](std::size_t at, int& month, int& dayOfWeek, int& week, int& hour, int& minute) {
        month = static_cast<int>(hexNumber(hex, at + 2, 2, false));
        dayOfWeek = static_cast<int>(hexNumber(hex, at + 4, 2, false));
        week = static_cast<int>(hexNumber(hex, at + 6, 2, false));
        hour = static_cast<int>(hexNumber(hex, at + 8, 2, false));
        minute = static_cast<int>(hexNumber(hex, at + 10, 2, false));
    };
    date(12, zone.standardMonth, zone.standardDayOfWeek, zone.standardWeek, zone.standardHour, zone.standardMinute);
    date(28, zone.daylightMonth, zone.daylightDayOfWeek, zone.daylightWeek, zone.daylightHour, zone.daylightMinute);
    return true;
}

DateTimeT civilFromMinutes(std::int64_t minutes)
{
    std::int64_t days = minutes / 1440;
    std::int64_t rest = minutes % 1440;
    if (rest < 0) {
        rest += 1440;
        --days;
    }
    std::int64_t year = 0;
    unsigned month = 0, day = 0;
    platform::civilFromDays(days, year, month, day);
    return {static_cast<int>(year),      static_cast<int>(month),     static_cast<int>(day),
            static_cast<int>(rest / 60), static_cast<int>(rest % 60), 0};
}

std::int64_t minutesOf(const DateTimeT& t)
{
    return platform::daysFromCivil(t.year, static_cast<unsigned>(t.month), static_cast<unsigned>(t.day)) * 1440 +
           t.hour * 60 + t.minute;
}

// The local minute at which a rule's change happens in `year`: the week-th given weekday of the month (5:
// the last one), at its hour.
std::int64_t changeAt(int year, int month, int dayOfWeek, int week, int hour, int minute)
{
    const std::int64_t first = platform::daysFromCivil(year, static_cast<unsigned>(month), 1);
    const int firstWeekday = static_cast<int>(platform::weekdayFromDays(first));
    std::int64_t day = first + (dayOfWeek - firstWeekday + 7) % 7 + 7 * (week - 1);
    const unsigned nextMonth = month == 12 ? 1 : static_cast<unsigned>(month + 1);
    const std::int64_t end = platform::daysFromCivil(month == 12 ? year + 1 : year, nextMonth, 1);
    while (day >= end)
        day -= 7;
    return day * 1440 + hour * 60 + minute;
}

bool inDaylightTime(const TimeZoneT& zone, std::int64_t localMinutes, int year)
{
    if (zone.standardMonth == 0 || zone.daylightMonth == 0) return false;
    const std::int64_t begins = changeAt(year, zone.daylightMonth, zone.daylightDayOfWeek, zone.daylightWeek,
                                         zone.daylightHour, zone.daylightMinute);
    const std::int64_t ends = changeAt(year, zone.standardMonth, zone.standardDayOfWeek, zone.standardWeek,
                                       zone.standardHour, zone.standardMinute);
    // Southern zones have their summer across the turn of the year.
    return begins < ends ? localMinutes >= begins && localMinutes < ends
                         : localMinutes >= begins || localMinutes < ends;
}

}  // namespace

const std::vector<TimeZoneT>& timeZones()
{
    static const std::vector<TimeZoneT> zones = [] {
        std::vector<TimeZoneT> list;
        std::istringstream lines(timeZoneTable());
        for (std::string line; std::getline(lines, line);) {
            if (line.empty() || line[0] == '#') continue;
            std::vector<std::string> columns;
            std::istringstream cells(line);
            for (std::string cell; std::getline(cells, cell, '\t');)
                columns.push_back(cell);
            TimeZoneT zone;
            if (columns.size() < 5 || !parseRule(columns[4], zone)) continue;
            zone.name = columns[0];
            zone.display = columns[1];
            list.push_back(zone);
        }
        return list;
    }();
    return zones;
}

const TimeZoneT* findTimeZone(const std::string& name)
{
    for (const auto& zone : timeZones())
        if (lower(zone.name) == lower(name)) return &zone;
    return nullptr;
}

std::vector<const TimeZoneT*> matchingTimeZones(const std::string& filter)
{
    std::vector<const TimeZoneT*> found;
    const std::string wanted = lower(filter);
    for (const auto& zone : timeZones())
        if (lower(zone.name).find(wanted) != std::string::npos || lower(zone.display).find(wanted) != std::string::npos)
            found.push_back(&zone);
    return found;
}

DateTimeT convertLocalTime(const DateTimeT& local, const TimeZoneT& from, const TimeZoneT& to, bool daylight)
{
    const std::int64_t localMinutes = minutesOf(local);
    std::int64_t utc = localMinutes + from.bias;
    if (daylight && inDaylightTime(from, localMinutes, local.year)) utc += from.daylightBias;
    std::int64_t target = utc - to.bias;
    const DateTimeT standard = civilFromMinutes(target);
    if (daylight && inDaylightTime(to, target, standard.year)) target -= to.daylightBias;
    DateTimeT converted = civilFromMinutes(target);
    converted.second = local.second;
    return converted;
}

}  // namespace SEP
