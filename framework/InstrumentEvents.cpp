#include "framework/InstrumentEvents.h"

#include <atomic>

namespace halvern {
namespace {

class DroppedEventsC final : public InstrumentEventsI {
public:
    void wlanChannelSelected(bool, std::uint32_t, std::int32_t) override {}
    void wlanRadarEvent(std::int32_t) override {}
    void shutdownAnnounced(std::uint32_t) override {}
};

DroppedEventsC g_dropped;
std::atomic<InstrumentEventsI*> g_installed{nullptr};

}  // namespace

void setInstrumentEvents(InstrumentEventsI* events)
{
    g_installed = events;
}

InstrumentEventsI& instrumentEvents()
{
    InstrumentEventsI* installed = g_installed.load();
    return installed != nullptr ? *installed : g_dropped;
}

}  // namespace halvern
