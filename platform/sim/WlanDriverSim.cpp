// The WLAN driver's device on the simulated instrument: its DOS device name, and its channel-list request
// answered from the sim root at the moment it is asked.
#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <sstream>

#include "platform/I2c.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/WlanDriver.h"
#include "platform/sim/SimControlDevice.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWlanDriver.h"
#include "platform/sim/WlanSimClient.h"

namespace platform {

namespace sim {

namespace {

// ERROR_INVALID_FUNCTION: a control code the driver does not know.
constexpr std::uint32_t kErrorInvalidFunction = 1;

std::string dosDevicesPath(const std::string& root)
{
    return root + "/sim/dosdevices";
}

std::string channelsPath(const std::string& root)
{
    return root + "/sim/devices/wlan-channels";
}

bool replaceFile(const std::string& path, const std::string& text)
{
    const std::string temporary = path + ".new";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << text;
        if (!out.flush()) return false;
    }
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}

}  // namespace

std::vector<std::pair<std::string, std::string>> readDosDevices(const std::string& root)
{
    std::vector<std::pair<std::string, std::string>> devices;
    std::ifstream in(dosDevicesPath(root));
    for (std::string line; std::getline(in, line);) {
        const auto equals = line.find('=');
        if (equals != std::string::npos && equals != 0)
            devices.emplace_back(line.substr(0, equals), line.substr(equals + 1));
    }
    return devices;
}

bool writeDosDevices(const std::string& root, const std::vector<std::pair<std::string, std::string>>& devices)
{
    std::string text;
    for (const auto& device : devices)
        text += device.first + "=" + device.second + "\n";
    return makeDirectories(root + "/sim") && replaceFile(dosDevicesPath(root), text);
}

std::vector<SimDriverChannelS> readDriverChannels(const std::string& root)
{
    std::vector<SimDriverChannelS> channels;
    std::ifstream in(channelsPath(root));
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        SimDriverChannelS channel;
        int dfs = 0, marked = 0;
        if (!(fields >> channel.channel >> channel.widthFlags >> dfs >> marked)) continue;
        channel.dfs = dfs != 0;
        channel.marked = marked != 0;
        channels.push_back(channel);
    }
    return channels;
}

bool writeDriverChannels(const std::string& root, const std::vector<SimDriverChannelS>& channels)
{
    std::ostringstream text;
    for (const auto& channel : channels)
        text << channel.channel << ' ' << channel.widthFlags << ' ' << (channel.dfs ? 1 : 0) << ' '
             << (channel.marked ? 1 : 0) << '\n';
    return makeDirectories(root + "/sim/devices") && replaceFile(channelsPath(root), text.str());
}

std::uint64_t monotonicMs()
{
    return static_cast<std::uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                          std::chrono::steady_clock::now().time_since_epoch())
                                          .count());
}

std::string wlanReadyAtPath(const std::string& root)
{
    return root + "/sim/devices/wlan-ready-at";
}

bool writeWlanReadyAt(const std::string& root, std::uint64_t readyAt)
{
    return makeDirectories(root + "/sim/devices") && replaceFile(wlanReadyAtPath(root), std::to_string(readyAt) + "\n");
}

bool wlanModuleUp(const std::string& root)
{
    std::ifstream in(wlanReadyAtPath(root));
    std::uint64_t readyAt = 0;
    if (!(in >> readyAt)) return true;
    return monotonicMs() >= readyAt;
}

bool provideWlanDriverDevice(const std::string& root)
{
    // The drives and the bus devices stand beside the card, as in a real listing.
    const std::vector<std::pair<std::string, std::string>> devices = {
        {"C:", "\\Device\\HarddiskVolume2"},         {"D:", "\\Device\\HarddiskVolume3"},
        {"IOExpander", "\\Device\\SPB\\IOExpander"}, {"RTClock", "\\Device\\SPB\\RTClock"},
        {"EEPROM", "\\Device\\SPB\\EEPROM"},         {kWlanDriverDeviceName, kWlanDriverDeviceTarget},
    };
    std::vector<SimDriverChannelS> channels;
    for (std::uint32_t channel = 1; channel <= 13; ++channel)
        channels.push_back({channel, 1, false, false});
    // 5 GHz channels pair up for 40 MHz: the lower one of a pair has its partner above, the upper one below.
    const std::uint32_t fiveGhz[] = {36, 40, 44, 48, 52, 56, 60, 64, 100, 104, 108, 112, 116, 120, 124, 128, 132, 136};
    for (std::uint32_t channel : fiveGhz) {
        const std::uint32_t partner = (channel / 4) % 2 == 1 ? 2u : 4u;
        channels.push_back({channel, 1u | partner, channel >= 52, false});
    }
    channels.push_back({140, 1, true, false});
    return writeDosDevices(root, devices) && writeDriverChannels(root, channels);
}

}  // namespace sim

namespace {

bool containsNoCase(const std::string& text, const std::string& part)
{
    return std::search(text.begin(), text.end(), part.begin(), part.end(), [](char a, char b) {
               return std::toupper(static_cast<unsigned char>(a)) == std::toupper(static_cast<unsigned char>(b));
           }) != text.end();
}

bool sameNoCase(const std::string& a, const std::string& b)
{
    return a.size() == b.size() && containsNoCase(a, b);
}

class WlanDriverDeviceC final : public sim::SimControlDeviceC {
public:
    bool control(std::uint32_t code, const void*, std::uint32_t, void* out, std::uint32_t outBytes,
                 std::uint32_t& bytesReturned) override
    {
        bytesReturned = 0;
        if (code != kIoctlWlanGetChannelList) {
            setLastError(sim::kErrorInvalidFunction);
            return false;
        }
        std::vector<sim::SimDriverChannelS> channels = sim::readDriverChannels(sim::root());
        if (channels.size() > kWlanChannelListMaxRecords) channels.resize(kWlanChannelListMaxRecords);
        const std::uint32_t count = static_cast<std::uint32_t>(channels.size());
        std::vector<std::uint8_t> answer(4 + count * kWlanChannelRecordBytes, 0);
        std::memcpy(answer.data(), &count, 4);
        for (std::uint32_t i = 0; i < count; ++i) {
            std::uint8_t* record = answer.data() + 4 + i * kWlanChannelRecordBytes;
            std::memcpy(record, &channels[i].channel, 4);
            std::memcpy(record + 4, &channels[i].widthFlags, 4);
            record[8] = channels[i].dfs ? 1 : 0;
            record[9] = channels[i].marked ? 1 : 0;
        }
        if (out == nullptr || outBytes < answer.size()) {
            setLastError(kErrorInsufficientBuffer);
            return false;
        }
        std::memcpy(out, answer.data(), answer.size());
        bytesReturned = static_cast<std::uint32_t>(answer.size());
        return true;
    }
};

}  // namespace

bool queryDosDeviceNames(std::vector<std::wstring>& names)
{
    names.clear();
    if (sim::root().empty()) {
        setLastError(kErrorPathNotFound);
        return false;
    }
    for (const auto& device : sim::readDosDevices(sim::root())) {
        const std::wstring name = widen(device.first);
        if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(name);
    }
    return true;
}

bool queryDosDeviceTargets(const std::wstring& name, std::vector<std::wstring>& targets)
{
    targets.clear();
    const std::string wanted = narrow(name).value_or(std::string());
    for (const auto& device : sim::readDosDevices(sim::root()))
        if (sameNoCase(device.first, wanted)) targets.push_back(widen(device.second));
    if (targets.empty()) {
        setLastError(kErrorFileNotFound);
        return false;
    }
    return true;
}

UniqueHandle openDriverDevice(const std::wstring& name)
{
    const std::string wanted = narrow(name).value_or(std::string());
    bool card = false;
    for (const auto& device : sim::readDosDevices(sim::root()))
        if (sameNoCase(device.first, wanted) && containsNoCase(device.second, "PCI#VEN_168C&DEV_0033")) card = true;
    // The driver's device goes with the card: unpowered or without its driver it is not there.
    if (!card || !simwlan::interfacePresent()) {
        setLastError(kErrorFileNotFound);
        return UniqueHandle();
    }
    return UniqueHandle(sim::registerObject(std::make_unique<WlanDriverDeviceC>()));
}

}  // namespace platform
