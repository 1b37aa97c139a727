#pragma once
// The "Time Zones" tree of a fresh instrument's registry: the text of sim/data/TimeZones.txt, compiled in.
namespace halvern::sim {

const char* timeZoneData();

}  // namespace halvern::sim
