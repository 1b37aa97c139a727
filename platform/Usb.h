#pragma once
// The computer module's USB devices as the device setup API lists them (the USB device interface class,
// present devices only), and restarting one of them. On the simulation platform the bus is the text file
// "sim/usb/devices" of the sim root (see platform/sim/SimUsbBus.h), which halvern-sim's "usb" commands change.
#include <cstdint>
#include <string>
#include <vector>

namespace platform {

struct UsbDeviceT {
    // From the first hardware id, "USB\VID_xxxx&PID_xxxx".
    std::uint16_t vendorId = 0;
    std::uint16_t productId = 0;
    // A compatible id names the mass-storage class ("USB\Class_08"): a stick or a disk.
    bool massStorage = false;
    // The port number of the device on its hub (SPDRP_ADDRESS).
    std::uint32_t port = 0;
    // The device node was started without a problem code: its enumeration completed.
    bool enumerated = false;
};

// False with the last error set when the list cannot be read; an empty list is a success.
bool listUsbDevices(std::vector<UsbDeviceT>& devices);
// Restarts the first present device on `port` (DIF_PROPERTYCHANGE with DICS_PROPCHANGE), as unplugging and
// plugging it again would. False with kErrorNotFound when no device is on that port, else with the
// installer's error.
bool restartUsbDevice(std::uint32_t port);

// The file system of the volume at `rootPath` ("F:\\"), as GetVolumeInformationW names it ("FAT32", "exFAT",
// "NTFS"). On the simulation platform the second line of "sim/volumes/<letter>", "FAT32" when it has none.
// False with the last error set when no volume is there.
bool getVolumeFileSystem(const std::wstring& rootPath, std::wstring& fileSystem);

}  // namespace platform
