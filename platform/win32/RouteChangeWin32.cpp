#include <winsock2.h>
#include <ws2tcpip.h>
// After the socket headers, which must come before windows.h.
#include <iphlpapi.h>

#include "platform/RouteChange.h"

namespace platform {

struct RouteChangeNotificationC::Impl {
    WSAEVENT event = WSA_INVALID_EVENT;
    OVERLAPPED overlapped{};
    bool pending = false;
};

RouteChangeNotificationC::RouteChangeNotificationC() : m_impl(std::make_unique<Impl>()) {}

RouteChangeNotificationC::~RouteChangeNotificationC()
{
    if (m_impl->pending) CancelIPChangeNotify(&m_impl->overlapped);
    if (m_impl->event != WSA_INVALID_EVENT) WSACloseEvent(m_impl->event);
}

bool RouteChangeNotificationC::create()
{
    m_impl->event = WSACreateEvent();
    return m_impl->event != WSA_INVALID_EVENT;
}

std::uint32_t RouteChangeNotificationC::request()
{
    m_impl->overlapped = OVERLAPPED{};
    m_impl->overlapped.hEvent = m_impl->event;
    HANDLE notification = nullptr;
    const DWORD result = NotifyRouteChange(&notification, &m_impl->overlapped);
    m_impl->pending = result == ERROR_IO_PENDING;
    return result;
}

HandleValue RouteChangeNotificationC::event() const
{
    return m_impl->event;
}

bool RouteChangeNotificationC::resetEvent()
{
    return WSAResetEvent(m_impl->event) != FALSE;
}

}  // namespace platform
