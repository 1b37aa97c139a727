#pragma once
// Notification of a change of the IPv4 route table (NotifyRouteChange on a socket event). On the
// simulation platform the route table is $HALVERN_ROOT/sim/network/routes; a change of that file signals
// the event of a pending request.
#include <cstdint>
#include <memory>

#include "platform/Handle.h"

namespace platform {

class RouteChangeNotificationC {
public:
    RouteChangeNotificationC();
    ~RouteChangeNotificationC();
    RouteChangeNotificationC(const RouteChangeNotificationC&) = delete;
    RouteChangeNotificationC& operator=(const RouteChangeNotificationC&) = delete;

    // WSACreateEvent; false with the last error set.
    bool create();
    // NotifyRouteChange for the next change: kErrorIoPending while the request waits for it.
    std::uint32_t request();
    // Signalled when the requested change has happened.
    HandleValue event() const;
    // WSAResetEvent.
    bool resetEvent();

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace platform
