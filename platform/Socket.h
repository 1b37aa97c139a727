#pragma once
// IPv4 TCP sockets with Winsock semantics on both platforms: Windows error numbers (10035 would block,
// 10054 reset ...) through lastError(), addresses and ports in host byte order.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/Owner.h"
#include "platform/WinError.h"

namespace platform {

using SocketValue = std::uintptr_t;
constexpr SocketValue kInvalidSocket = ~static_cast<SocketValue>(0);

constexpr std::uint32_t kWsaEInterrupted = 10004;
constexpr std::uint32_t kWsaEInvalid = 10022;
constexpr std::uint32_t kWsaENotSocket = 10038;
constexpr std::uint32_t kWsaEAddressInUse = 10048;
constexpr std::uint32_t kWsaENetworkUnreachable = 10051;
constexpr std::uint32_t kWsaEConnectionAborted = 10053;
constexpr std::uint32_t kWsaEConnectionReset = 10054;
constexpr std::uint32_t kWsaENotConnected = 10057;
constexpr std::uint32_t kWsaETimedOut = 10060;
constexpr std::uint32_t kWsaEConnectionRefused = 10061;

constexpr std::uint32_t kLoopbackAddress = 0x7F000001;  // 127.0.0.1
constexpr std::uint32_t kAnyAddress = 0;

// WSAStartup(2.2) for the process; answers false when the socket library cannot be used. Every socket
// call below also makes sure of it, so callers only need this to report the failure early.
bool socketLibraryReady();

// closesocket semantics.
bool closeSocket(SocketValue socket);

struct SocketTraits {
    using Value = SocketValue;
    static Value invalid() noexcept { return kInvalidSocket; }
    static void close(Value socket) noexcept { closeSocket(socket); }
};
using UniqueSocket = UniqueOwner<SocketTraits>;

// The socket as log lines show it.
inline int logValue(const UniqueSocket& socket)
{
    return static_cast<int>(socket.get());
}

UniqueSocket createTcpSocket();
bool setNonBlocking(SocketValue socket, bool nonBlocking);
bool setNoDelay(SocketValue socket);
bool bindSocket(SocketValue socket, std::uint32_t address, std::uint16_t port);
bool listenSocket(SocketValue socket, int backlog);
// The port the socket is bound to, 0 on failure.
std::uint16_t localPort(SocketValue socket);
// An invalid socket with the last error set when nothing is pending or the accept failed.
UniqueSocket acceptSocket(SocketValue listening, std::uint32_t& peerAddress);
// getaddrinfo for a TCP stream endpoint: its IPv4 addresses in the resolver's order. On failure `error`
// holds the resolver's error number and the list is empty.
struct SocketEndpointT {
    std::uint32_t address;
    std::uint16_t port;
};
bool resolveTcpEndpoint(const std::string& host, const std::string& service, std::vector<SocketEndpointT>& endpoints,
                        int& error);
// Connect; loopback or the address a caller was configured with, never a guessed one. On a non-blocking
// socket a connection under way fails with 10035.
bool connectSocket(SocketValue socket, std::uint32_t address, std::uint16_t port);
// Bytes sent or received, or -1 with the last error set; recv answers 0 when the peer has shut down.
int sendSocket(SocketValue socket, const void* data, std::size_t length);
int receiveSocket(SocketValue socket, void* data, std::size_t length);
bool shutdownSocket(SocketValue socket);

// select() over at most 64 sockets per set. Each entry's flag tells whether that socket is ready on
// return. Answers the number of ready sockets, 0 on time-out, -1 with the last error set.
struct SocketPollT {
    SocketValue socket;
    bool ready;
};
constexpr std::size_t kMaxSelectSockets = 64;
int selectSockets(std::vector<SocketPollT>* read, std::vector<SocketPollT>* write, std::vector<SocketPollT>* except,
                  std::uint32_t timeoutMs);

// The text of a socket error number, as the log shows it.
std::string socketErrorText(std::uint32_t error);

// Dotted-quad text to a host-order address; false for anything else.
bool parseIpv4(const std::string& text, std::uint32_t& address);
std::string formatIpv4(std::uint32_t address);

// The TCP port a server of this process listens on in place of `defaultPort`: `defaultPort` unless
// HALVERN_SEP_PORT_<defaultPort> moves it (0: any free port), so that several simulated instruments and
// test runs, of either build, share one machine. The instrument itself never sets it.
std::uint16_t serverPort(std::uint16_t defaultPort);
// True when the environment moves either SEP port.
bool serverPortMoved();
// Tells the instrument's other programs where the server for `defaultPort` listens. On the instrument
// they know the fixed port; the simulation platform records the port in the sim root
// ($HALVERN_ROOT/sim/sep/<default port>), where the stand-in applications look.
void announceServerPort(std::uint16_t defaultPort, std::uint16_t port);
// The local address servers listen on: every interface on the instrument, loopback on the simulation
// platform and for a Windows build whose ports the environment moved.
std::uint32_t serverListenAddress();

}  // namespace platform
