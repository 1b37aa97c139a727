// The loaded device drivers of the simulated instrument, from $HALVERN_ROOT/sim/drivers/loaded.
#include <fstream>
#include <string>

#include "platform/DeviceDrivers.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace {

// Kernel images load on 64-KB boundaries high in the address space; the n-th listed driver sits at the n-th.
constexpr DriverAddress kFirstDriverAddress = 0xFFFFF80000000000ull;
constexpr DriverAddress kDriverSpacing = 0x10000;

std::vector<std::string> loadedDrivers()
{
    std::vector<std::string> names;
    std::ifstream in(sim::root() + "/sim/drivers/loaded");
    for (std::string line; std::getline(in, line);) {
        while (!line.empty() && (line.back() == '\r' || line.back() == ' '))
            line.pop_back();
        if (!line.empty()) names.push_back(line);
    }
    return names;
}

}  // namespace

bool enumDeviceDrivers(std::vector<DriverAddress>& addresses, std::uint32_t& neededBytes)
{
    const std::vector<std::string> names = loadedDrivers();
    neededBytes = static_cast<std::uint32_t>(names.size() * sizeof(DriverAddress));
    for (std::size_t i = 0; i < addresses.size() && i < names.size(); ++i)
        addresses[i] = kFirstDriverAddress + i * kDriverSpacing;
    return true;
}

bool getDeviceDriverBaseName(DriverAddress address, std::wstring& name)
{
    const std::vector<std::string> names = loadedDrivers();
    const DriverAddress offset = address - kFirstDriverAddress;
    if (address < kFirstDriverAddress || offset % kDriverSpacing != 0 || offset / kDriverSpacing >= names.size()) {
        setLastError(kErrorInvalidParameter);
        return false;
    }
    name = widen(names[offset / kDriverSpacing]);
    return true;
}

}  // namespace platform
