// I2C devices as SOCK_SEQPACKET Unix sockets in the sim root's dev/ folder: each transfer is one request
// message and one reply message, so a device model sees whole bus transactions.
#include <errno.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>
#include <memory>
#include <vector>

#include "platform/I2c.h"
#include "platform/WinError.h"
#include "platform/sim/I2cWire.h"
#include "platform/sim/SimControlDevice.h"
#include "platform/sim/SimObject.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/UniqueFd.h"

namespace platform {

namespace {

class I2cDeviceC final : public sim::SimObjectC {
public:
    explicit I2cDeviceC(sim::UniqueFd fd) : m_fd(std::move(fd)) {}

    // One request and its reply; `reply` holds the bytes after the error number.
    bool exchange(std::uint32_t code, const void* in, std::uint32_t inBytes, std::uint32_t readBytes,
                  std::vector<std::uint8_t>& reply)
    {
        std::vector<std::uint8_t> request(sim::kI2cWireHeaderBytes + inBytes);
        std::memcpy(request.data(), &code, 4);
        std::memcpy(request.data() + 4, &readBytes, 4);
        if (inBytes != 0) std::memcpy(request.data() + sim::kI2cWireHeaderBytes, in, inBytes);
        if (::send(m_fd.get(), request.data(), request.size(), MSG_NOSIGNAL) != static_cast<ssize_t>(request.size())) {
            setLastError(kErrorIoDevice);
            return false;
        }
        std::vector<std::uint8_t> message(sim::kI2cWireMaxMessage);
        const ssize_t got = ::recv(m_fd.get(), message.data(), message.size(), 0);
        if (got < 4) {
            setLastError(kErrorIoDevice);
            return false;
        }
        std::uint32_t error = 0;
        std::memcpy(&error, message.data(), 4);
        if (error != kErrorSuccess) {
            setLastError(error);
            return false;
        }
        reply.assign(message.begin() + 4, message.begin() + got);
        return true;
    }

private:
    sim::UniqueFd m_fd;
};

I2cDeviceC* lookupDevice(HandleValue device)
{
    auto* object = dynamic_cast<I2cDeviceC*>(sim::lookupObject(device));
    if (object == nullptr) setLastError(kErrorInvalidHandle);
    return object;
}

}  // namespace

UniqueHandle openI2cDevice(const std::string& path)
{
    // "\\.\RTClock" names the device RTClock.
    const std::string prefix = "\\\\.\\";
    const std::string root = sim::root();
    if (root.empty() || path.compare(0, prefix.size(), prefix) != 0) {
        setLastError(kErrorFileNotFound);
        return UniqueHandle();
    }
    const std::string socketPath = root + "/dev/" + path.substr(prefix.size());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (socketPath.size() >= sizeof address.sun_path) {
        setLastError(kErrorPathNotFound);
        return UniqueHandle();
    }
    std::memcpy(address.sun_path, socketPath.c_str(), socketPath.size() + 1);
    sim::UniqueFd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (!fd) {
        setLastError(kErrorNotEnoughMemory);
        return UniqueHandle();
    }
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        setLastError(kErrorFileNotFound);
        return UniqueHandle();
    }
    return UniqueHandle(sim::registerObject(std::make_unique<I2cDeviceC>(std::move(fd))));
}

bool deviceIoControl(HandleValue device, std::uint32_t code, const void* in, std::uint32_t inBytes, void* out,
                     std::uint32_t outBytes, std::uint32_t& bytesReturned)
{
    bytesReturned = 0;
    // Devices other than the bus's (the WLAN driver's) answer in-process.
    if (auto* control = dynamic_cast<sim::SimControlDeviceC*>(sim::lookupObject(device)))
        return control->control(code, in, inBytes, out, outBytes, bytesReturned);
    I2cDeviceC* object = lookupDevice(device);
    if (object == nullptr) return false;
    std::vector<std::uint8_t> reply;
    if (!object->exchange(code, in, inBytes, outBytes, reply)) return false;
    const std::size_t count = reply.size() < outBytes ? reply.size() : outBytes;
    if (count != 0) std::memcpy(out, reply.data(), count);
    bytesReturned = static_cast<std::uint32_t>(count);
    return true;
}

bool writeI2cDevice(HandleValue device, const void* data, std::uint32_t bytes, std::uint32_t& bytesWritten)
{
    bytesWritten = 0;
    I2cDeviceC* object = lookupDevice(device);
    if (object == nullptr) return false;
    std::vector<std::uint8_t> reply;
    if (!object->exchange(sim::kI2cWirePlainWrite, data, bytes, 0, reply)) return false;
    bytesWritten = bytes;
    return true;
}

}  // namespace platform
