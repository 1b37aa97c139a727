// The driver's NDIS indications on the simulation platform: the simulated instrument serves them on a
// socket of the sim root (platform/sim/NdisWire.h), one reader thread per subscription hands them to the
// callback. COM has nothing to set up here, so only connecting and registering can fail.
#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/WlanDriver.h"
#include "platform/sim/NdisWire.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/UniqueFd.h"

namespace platform {

namespace {

constexpr std::uint32_t kErrorConnectionRefused = 1225;

using sim::UniqueFd;

std::uint32_t windowsErrorOf(int error)
{
    switch (error) {
        case ENOENT:
            return kErrorFileNotFound;
        case ENOTDIR:
            return kErrorPathNotFound;
        case EACCES:
        case EPERM:
            return kErrorAccessDenied;
        case ECONNREFUSED:
            return kErrorConnectionRefused;
        case EPIPE:
        case ECONNRESET:
            return kErrorBrokenPipe;
        case ENAMETOOLONG:
            return kErrorInvalidParameter;
        default:
            return kErrorInvalidData;
    }
}

NdisEventT eventOf(const std::uint8_t* bytes, std::size_t length)
{
    const auto* zero = static_cast<const std::uint8_t*>(std::memchr(bytes, 0, length));
    const std::string className(reinterpret_cast<const char*>(bytes), zero != nullptr ? zero - bytes : length);
    NdisEventT event;
    if (className == sim::kNdisClassMediaConnect) {
        event.kind = NdisEventKindE::MediaConnect;
    } else if (className == sim::kNdisClassMediaDisconnect) {
        event.kind = NdisEventKindE::MediaDisconnect;
    } else if (className == sim::kNdisClassSpecificIndication) {
        event.kind = NdisEventKindE::MediaSpecificIndication;
        event.hasIndication = zero != nullptr;
        if (zero != nullptr) event.indication.assign(zero + 1, bytes + length);
    } else {
        event.className = widen(className);
    }
    return event;
}

}  // namespace

struct NdisEventSourceC::Impl {
    UniqueFd socket;
    std::thread reader;

    void read(const NdisEventCallback& callback)
    {
        std::uint8_t buffer[sim::kNdisWireMaxMessage];
        for (;;) {
            const ssize_t received = ::recv(socket.get(), buffer, sizeof buffer, 0);
            if (received < 0 && errno == EINTR) continue;
            // The instrument went away or stop() shut the socket: no more indications.
            if (received <= 0) return;
            callback(eventOf(buffer, static_cast<std::size_t>(received)));
        }
    }
};

NdisEventSourceC::NdisEventSourceC() : m_impl(std::make_unique<Impl>()) {}

NdisEventSourceC::~NdisEventSourceC()
{
    stop();
}

NdisSubscribeResultT NdisEventSourceC::start(NdisEventCallback callback)
{
    stop();
    const auto failed = [](NdisSubscribeStepE step, std::uint32_t code) {
        setLastError(code);
        return NdisSubscribeResultT{step, code};
    };
    const std::string path = sim::ndisWireSocketPath(sim::root());
    sockaddr_un address{};
    if (sim::root().empty() || path.size() >= sizeof address.sun_path)
        return failed(NdisSubscribeStepE::ConnectServer, kErrorPathNotFound);
    UniqueFd socket(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (socket.get() < 0) return failed(NdisSubscribeStepE::ConnectServer, windowsErrorOf(errno));
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    if (::connect(socket.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
        return failed(NdisSubscribeStepE::ConnectServer, windowsErrorOf(errno));

    for (const char* className :
         {sim::kNdisClassMediaConnect, sim::kNdisClassMediaDisconnect, sim::kNdisClassSpecificIndication}) {
        const std::string query = std::string(sim::kNdisQueryPrefix) + className;
        if (::send(socket.get(), query.data(), query.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(query.size()))
            return failed(NdisSubscribeStepE::Register, windowsErrorOf(errno));
        std::uint8_t reply[4] = {};
        const ssize_t received = ::recv(socket.get(), reply, sizeof reply, 0);
        if (received != static_cast<ssize_t>(sizeof reply))
            return failed(NdisSubscribeStepE::Register, received < 0 ? windowsErrorOf(errno) : kErrorBrokenPipe);
        const std::uint32_t status =
            reply[0] | reply[1] << 8 | reply[2] << 16 | static_cast<std::uint32_t>(reply[3]) << 24;
        if (status != kErrorSuccess) return failed(NdisSubscribeStepE::Register, status);
    }

    m_impl->socket.reset(socket.release());
    m_impl->reader = std::thread([impl = m_impl.get(), callback = std::move(callback)] { impl->read(callback); });
    return {};
}

void NdisEventSourceC::stop()
{
    if (!m_impl->reader.joinable()) return;
    // The reader sees the end of its socket; the instrument sees the subscriber leave.
    ::shutdown(m_impl->socket.get(), SHUT_RDWR);
    m_impl->reader.join();
    m_impl->socket.reset();
}

}  // namespace platform
