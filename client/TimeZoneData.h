#pragma once
// The instrument's registry "Time Zones" (sim/data/TimeZones.txt, one zone a line), compiled in.
namespace SEP {

const char* timeZoneTable();

}  // namespace SEP
