#include "links/TelnetConnection.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <vector>

#include "app/Log.h"
#include "framework/CancelTokenC.h"
#include "platform/Clock.h"
#include "platform/Export.h"
#include "platform/WinError.h"

namespace halvern::links {
namespace {

constexpr unsigned char kInitialSequence[] = {0xFF, 0xFB, 0x01};  // IAC WILL ECHO
constexpr const char* kLineEnd = "\r\n";
constexpr std::size_t kReceiveChunk = 1024;
constexpr int kNegotiationWaitMs = 5000;

std::mutex g_endpointLock;
TelnetEndpointT g_endpoint;

void netLog(const char* format, ...) HALVERN_PRINTF_FORMAT(1, 2);
void netLog(const char* format, ...)
{
    const NetworkHelperLoggerFn logger = g_networkHelperLogger;
    if (logger == nullptr) return;
    va_list args;
    va_start(args, format);
    va_list measure;
    va_copy(measure, args);
    const int length = std::vsnprintf(nullptr, 0, format, measure);
    va_end(measure);
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    if (length > 0) std::vsnprintf(text.data(), text.size() + 1, format, args);
    va_end(args);
    logger(g_networkHelperLoggerContext, "%s", text.c_str());
}

long lastSocketError()
{
    return static_cast<long>(platform::lastError());
}

// Readiness waits follow the installed clock, so a test's virtual clock ends them at once.
std::uint32_t realWaitMs(int waitMs)
{
    if (waitMs <= 0) return 0;
    return static_cast<std::uint32_t>(platform::clock().idleWait(static_cast<std::uint64_t>(waitMs)).count());
}

// select() that gives up early, as a time-out, when the calling thread's work is cancelled: checked
// every 100 ms while such work waits, never when nobody can cancel it.
int selectCancellable(std::vector<platform::SocketPollT>* read, std::vector<platform::SocketPollT>* write,
                      std::uint32_t waitMs)
{
    BSS::announceWait();
    const BSS::CancelTokenC* cancel = BSS::CancelTokenC::current();
    if (cancel == nullptr) return platform::selectSockets(read, write, nullptr, waitMs);
    constexpr std::uint32_t kSliceMs = 100;
    for (std::uint32_t waited = 0;; waited += kSliceMs) {
        if (cancel->cancelled()) return 0;
        const std::uint32_t slice = std::min(kSliceMs, waitMs - std::min(waited, waitMs));
        const int ready = platform::selectSockets(read, write, nullptr, slice);
        if (ready != 0 || waited + slice >= waitMs) return ready;
    }
}

}  // namespace

TelnetEndpointT telnetEndpoint()
{
    std::lock_guard<std::mutex> guard(g_endpointLock);
    return g_endpoint;
}

void setTelnetEndpoint(const TelnetEndpointT& endpoint)
{
    std::lock_guard<std::mutex> guard(g_endpointLock);
    g_endpoint = endpoint;
}

bool TelnetConnection::connect(int waitMs)
{
    // The socket library is started once and stays up for the life of the process.
    static bool s_socketLibraryStarted = false;
    if (!s_socketLibraryStarted) {
        if (!platform::socketLibraryReady()) {
            netLog("WSAStartup failed with error: %d", static_cast<int>(platform::lastError()));
            return false;
        }
        s_socketLibraryStarted = true;
    }

    const TelnetEndpointT endpoint = telnetEndpoint();
    std::vector<platform::SocketEndpointT> addresses;
    int resolveError = 0;
    if (!platform::resolveTcpEndpoint(endpoint.host, endpoint.port, addresses, resolveError)) {
        netLog("getaddrinfo failed with error: %d", resolveError);
        return false;
    }
    for (const auto& address : addresses) {
        m_socket = platform::createTcpSocket();
        if (!m_socket) {
            netLog("socket failed with error: %ld", lastSocketError());
            return false;
        }
        if (!platform::setNonBlocking(m_socket.get(), true)) {
            netLog("Socket IOCTL failed with error: %d (attempt to set to non-blocking)",
                   static_cast<int>(platform::lastError()));
            m_socket.reset();
            return false;
        }
        if (platform::connectSocket(m_socket.get(), address.address, address.port) ||
            platform::lastError() == platform::kWsaEWouldBlock)
            break;
        m_socket.reset();
    }
    if (!m_socket) {
        netLog("Unable to connect to %s:%s!", endpoint.host.c_str(), endpoint.port.c_str());
        return false;
    }

    std::vector<platform::SocketPollT> writable{{m_socket.get(), false}};
    const int ready = selectCancellable(nullptr, &writable, realWaitMs(waitMs));
    if (ready == 0) {
        m_socket.reset();
        return false;
    }
    if (ready < 0) {
        netLog("Failed to select socket: %d, %ld", ready, lastSocketError());
        m_socket.reset();
        return false;
    }
    if (!platform::setNonBlocking(m_socket.get(), false)) {
        netLog("Socket IOCTL failed with error: %d (attempt to set to blocking)",
               static_cast<int>(platform::lastError()));
        m_socket.reset();
        return false;
    }
    const std::string initial(reinterpret_cast<const char*>(kInitialSequence), sizeof kInitialSequence);
    if (!send(initial)) {
        netLog("Failed to send initial telnet sequence to %s:%s: %d", endpoint.host.c_str(), endpoint.port.c_str(),
               static_cast<int>(platform::lastError()));
        close();
        return false;
    }
    // Neither the server's negotiation nor its prompt is looked at: that something arrived is enough.
    std::string scratch;
    if (!receive(scratch, kNegotiationWaitMs)) {
        netLog("Failed to receive initial sequence from %s:%s: %d", endpoint.host.c_str(), endpoint.port.c_str(),
               static_cast<int>(platform::lastError()));
        close();
        return false;
    }
    if (!receive(scratch, kNegotiationWaitMs)) {
        netLog("Failed to receive prompt from %s:%s: %d", endpoint.host.c_str(), endpoint.port.c_str(),
               static_cast<int>(platform::lastError()));
        close();
        return false;
    }
    m_host = endpoint.host;
    m_port = endpoint.port;
    return true;
}

bool TelnetConnection::send(const std::string& text)
{
    if (!m_socket) {
        netLog("Tried to send data to %s:%s, but socket is not initialized!", m_host.c_str(), m_port.c_str());
        return false;
    }
    std::size_t length = text.size();
    if (length > 0xFFFFFFFFull) {
        // A warning only: the text still goes out, cut to what one send call can take.
        netLog("Tried to send data to %s:%s, but it's too large: %lld!", m_host.c_str(), m_port.c_str(),
               static_cast<long long>(length));
        length = static_cast<std::uint32_t>(length);
    }
    if (platform::sendSocket(m_socket.get(), text.data(), length) < 0) {
        netLog("Failed to send telnet command to %s:%s: %s!", m_host.c_str(), m_port.c_str(), text.c_str());
        return false;
    }
    return true;
}

bool TelnetConnection::receive(std::string& buffer, int waitMs)
{
    if (!m_socket) {
        netLog("Tried to receive data, but telnet socket %s:%s is not initialized!", m_host.c_str(), m_port.c_str());
        return false;
    }
    char chunk[kReceiveChunk];
    for (;;) {
        std::vector<platform::SocketPollT> readable{{m_socket.get(), false}};
        const int ready = selectCancellable(&readable, nullptr, realWaitMs(waitMs));
        if (ready == 0) {
            netLog("Timeout occured while waiting for telnet reply from %s:%s", m_host.c_str(), m_port.c_str());
            return false;
        }
        if (ready < 0) {
            netLog("Error occured while waiting for reply from %s:%s: %d", m_host.c_str(), m_port.c_str(),
                   static_cast<int>(platform::lastError()));
            return false;
        }
        const int received = platform::receiveSocket(m_socket.get(), chunk, sizeof chunk);
        if (received <= 0) {
            netLog("Failed to receive from telnet socket %s:%s: %d!", m_host.c_str(), m_port.c_str(), received);
            return false;
        }
        buffer.append(chunk, static_cast<std::size_t>(received));
        // A whole chunk may have more behind it.
        if (static_cast<std::size_t>(received) < sizeof chunk) return true;
    }
}

bool TelnetConnection::readStatus(const std::string& reply, int& status)
{
    // The line feed in front keeps the echoed "echo RESULT: $?" line from matching.
    const std::size_t marker = reply.find(std::string("\n") + kTelnetStatusMarker);
    if (marker == std::string::npos) return false;
    const std::size_t valueStart = marker + 8;
    const std::size_t valueEnd = reply.find('\n', valueStart);
    if (valueEnd == std::string::npos) return false;
    const std::string value = reply.substr(valueStart, valueEnd - valueStart);
    if (value.empty()) {
        netLog("Failed to get status code in response from %s:%s: %s!", m_host.c_str(), m_port.c_str(), reply.c_str());
        return false;
    }
    errno = 0;
    char* end = nullptr;
    const long parsed = std::strtol(value.c_str(), &end, 10);
    if (end == value.c_str() || errno == ERANGE || parsed < INT_MIN || parsed > INT_MAX) {
        netLog("Failed to parse status code in response from %s:%s: %s!", m_host.c_str(), m_port.c_str(),
               reply.c_str());
        return false;
    }
    status = static_cast<int>(parsed);
    return true;
}

bool TelnetConnection::execute(const std::string& command, std::string& reply, int& status, int timeoutMs)
{
    const std::string line = command + kLineEnd + "echo " + kTelnetStatusMarker + "$?" + kLineEnd;
    reply.clear();
    if (!send(line)) return false;
    status = -1;
    const std::uint64_t start = platform::tickCount64();
    std::string accumulated;
    m_dropped = 0;
    readStatus(accumulated, status);
    for (;;) {
        const bool received = receive(accumulated, timeoutMs);
        if (accumulated.size() > kTelnetReplyKeep) {
            const std::size_t excess = accumulated.size() - kTelnetReplyKeep;
            accumulated.erase(0, excess);
            m_dropped += excess;
        }
        if (!received) {
            reply = accumulated;
            return false;
        }
        const std::uint64_t elapsed = platform::tickCount64() - start;
        if (static_cast<long long>(elapsed) > timeoutMs) return false;
        if (readStatus(accumulated, status)) {
            reply = accumulated;
            return true;
        }
    }
}

void TelnetConnection::close()
{
    if (!m_socket) return;
    if (!platform::shutdownSocket(m_socket.get()))
        netLog("Failed to shutdown the telnet socket %s:%s: %d", m_host.c_str(), m_port.c_str(),
               static_cast<int>(platform::lastError()));
    if (!platform::closeSocket(m_socket.release()))
        netLog("Failed to close the telnet socket %s:%s: %d", m_host.c_str(), m_port.c_str(),
               static_cast<int>(platform::lastError()));
}

bool runTelnetCommand(const std::string& command, int& status, std::string& reply, int timeoutMs, std::size_t* dropped)
{
    if (timeoutMs < 0) timeoutMs = kTelnetDefaultTimeoutMs;
    TelnetConnection connection;
    if (!connection.connect(timeoutMs)) return false;
    const bool executed = connection.execute(command, reply, status, timeoutMs);
    if (dropped != nullptr) *dropped = connection.droppedBytes();
    if (!executed) {
        netLog("Failed to execute telnet command %s", command.c_str());
        return false;
    }
    if (status != 0) {
        netLog("Telnet command <%s> failed: %d, reply: %s", command.c_str(), status, reply.c_str());
        return false;
    }
    return true;
}

}  // namespace halvern::links
