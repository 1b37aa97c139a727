#pragma once
// The instrument's time zones as its registry lists them (key name, display name and the zone's rule), and
// the arithmetic that keeps the instant when the zone changes.
#include <cstdint>
#include <string>
#include <vector>

#include "client/DateTimeText.h"

namespace SEP {

struct TimeZoneT {
    std::string name;       // "W. Europe Standard Time", what the instrument takes and reports
    std::string display;    // "(UTC+01:00) Amsterdam, Berlin, Bern, Rome, Stockholm, Vienna"
    std::int32_t bias = 0;  // minutes: UTC = local time + bias (+ daylight bias in summer)
    std::int32_t daylightBias = 0;
    // When standard and daylight time begin: month, day of week, week of the month (5: the last), hour,
    // minute; month 0 for a zone without daylight saving.
    int standardMonth = 0, standardDayOfWeek = 0, standardWeek = 0, standardHour = 0, standardMinute = 0;
    int daylightMonth = 0, daylightDayOfWeek = 0, daylightWeek = 0, daylightHour = 0, daylightMinute = 0;
};

const std::vector<TimeZoneT>& timeZones();
// By its name, ignoring case; nullptr when the instrument has no such zone.
const TimeZoneT* findTimeZone(const std::string& name);
// Zones whose name or display name holds `filter` (any case); all for an empty filter.
std::vector<const TimeZoneT*> matchingTimeZones(const std::string& filter);

// The local time in `to` at the instant that is `local` in `from`; `daylight` false when daylight saving
// is switched off on the instrument.
DateTimeT convertLocalTime(const DateTimeT& local, const TimeZoneT& from, const TimeZoneT& to, bool daylight);

}  // namespace SEP
