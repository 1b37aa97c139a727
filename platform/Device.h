#pragma once
// The network adapter class's devices as the setup API lists them: each device's driver key (the class
// GUID, a backslash and a four-digit instance number: its key below the class key) and its hardware ids.
// On the simulation platform the devices are the instance keys below the registry's
// "SYSTEM\CurrentControlSet\Enum" (three levels: bus, device, instance) whose "ClassGUID" is the network
// class, with "Driver" and "HardwareID" as Windows keeps them; a device whose "SimPresent" value is 0 is
// known but not attached.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace platform {

constexpr const wchar_t* kNetworkClassGuid = L"{4D36E972-E325-11CE-BFC1-08002BE10318}";

enum class DevicePropertyE { DriverKey, HardwareIds };

class NetworkDeviceListC {
public:
    NetworkDeviceListC();
    ~NetworkDeviceListC();
    NetworkDeviceListC(const NetworkDeviceListC&) = delete;
    NetworkDeviceListC& operator=(const NetworkDeviceListC&) = delete;

    // SetupDiGetClassDevsW of the network class in the current hardware profile; `presentOnly` leaves out
    // devices that are not attached. False with the last error set.
    bool open(bool presentOnly);
    // SetupDiEnumDeviceInfo: false with kErrorNoMoreItems after the last device.
    bool device(std::uint32_t index);
    // SetupDiGetDeviceRegistryPropertyW of device `index`: one text for the driver key, the list for the
    // hardware ids. False with the last error set (kErrorInvalidData when the device has no such property).
    bool property(std::uint32_t index, DevicePropertyE which, std::vector<std::wstring>& values);

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

}  // namespace platform
