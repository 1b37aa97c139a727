// The WLAN client of the simulated instrument: the service always answers; the module's interface is there
// while the IO expander powers the module, once the module has come up after its power-on, and while the
// device's driver offers an interface.
#include <fstream>
#include <mutex>
#include <set>
#include <string>

#include "platform/I2c.h"
#include "platform/WinError.h"
#include "platform/Wlan.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWlanDriver.h"
#include "platform/sim/WlanSimClient.h"

namespace platform {

namespace {

// The expander's output port and the bit of the WLAN module's power line on it.
constexpr std::uint8_t kExpanderOutput = 0x01;
constexpr std::uint8_t kWlanPowerBit = 0x40;
// The module's interface as the service reports it.
constexpr std::array<std::uint8_t, 16> kInterfaceGuid = {0x3a, 0x9e, 0x4f, 0x1c, 0x52, 0x7d, 0x4b, 0x46,
                                                         0x8a, 0x31, 0x00, 0x03, 0x7f, 0x12, 0x34, 0x56};
constexpr const wchar_t* kInterfaceDescription = L"Qualcomm Atheros AR9485WB-EG Wireless Network Adapter";

struct WlanClientS {
    std::uint32_t version = 0;
};

std::mutex g_clientsLock;
std::set<WlanHandleValue> g_clients;

// Read as the SPB library reads it; a module whose expander does not answer is not powered.
bool modulePowered()
{
    UniqueHandle expander = openI2cDevice("\\\\.\\IOExpander");
    std::uint32_t returned = 0;
    if (!expander || !deviceIoControl(expander.get(), kIoctlSpbOpen, nullptr, 0, nullptr, 0, returned)) return false;
    std::uint8_t buffer[2] = {kExpanderOutput, 0};
    if (!deviceIoControl(expander.get(), kIoctlSpbWriteRead, buffer, 1, buffer + 1, 1, returned) || returned != 1)
        return false;
    return (buffer[1] & kWlanPowerBit) != 0;
}

bool driverOffersInterface()
{
    std::ifstream in(sim::root() + "/sim/devices/wlan");
    for (std::string line; std::getline(in, line);)
        if (line == "interface=1") return true;
    return false;
}

}  // namespace

namespace simwlan {

bool validClient(WlanHandleValue handle)
{
    std::lock_guard<std::mutex> guard(g_clientsLock);
    return g_clients.count(handle) != 0;
}

bool interfacePresent()
{
    return modulePowered() && sim::wlanModuleUp(sim::root()) && driverOffersInterface();
}

WlanGuid interfaceGuid()
{
    return kInterfaceGuid;
}

}  // namespace simwlan

std::uint32_t wlanCloseHandle(WlanHandleValue handle)
{
    {
        std::lock_guard<std::mutex> guard(g_clientsLock);
        if (g_clients.erase(handle) == 0) return kErrorInvalidHandle;
    }
    // As WlanCloseHandle: no notification of the handle runs once the call returned.
    simwlan::forgetNotifications(handle);
    delete static_cast<WlanClientS*>(handle);
    return kErrorSuccess;
}

std::uint32_t wlanOpenHandle(std::uint32_t clientVersion, std::uint32_t& negotiatedVersion, UniqueWlanHandle& handle)
{
    if (clientVersion != 1 && clientVersion != kWlanClientVersion) return kErrorInvalidParameter;
    auto* client = new WlanClientS{clientVersion};
    {
        std::lock_guard<std::mutex> guard(g_clientsLock);
        g_clients.insert(client);
    }
    negotiatedVersion = clientVersion;
    handle.reset(client);
    return kErrorSuccess;
}

std::uint32_t wlanEnumInterfaces(const UniqueWlanHandle& handle, std::vector<WlanInterfaceT>& interfaces)
{
    interfaces.clear();
    if (!simwlan::validClient(handle.get())) return kErrorInvalidHandle;
    if (!simwlan::interfacePresent()) return kErrorSuccess;
    WlanInterfaceT module;
    module.guid = kInterfaceGuid;
    module.description = kInterfaceDescription;
    module.state = kWlanInterfaceDisconnected;
    interfaces.push_back(module);
    return kErrorSuccess;
}

}  // namespace platform
