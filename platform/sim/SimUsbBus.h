#pragma once
// The simulated instrument's USB bus: "sim/usb/devices" in the sim root, one device per line,
// "VID PID PORT [storage] [unenumerated] [refuse] [stick]" with VID and PID as four hex digits. "storage"
// is a mass-storage device, "unenumerated" one whose enumeration did not complete (a restart completes it),
// "refuse" one that refuses to be restarted, "stick" the USB stick of the production drive F:, which
// halvern-sim's "usb plug" adds and "usb unplug" removes. Every restart is appended to "sim/usb/resets" as
// its port number, so that a test or a person sees it.
#include <cstdint>
#include <string>
#include <vector>

#include "platform/sim/UniqueFd.h"

namespace platform::sim {

struct SimUsbDeviceT {
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    std::uint32_t port = 0;
    bool massStorage = false;
    bool enumerated = true;
    bool refusesReset = false;
    bool stick = false;
};

// The stick that "usb plug" attaches: a common 16 GB stick's ids.
constexpr std::uint16_t kSimStickVendorId = 0x0781;
constexpr std::uint16_t kSimStickProductId = 0x5567;

std::string usbBusPath(const std::string& root);
// The endpoints of the windows registered for USB device notifications: one Unix datagram socket each, named
// "PID.N", taking the words "arrival" and "removal".
std::string usbNotifyFolder(const std::string& root);
constexpr const char* kUsbArrivalWord = "arrival";
constexpr const char* kUsbRemovalWord = "removal";
// One endpoint in the notification folder, its socket and its name there: the name goes with its owner, so that
// the folder holds only the endpoints that still listen.
class UsbNotifyEndpointC {
public:
    enum class BindE { Bound, NoFolder, NoSocket };

    UsbNotifyEndpointC() = default;
    ~UsbNotifyEndpointC();
    UsbNotifyEndpointC(const UsbNotifyEndpointC&) = delete;
    UsbNotifyEndpointC& operator=(const UsbNotifyEndpointC&) = delete;

    // Binds `name` in root's notification folder, taking the place of a stale endpoint of that name. NoFolder when
    // there is no sim root, the folder cannot be made or the path is too long for a socket; NoSocket, with errno
    // set, when the socket cannot be made or bound. Either way the endpoint holds nothing.
    BindE bind(const std::string& root, const std::string& name);
    int socket() const { return m_socket.get(); }

private:
    UniqueFd m_socket;
    std::string m_path;
};
// Tells every registered window that a USB device came or went; an endpoint whose process has gone is
// removed. Answers how many windows were told. Never waits for a window's process.
int notifyUsbDeviceChange(const std::string& root, bool arrival);
std::string usbResetsPath(const std::string& root);
// A missing bus file is an empty bus; false only when a line cannot be read.
bool loadUsbBus(const std::string& root, std::vector<SimUsbDeviceT>& devices);
// Replaces the file as a whole, so that a reader never sees half of it.
bool saveUsbBus(const std::string& root, const std::vector<SimUsbDeviceT>& devices);
bool parseUsbDeviceLine(const std::string& line, SimUsbDeviceT& device);
std::string usbDeviceLine(const SimUsbDeviceT& device);

}  // namespace platform::sim
