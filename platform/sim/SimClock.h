#pragma once
// The simulated instrument's system clock and time zone. The clock is the host's UTC clock plus the offset
// kept in "clock/SystemTimeOffset" of the sim root (100-ns units, absent: 0); the zone is the record in
// "clock/TimeZone" (absent: UTC), mirrored into the registry key
// "SYSTEM\CurrentControlSet\Control\TimeZoneInformation" as Windows keeps it there. Setting either never
// touches the host.
#include <cstdint>
#include <string>

#include "platform/Time.h"

namespace platform::sim {

// The host's UTC clock as a FILETIME.
FileTime hostUtcNow();
// The zone of a fresh instrument: UTC without daylight saving.
DynamicTimeZoneInformation utcTimeZone();
// Writes the zone record and its registry mirror below `root` (a sim root that need not be the current one).
bool storeTimeZone(const std::string& root, const DynamicTimeZoneInformation& zone);
DynamicTimeZoneInformation loadTimeZone(const std::string& root);
// UTC to local time and back in `zone`, with its daylight-saving rule.
FileTime utcToLocal(const DynamicTimeZoneInformation& zone, FileTime utc);
FileTime localToUtc(const DynamicTimeZoneInformation& zone, FileTime local);
bool isDaylightTime(const DynamicTimeZoneInformation& zone, FileTime utc);

// The clock sets refused so far because the caller had not enabled SeSystemtimePrivilege: a caller that
// forgets it shows here even where it does not report its failure.
unsigned clockSetsRefusedForPrivilege();

}  // namespace platform::sim
