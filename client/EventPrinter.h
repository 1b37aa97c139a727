#pragma once
// The instrument's events by name, with their records decoded: what `halvernctl events` prints when no
// fields are named on its command line.
#include <string>

#include "client/ReportC.h"
#include "client/SepClientC.h"

namespace SEP {

// The event's name ("button") or empty for an id that is not an event of the instrument.
std::string eventName(std::uint16_t id);
// The event as text or JSON; false when the event is unknown or its record does not decode (the caller
// then prints it field by field).
// The 11 power-source flags of the controller, as the command and the event both carry them: the register
// value they make and each flag by its bit, since their meaning is the controller's.
void reportPowerSource(ReportC& report, const bool (&flags)[11]);

bool printKnownEvent(DecodedFrameT& event, bool json, std::string& printed);

}  // namespace SEP
