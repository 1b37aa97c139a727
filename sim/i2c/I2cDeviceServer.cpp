#include "sim/i2c/I2cDeviceServer.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstring>

#include "platform/sim/I2cWire.h"
#include "platform/sim/SimRoot.h"

namespace halvern::sim {

namespace {

std::int64_t steadySeconds()
{
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

std::int64_t hostUnixTime()
{
    return std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

// One request in, one reply out; false when the peer has gone.
bool answer(int fd, I2cRegisterDeviceC& model)
{
    std::vector<std::uint8_t> request(platform::sim::kI2cWireMaxMessage);
    const ssize_t got = ::recv(fd, request.data(), request.size(), 0);
    if (got < static_cast<ssize_t>(platform::sim::kI2cWireHeaderBytes)) return false;
    std::uint32_t code = 0, readBytes = 0;
    std::memcpy(&code, request.data(), 4);
    std::memcpy(&readBytes, request.data() + 4, 4);
    std::uint32_t error = 0;
    std::vector<std::uint8_t> read;
    if (code == platform::sim::kI2cWirePlainWrite || code == 0x4001C10) {
        const std::vector<std::uint8_t> write(request.begin() + platform::sim::kI2cWireHeaderBytes,
                                              request.begin() + got);
        if (readBytes > platform::sim::kI2cWireMaxMessage - 4) readBytes = platform::sim::kI2cWireMaxMessage - 4;
        error = model.transfer(write, readBytes, read);
    } else if (code != 0x4001C00) {
        error = 1;  // ERROR_INVALID_FUNCTION
    }
    std::vector<std::uint8_t> reply(4 + read.size());
    std::memcpy(reply.data(), &error, 4);
    if (!read.empty()) std::memcpy(reply.data() + 4, read.data(), read.size());
    return ::send(fd, reply.data(), reply.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(reply.size());
}

}  // namespace

I2cInstrumentDevicesS::I2cInstrumentDevicesS() : rtc(steadySeconds, hostUnixTime())
{
    ioExpander.setWlanStartUp(kWlanModuleStartUp);
}

I2cDeviceServerC::~I2cDeviceServerC()
{
    stop();
}

void I2cDeviceServerC::add(const std::string& name, I2cRegisterDeviceC& model)
{
    m_endpoints.push_back({name, &model, {}});
}

bool I2cDeviceServerC::start(const std::string& root, std::string& error)
{
    if (!platform::sim::makeDirectories(root + "/dev") || !platform::sim::makePipe(m_wakeRead, m_wakeWrite)) {
        error = "cannot make " + root + "/dev";
        return false;
    }
    for (Endpoint& endpoint : m_endpoints) {
        endpoint.model->attach(root);
        endpoint.path = root + "/dev/" + endpoint.path;
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        if (endpoint.path.size() >= sizeof address.sun_path) {
            error = "socket path too long: " + endpoint.path;
            stop();
            return false;
        }
        std::memcpy(address.sun_path, endpoint.path.c_str(), endpoint.path.size() + 1);
        ::unlink(endpoint.path.c_str());
        endpoint.listener.reset(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        if (!endpoint.listener ||
            ::bind(endpoint.listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(endpoint.listener.get(), 8) != 0) {
            error = "cannot listen on " + endpoint.path + ": " + std::strerror(errno);
            stop();
            return false;
        }
    }
    m_thread = std::thread([this] { serve(); });
    return true;
}

void I2cDeviceServerC::stop()
{
    if (m_thread.joinable()) {
        const char byte = 0;
        if (::write(m_wakeWrite.get(), &byte, 1) != 1) {
            // The pipe is ours and empty: a failed write leaves nothing to undo.
        }
        m_thread.join();
    }
    for (Endpoint& endpoint : m_endpoints) {
        if (endpoint.listener) ::unlink(endpoint.path.c_str());
        endpoint.listener.reset();
    }
    m_wakeRead.reset();
    m_wakeWrite.reset();
}

void I2cDeviceServerC::serve()
{
    // Open device handles: the connection and the model it reaches.
    std::vector<std::pair<platform::sim::UniqueFd, I2cRegisterDeviceC*>> connections;
    for (;;) {
        std::vector<pollfd> fds;
        fds.push_back({m_wakeRead.get(), POLLIN, 0});
        for (const Endpoint& endpoint : m_endpoints)
            fds.push_back({endpoint.listener.get(), POLLIN, 0});
        for (const auto& connection : connections)
            fds.push_back({connection.first.get(), POLLIN, 0});
        if (::poll(fds.data(), fds.size(), -1) < 0) {
            if (errno == EINTR) continue;
            break;
        }
        if (fds[0].revents != 0) break;
        const std::size_t first = 1 + m_endpoints.size();
        std::vector<std::pair<platform::sim::UniqueFd, I2cRegisterDeviceC*>> open;
        for (std::size_t i = 0; i < connections.size(); ++i) {
            const short events = fds[first + i].revents;
            // A connection that failed stays behind and closes with the old list after the swap.
            if (events != 0 && !answer(connections[i].first.get(), *connections[i].second)) continue;
            open.push_back(std::move(connections[i]));
        }
        for (std::size_t i = 0; i < m_endpoints.size(); ++i) {
            if ((fds[1 + i].revents & POLLIN) == 0) continue;
            platform::sim::UniqueFd accepted(::accept4(m_endpoints[i].listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
            if (accepted) open.emplace_back(std::move(accepted), m_endpoints[i].model);
        }
        connections.swap(open);
    }
}

}  // namespace halvern::sim
