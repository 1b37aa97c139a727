#pragma once
// The WMI event sink of the WLAN driver's NDIS indications: subscribes to media connect, media disconnect
// and the driver's specific indications on "ROOT\WMI" and posts each into the driver-event state. It runs
// on WMI's threads, so it copies and posts, nothing more.
#include "net/WlanDriverEvents.h"
#include "platform/WlanDriver.h"

namespace halvern::net {

class CNdisSink {
public:
    explicit CNdisSink(WlanDriverEventStateC& state);
    ~CNdisSink();
    CNdisSink(const CNdisSink&) = delete;
    CNdisSink& operator=(const CNdisSink&) = delete;

    // False, with the failed step logged, when the subscription cannot be made.
    bool start();
    // No event is posted after stop() returned.
    void stop();

    // What one delivered object means for the state.
    void onEvent(const platform::NdisEventT& event);

private:
    WlanDriverEventStateC& m_state;
    platform::NdisEventSourceC m_source;
};

}  // namespace halvern::net
