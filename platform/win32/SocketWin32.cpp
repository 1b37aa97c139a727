// Winsock 2.2 behind the socket facility.
#include <windows.h>
#include <winsock2.h>
#include <ws2tcpip.h>

#include <string>

#include "platform/Socket.h"
#include "platform/WinError.h"
#include "platform/win32/WineGuard.h"

namespace platform {
namespace {

// Started once for the process and left running: sockets may be closed by destructors until exit.
bool startWinsock()
{
    static const bool ready = [] {
        WSADATA data;
        return WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    return ready;
}

bool failWithWsaError()
{
    setLastError(static_cast<std::uint32_t>(WSAGetLastError()));
    return false;
}

SOCKET native(SocketValue socket)
{
    return static_cast<SOCKET>(socket);
}

sockaddr_in ipv4(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_addr.s_addr = htonl(address);
    endpoint.sin_port = htons(port);
    return endpoint;
}

bool fill(std::vector<SocketPollT>* entries, fd_set& set)
{
    FD_ZERO(&set);
    if (entries == nullptr) return true;
    if (entries->size() > kMaxSelectSockets || entries->size() > FD_SETSIZE) return false;
    for (auto& entry : *entries) {
        entry.ready = false;
        FD_SET(native(entry.socket), &set);
    }
    return true;
}

void collect(std::vector<SocketPollT>* entries, fd_set& set)
{
    if (entries == nullptr) return;
    for (auto& entry : *entries)
        entry.ready = FD_ISSET(native(entry.socket), &set) != 0;
}

}  // namespace

bool socketLibraryReady()
{
    return startWinsock();
}

bool closeSocket(SocketValue socket)
{
    return closesocket(native(socket)) == 0 || failWithWsaError();
}

UniqueSocket createTcpSocket()
{
    if (!startWinsock()) {
        setLastError(WSANOTINITIALISED);
        return UniqueSocket();
    }
    const SOCKET created = ::socket(AF_INET, SOCK_STREAM, IPPROTO_TCP);
    if (created == INVALID_SOCKET) {
        failWithWsaError();
        return UniqueSocket();
    }
    return UniqueSocket(static_cast<SocketValue>(created));
}

bool setNonBlocking(SocketValue socket, bool nonBlocking)
{
    u_long mode = nonBlocking ? 1 : 0;
    return ioctlsocket(native(socket), FIONBIO, &mode) == 0 || failWithWsaError();
}

bool setNoDelay(SocketValue socket)
{
    const BOOL on = TRUE;
    return setsockopt(native(socket), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on) == 0 ||
           failWithWsaError();
}

bool bindSocket(SocketValue socket, std::uint32_t address, std::uint16_t port)
{
    const sockaddr_in endpoint = ipv4(address, port);
    return bind(native(socket), reinterpret_cast<const sockaddr*>(&endpoint), sizeof endpoint) == 0 ||
           failWithWsaError();
}

bool listenSocket(SocketValue socket, int backlog)
{
    return listen(native(socket), backlog) == 0 || failWithWsaError();
}

std::uint16_t localPort(SocketValue socket)
{
    sockaddr_in endpoint{};
    int length = sizeof endpoint;
    if (getsockname(native(socket), reinterpret_cast<sockaddr*>(&endpoint), &length) != 0) {
        failWithWsaError();
        return 0;
    }
    return ntohs(endpoint.sin_port);
}

UniqueSocket acceptSocket(SocketValue listening, std::uint32_t& peerAddress)
{
    sockaddr_in peer{};
    int length = sizeof peer;
    const SOCKET accepted = accept(native(listening), reinterpret_cast<sockaddr*>(&peer), &length);
    if (accepted == INVALID_SOCKET) {
        failWithWsaError();
        return UniqueSocket();
    }
    peerAddress = ntohl(peer.sin_addr.s_addr);
    return UniqueSocket(static_cast<SocketValue>(accepted));
}

bool resolveTcpEndpoint(const std::string& host, const std::string& service, std::vector<SocketEndpointT>& endpoints,
                        int& error)
{
    endpoints.clear();
    if (!startWinsock()) {
        error = WSANOTINITIALISED;
        return false;
    }
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_protocol = IPPROTO_TCP;
    addrinfo* found = nullptr;
    error = ::getaddrinfo(host.c_str(), service.c_str(), &hints, &found);
    if (error != 0) return false;
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        if (entry->ai_family != AF_INET) continue;
        const auto* ipv4Address = reinterpret_cast<const sockaddr_in*>(entry->ai_addr);
        endpoints.push_back({ntohl(ipv4Address->sin_addr.s_addr), ntohs(ipv4Address->sin_port)});
    }
    ::freeaddrinfo(found);
    return true;
}

bool connectSocket(SocketValue socket, std::uint32_t address, std::uint16_t port)
{
    // Under Wine the connection would leave the machine running the tests: only loopback (127/8) is
    // reached there, whatever the settings name, and anything else is refused as a firewall would.
    if ((address >> 24) != 127 && win32::runningUnderWine()) {
        setLastError(static_cast<std::uint32_t>(WSAEACCES));
        return false;
    }
    const sockaddr_in endpoint = ipv4(address, port);
    return connect(native(socket), reinterpret_cast<const sockaddr*>(&endpoint), sizeof endpoint) == 0 ||
           failWithWsaError();
}

int sendSocket(SocketValue socket, const void* data, std::size_t length)
{
    const int sent = send(native(socket), static_cast<const char*>(data), static_cast<int>(length), 0);
    if (sent == SOCKET_ERROR) {
        failWithWsaError();
        return -1;
    }
    return sent;
}

int receiveSocket(SocketValue socket, void* data, std::size_t length)
{
    const int received = recv(native(socket), static_cast<char*>(data), static_cast<int>(length), 0);
    if (received == SOCKET_ERROR) {
        failWithWsaError();
        return -1;
    }
    return received;
}

bool shutdownSocket(SocketValue socket)
{
    return shutdown(native(socket), SD_BOTH) == 0 || failWithWsaError();
}

int selectSockets(std::vector<SocketPollT>* read, std::vector<SocketPollT>* write, std::vector<SocketPollT>* except,
                  std::uint32_t timeoutMs)
{
    fd_set readSet, writeSet, exceptSet;
    if (!fill(read, readSet) || !fill(write, writeSet) || !fill(except, exceptSet)) {
        setLastError(WSAEINVAL);
        return -1;
    }
    timeval timeout{static_cast<long>(timeoutMs / 1000), static_cast<long>((timeoutMs % 1000) * 1000)};
    const bool any = (read && !read->empty()) || (write && !write->empty()) || (except && !except->empty());
    // Winsock refuses a select without sockets; nothing can become ready.
    if (!any) return 0;
    const int ready = select(0, &readSet, &writeSet, &exceptSet, &timeout);
    if (ready == SOCKET_ERROR) {
        failWithWsaError();
        return -1;
    }
    collect(read, readSet);
    collect(write, writeSet);
    collect(except, exceptSet);
    return ready;
}

std::string socketErrorText(std::uint32_t error)
{
    return "WSA error " + std::to_string(error);
}

void announceServerPort(std::uint16_t, std::uint16_t)
{
    // The instrument's applications know the fixed ports.
}

std::uint32_t serverListenAddress()
{
    // A port moved through the environment belongs to a run on a shared machine (the simulated instrument
    // under Wine): it must not be reachable from the network that machine is on.
    return serverPortMoved() ? kLoopbackAddress : kAnyAddress;
}

}  // namespace platform
