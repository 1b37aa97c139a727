#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "platform/Text.h"
#include "platform/Usb.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimUsbBus.h"
#include "platform/sim/UniqueFd.h"

namespace platform::sim {

std::string usbBusPath(const std::string& root)
{
    return root + "/sim/usb/devices";
}

std::string usbNotifyFolder(const std::string& root)
{
    return root + "/sim/usb/notify";
}

namespace {

// False when the path does not fit a socket address.
bool endpointAddress(const std::string& path, sockaddr_un& address)
{
    address = sockaddr_un{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

}  // namespace

UsbNotifyEndpointC::~UsbNotifyEndpointC()
{
    if (!m_path.empty()) ::unlink(m_path.c_str());
}

UsbNotifyEndpointC::BindE UsbNotifyEndpointC::bind(const std::string& root, const std::string& name)
{
    if (!m_path.empty()) ::unlink(m_path.c_str());
    m_path.clear();
    m_socket.reset();
    const std::string folder = usbNotifyFolder(root);
    const std::string path = folder + "/" + name;
    sockaddr_un address;
    if (root.empty() || !endpointAddress(path, address) || !makeDirectories(folder)) return BindE::NoFolder;
    ::unlink(path.c_str());
    UniqueFd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!fd || ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        // The caller reads why; closing the socket must not change that.
        const int error = errno;
        fd.reset();
        errno = error;
        return BindE::NoSocket;
    }
    m_socket = std::move(fd);
    m_path = path;
    return BindE::Bound;
}

int notifyUsbDeviceChange(const std::string& root, bool arrival)
{
    const std::string word = arrival ? kUsbArrivalWord : kUsbRemovalWord;
    int told = 0;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(usbNotifyFolder(root), error)) {
        const std::string path = entry.path().string();
        sockaddr_un address;
        if (!endpointAddress(path, address)) continue;
        const UniqueFd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
        if (!fd) break;
        const ssize_t sent = ::sendto(fd.get(), word.data(), word.size(), MSG_DONTWAIT,
                                      reinterpret_cast<const sockaddr*>(&address), sizeof address);
        const int sendError = errno;
        if (sent == static_cast<ssize_t>(word.size()))
            ++told;
        else if (sendError == ECONNREFUSED)
            std::filesystem::remove(entry.path(), error);
    }
    return told;
}

std::string usbResetsPath(const std::string& root)
{
    return root + "/sim/usb/resets";
}

bool parseUsbDeviceLine(const std::string& line, SimUsbDeviceT& device)
{
    std::istringstream in(line);
    std::string vendor, product;
    unsigned long port = 0;
    if (!(in >> vendor >> product >> port) || vendor.size() != 4 || product.size() != 4) return false;
    char* end = nullptr;
    const unsigned long vendorId = std::strtoul(vendor.c_str(), &end, 16);
    if (*end != '\0') return false;
    const unsigned long productId = std::strtoul(product.c_str(), &end, 16);
    if (*end != '\0' || port > 0xFFFFFFFFul) return false;
    device = SimUsbDeviceT{};
    device.vendorId = static_cast<std::uint16_t>(vendorId);
    device.productId = static_cast<std::uint16_t>(productId);
    device.port = static_cast<std::uint32_t>(port);
    for (std::string flag; in >> flag;) {
        if (flag == "storage")
            device.massStorage = true;
        else if (flag == "unenumerated")
            device.enumerated = false;
        else if (flag == "refuse")
            device.refusesReset = true;
        else if (flag == "stick")
            device.stick = device.massStorage = true;
        else
            return false;
    }
    return true;
}

std::string usbDeviceLine(const SimUsbDeviceT& device)
{
    char ids[32];
    std::snprintf(ids, sizeof ids, "%04X %04X %u", device.vendorId, device.productId, device.port);
    std::string line = ids;
    if (device.massStorage && !device.stick) line += " storage";
    if (!device.enumerated) line += " unenumerated";
    if (device.refusesReset) line += " refuse";
    if (device.stick) line += " stick";
    return line;
}

bool loadUsbBus(const std::string& root, std::vector<SimUsbDeviceT>& devices)
{
    devices.clear();
    std::ifstream in(usbBusPath(root));
    for (std::string line; std::getline(in, line);) {
        if (line.empty()) continue;
        SimUsbDeviceT device;
        if (!parseUsbDeviceLine(line, device)) return false;
        devices.push_back(device);
    }
    return true;
}

bool saveUsbBus(const std::string& root, const std::vector<SimUsbDeviceT>& devices)
{
    const std::string path = usbBusPath(root);
    if (!makeDirectories(root + "/sim/usb")) return false;
    const std::string temporary = path + ".new";
    {
        std::ofstream out(temporary, std::ios::trunc);
        for (const auto& device : devices)
            out << usbDeviceLine(device) << "\n";
        if (!out) return false;
    }
    std::error_code error;
    std::filesystem::rename(temporary, path, error);
    return !error;
}

}  // namespace platform::sim

namespace platform {

bool listUsbDevices(std::vector<UsbDeviceT>& devices)
{
    devices.clear();
    const std::string root = sim::root();
    std::vector<sim::SimUsbDeviceT> bus;
    if (root.empty() || !sim::loadUsbBus(root, bus)) {
        setLastError(kErrorInvalidData);
        return false;
    }
    for (const auto& attached : bus) {
        UsbDeviceT device;
        device.vendorId = attached.vendorId;
        device.productId = attached.productId;
        device.massStorage = attached.massStorage;
        device.port = attached.port;
        device.enumerated = attached.enumerated;
        devices.push_back(device);
    }
    return true;
}

bool restartUsbDevice(std::uint32_t port)
{
    const std::string root = sim::root();
    std::vector<sim::SimUsbDeviceT> bus;
    if (root.empty() || !sim::loadUsbBus(root, bus)) {
        setLastError(kErrorInvalidData);
        return false;
    }
    for (auto& device : bus) {
        if (device.port != port) continue;
        if (device.refusesReset) {
            setLastError(kErrorAccessDenied);
            return false;
        }
        std::ofstream(sim::usbResetsPath(root), std::ios::app) << port << "\n";
        // A device that hung in its enumeration comes back complete, as a real restart mostly achieves.
        if (!device.enumerated) {
            device.enumerated = true;
            if (!sim::saveUsbBus(root, bus)) {
                setLastError(kErrorAccessDenied);
                return false;
            }
        }
        return true;
    }
    setLastError(kErrorNotFound);
    return false;
}

bool getVolumeFileSystem(const std::wstring& rootPath, std::wstring& fileSystem)
{
    const std::string root = sim::root();
    const std::string path = narrow(rootPath).value_or(std::string());
    if (root.empty() || path.size() < 2 || path[1] != ':' || !std::isalpha(static_cast<unsigned char>(path[0]))) {
        setLastError(kErrorPathNotFound);
        return false;
    }
    const char letter = static_cast<char>(std::toupper(static_cast<unsigned char>(path[0])));
    std::ifstream in(root + "/sim/volumes/" + letter);
    std::string label, name;
    if (!std::getline(in, label)) {
        setLastError(kErrorPathNotFound);
        return false;
    }
    fileSystem = widen(std::getline(in, name) && !name.empty() ? name : std::string("FAT32"));
    return true;
}

}  // namespace platform
