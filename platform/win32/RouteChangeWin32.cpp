#include <winsock2.h>
#include <ws2tcpip.h>
// After the socket headers, which must come before windows.h.
#include <iphlpapi.h>

#include "platform/RouteChange.h"

namespace platform {

struct RouteChangeNotificationC::Impl {
    // A WSAEVENT is an event handle (WSA_INVALID_EVENT is null), and WSACloseEvent closes it as CloseHandle does.
    UniqueHandle event;
    OVERLAPPED overlapped{};
    bool pending = false;
};

RouteChangeNotificationC::RouteChangeNotificationC() : m_impl(std::make_unique<Impl>()) {}

RouteChangeNotificationC::~RouteChangeNotificationC()
{
    if (m_impl->pending) CancelIPChangeNotify(&m_impl->overlapped);
}

bool RouteChangeNotificationC::create()
{
    m_impl->event.reset(WSACreateEvent());
    return static_cast<bool>(m_impl->event);
}

std::uint32_t RouteChangeNotificationC::request()
{
    m_impl->overlapped = OVERLAPPED{};
    m_impl->overlapped.hEvent = m_impl->event.get();
    HANDLE notification = nullptr;
    const DWORD result = NotifyRouteChange(&notification, &m_impl->overlapped);
    m_impl->pending = result == ERROR_IO_PENDING;
    return result;
}

HandleValue RouteChangeNotificationC::event() const
{
    return m_impl->event.get();
}

bool RouteChangeNotificationC::resetEvent()
{
    return WSAResetEvent(m_impl->event.get()) != FALSE;
}

}  // namespace platform
