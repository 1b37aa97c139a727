// The simulated instrument's network adapters, from $HALVERN_ROOT/sim/network/adapters.
#include <fstream>
#include <string>

#include "platform/NetAdapters.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace {

std::vector<std::uint8_t> macBytes(const std::string& text)
{
    std::vector<std::uint8_t> bytes;
    for (std::size_t at = 0; at + 1 < text.size(); at += 3)
        bytes.push_back(static_cast<std::uint8_t>(std::stoul(text.substr(at, 2), nullptr, 16)));
    return bytes;
}

// What the list takes in the system's buffer: its records and texts, roughly as Windows lays them out.
constexpr std::uint32_t kBytesPerAdapter = 1024;

}  // namespace

std::uint32_t getAdaptersAddresses(std::uint32_t& bufferBytes, std::vector<NetAdapterT>& adapters)
{
    adapters.clear();
    std::ifstream in(sim::root() + "/sim/network/adapters");
    for (std::string line; std::getline(in, line);) {
        if (line == "adapter") {
            adapters.emplace_back();
            continue;
        }
        if (adapters.empty()) continue;
        const std::size_t equals = line.find('=');
        if (equals == std::string::npos) continue;
        const std::string name = line.substr(0, equals);
        const std::string value = line.substr(equals + 1);
        NetAdapterT& adapter = adapters.back();
        if (name == "description") adapter.description = widen(value);
        if (name == "mac") adapter.physicalAddress = macBytes(value);
        if (name == "address") {
            const int family = value.find(':') != std::string::npos ? kAddressFamilyIpv6 : kAddressFamilyIpv4;
            adapter.unicastAddresses.push_back({family, widen(value)});
        }
    }
    const std::uint32_t needed = static_cast<std::uint32_t>(adapters.size()) * kBytesPerAdapter;
    if (needed > bufferBytes) {
        bufferBytes = needed;
        adapters.clear();
        return kErrorBufferOverflow;
    }
    return kErrorSuccess;
}

}  // namespace platform
