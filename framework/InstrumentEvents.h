#pragma once
// What the instrument's lower layers tell its clients when something happens: a channel selection ended,
// the radar moved the access point, Windows is about to be shut down. The SEP server implements it and
// installs itself when it starts; before that, and in a program without one, the events go nowhere.
#include <cstdint>

namespace halvern {

class InstrumentEventsI {
public:
    virtual ~InstrumentEventsI() = default;
    // `width` is the selection's channel width code; `channel` 0 when nothing was selected.
    virtual void wlanChannelSelected(bool selected, std::uint32_t channel, std::int32_t width) = 0;
    // The WLAN driver's DFS event code.
    virtual void wlanRadarEvent(std::int32_t eventCode) = 0;
    virtual void shutdownAnnounced(std::uint32_t timeoutMs) = 0;
};

// Installs `events`, which must live for as long as the process; nullptr removes it.
void setInstrumentEvents(InstrumentEventsI* events);
// The installed events, or one that drops them when none is installed.
InstrumentEventsI& instrumentEvents();

}  // namespace halvern
