// BSD sockets behind the Winsock-shaped facility. errno values become the Windows error numbers that the
// logic and its log lines expect.
#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <mutex>
#include <set>
#include <string>
#include <thread>

#include "platform/Socket.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"

namespace platform {
namespace {

std::uint32_t windowsErrorOf(int error)
{
    switch (error) {
        case EWOULDBLOCK:
        case EINPROGRESS:
            return kWsaEWouldBlock;
        case EINTR:
            return kWsaEInterrupted;
        case EBADF:
        case ENOTSOCK:
            return kWsaENotSocket;
        case EADDRINUSE:
            return kWsaEAddressInUse;
        case ECONNABORTED:
            return kWsaEConnectionAborted;
        case ECONNRESET:
        case EPIPE:
            return kWsaEConnectionReset;
        case ENOTCONN:
            return kWsaENotConnected;
        case ETIMEDOUT:
            return kWsaETimedOut;
        case ECONNREFUSED:
            return kWsaEConnectionRefused;
        default:
            return kWsaEInvalid;
    }
}

bool failWithErrno()
{
    setLastError(windowsErrorOf(errno));
    return false;
}

int fd(SocketValue socket)
{
    return static_cast<int>(socket);
}

sockaddr_in ipv4(std::uint32_t address, std::uint16_t port)
{
    sockaddr_in endpoint{};
    endpoint.sin_family = AF_INET;
    endpoint.sin_addr.s_addr = htonl(address);
    endpoint.sin_port = htons(port);
    return endpoint;
}

// Builds an fd_set from the entries; false when a socket cannot be put into one.
bool fill(std::vector<SocketPollT>* entries, fd_set& set, int& highest)
{
    FD_ZERO(&set);
    if (entries == nullptr) return true;
    if (entries->size() > kMaxSelectSockets) return false;
    for (auto& entry : *entries) {
        entry.ready = false;
        if (fd(entry.socket) < 0 || fd(entry.socket) >= FD_SETSIZE) return false;
        FD_SET(fd(entry.socket), &set);
        if (fd(entry.socket) > highest) highest = fd(entry.socket);
    }
    return true;
}

void collect(std::vector<SocketPollT>* entries, const fd_set& set)
{
    if (entries == nullptr) return;
    for (auto& entry : *entries)
        entry.ready = FD_ISSET(fd(entry.socket), &set);
}

// Sockets whose connection attempt is under way: Windows reports the failure of such an attempt in the
// exception set of select only.
std::mutex g_pendingLock;
std::set<int> g_pendingConnects;

void setPending(int descriptor, bool pending)
{
    std::lock_guard<std::mutex> guard(g_pendingLock);
    if (pending)
        g_pendingConnects.insert(descriptor);
    else
        g_pendingConnects.erase(descriptor);
}

bool isPending(int descriptor)
{
    std::lock_guard<std::mutex> guard(g_pendingLock);
    return g_pendingConnects.count(descriptor) != 0;
}

}  // namespace

bool socketLibraryReady()
{
    return true;
}

bool closeSocket(SocketValue socket)
{
    setPending(fd(socket), false);
    return ::close(fd(socket)) == 0 || failWithErrno();
}

UniqueSocket createTcpSocket()
{
    const int created = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, IPPROTO_TCP);
    if (created < 0) {
        failWithErrno();
        return UniqueSocket();
    }
    return UniqueSocket(static_cast<SocketValue>(created));
}

bool setNonBlocking(SocketValue socket, bool nonBlocking)
{
    const int flags = ::fcntl(fd(socket), F_GETFL);
    if (flags < 0) return failWithErrno();
    const int wanted = nonBlocking ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return ::fcntl(fd(socket), F_SETFL, wanted) == 0 || failWithErrno();
}

bool setNoDelay(SocketValue socket)
{
    const int on = 1;
    return ::setsockopt(fd(socket), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on) == 0 || failWithErrno();
}

bool bindSocket(SocketValue socket, std::uint32_t address, std::uint16_t port)
{
    // A server restarted on its port must not wait for the old connections' TIME_WAIT, as on Windows.
    const int on = 1;
    ::setsockopt(fd(socket), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    const sockaddr_in endpoint = ipv4(address, port);
    return ::bind(fd(socket), reinterpret_cast<const sockaddr*>(&endpoint), sizeof endpoint) == 0 || failWithErrno();
}

bool listenSocket(SocketValue socket, int backlog)
{
    return ::listen(fd(socket), backlog) == 0 || failWithErrno();
}

std::uint16_t localPort(SocketValue socket)
{
    sockaddr_in endpoint{};
    socklen_t length = sizeof endpoint;
    if (::getsockname(fd(socket), reinterpret_cast<sockaddr*>(&endpoint), &length) != 0) {
        failWithErrno();
        return 0;
    }
    return ntohs(endpoint.sin_port);
}

UniqueSocket acceptSocket(SocketValue listening, std::uint32_t& peerAddress)
{
    sockaddr_in peer{};
    socklen_t length = sizeof peer;
    const int accepted = ::accept4(fd(listening), reinterpret_cast<sockaddr*>(&peer), &length, SOCK_CLOEXEC);
    if (accepted < 0) {
        failWithErrno();
        return UniqueSocket();
    }
    peerAddress = ntohl(peer.sin_addr.s_addr);
    return UniqueSocket(static_cast<SocketValue>(accepted));
}

bool resolveTcpEndpoint(const std::string& host, const std::string& service, std::vector<SocketEndpointT>& endpoints,
                        int& error)
{
    endpoints.clear();
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
    // The simulated instrument lives on this machine's loopback: an address outside it (the real sensor
    // board's 192.168.2.1 left in a setting, say) is a network the simulation does not have.
    if ((address >> 24) != 127) {
        setLastError(kWsaENetworkUnreachable);
        return false;
    }
    const sockaddr_in endpoint = ipv4(address, port);
    if (::connect(fd(socket), reinterpret_cast<const sockaddr*>(&endpoint), sizeof endpoint) == 0) return true;
    if (errno == EINPROGRESS) setPending(fd(socket), true);
    return failWithErrno();
}

int sendSocket(SocketValue socket, const void* data, std::size_t length)
{
    const ssize_t sent = ::send(fd(socket), data, length, MSG_NOSIGNAL);
    if (sent < 0) {
        failWithErrno();
        return -1;
    }
    return static_cast<int>(sent);
}

int receiveSocket(SocketValue socket, void* data, std::size_t length)
{
    const ssize_t received = ::recv(fd(socket), data, length, 0);
    if (received < 0) {
        failWithErrno();
        return -1;
    }
    return static_cast<int>(received);
}

bool shutdownSocket(SocketValue socket)
{
    return ::shutdown(fd(socket), SHUT_RDWR) == 0 || failWithErrno();
}

int selectSockets(std::vector<SocketPollT>* read, std::vector<SocketPollT>* write, std::vector<SocketPollT>* except,
                  std::uint32_t timeoutMs)
{
    fd_set readSet, writeSet, exceptSet;
    int highest = -1;
    if (!fill(read, readSet, highest) || !fill(write, writeSet, highest) || !fill(except, exceptSet, highest)) {
        setLastError(kWsaEInvalid);
        return -1;
    }
    // Only a wait for writability can need it (below): a busy reader does not read the clock on every pass.
    const auto deadline = write != nullptr ? std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs)
                                           : std::chrono::steady_clock::time_point();
    timeval timeout{static_cast<time_t>(timeoutMs / 1000), static_cast<suseconds_t>((timeoutMs % 1000) * 1000)};
    int ready = ::select(highest + 1, &readSet, &writeSet, &exceptSet, &timeout);
    if (ready < 0) {
        failWithErrno();
        return -1;
    }
    // A connection attempt that failed is not writable on Windows: it shows in the exception set only,
    // so a caller that waits for writability alone waits out its time, as on the instrument.
    if (write != nullptr) {
        for (const auto& entry : *write) {
            const int descriptor = fd(entry.socket);
            if (!FD_ISSET(descriptor, &writeSet) || !isPending(descriptor)) continue;
            int error = 0;
            socklen_t length = sizeof error;
            const bool failed = ::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &length) == 0 && error != 0;
            if (!failed) {
                setPending(descriptor, false);
                continue;
            }
            FD_CLR(descriptor, &writeSet);
            --ready;
            if (except != nullptr) {
                for (const auto& watched : *except)
                    if (fd(watched.socket) == descriptor && !FD_ISSET(descriptor, &exceptSet)) {
                        FD_SET(descriptor, &exceptSet);
                        ++ready;
                    }
            }
        }
        if (ready == 0) std::this_thread::sleep_until(deadline);
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

void announceServerPort(std::uint16_t defaultPort, std::uint16_t port)
{
    const std::string folder = sim::root() + "/sim/sep";
    if (sim::root().empty() || !sim::makeDirectories(folder)) return;
    std::ofstream(folder + "/" + std::to_string(defaultPort), std::ios::trunc) << port << "\n";
}

std::uint32_t serverListenAddress()
{
    return kLoopbackAddress;
}

}  // namespace platform
