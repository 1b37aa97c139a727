#include "net/WlanChannelList.h"

#include <cstring>
#include <new>
#include <string>

#include "app/Log.h"
#include "platform/I2c.h"
#include "platform/WinError.h"
#include "platform/WlanDriver.h"

namespace halvern::net {

namespace {

// The card's PCI identity as it appears in its device's target, with "#" where the instance path has "\".
constexpr const wchar_t* kCardTargetPart = L"PCI#VEN_168C&DEV_0033";
constexpr std::uint32_t kFirst5GhzChannel = 36;
constexpr std::uint32_t kLast24GhzChannel = 13;
constexpr std::uint32_t kJapanOnlyChannel = 14;
// A 40 MHz channel takes its partner four channels above or below.
constexpr std::uint32_t kPartnerDistance = 4;

// The driver reports 20 MHz for the 2.4 GHz band; a partner four channels away makes 40 MHz possible.
std::uint32_t widthFlags24Ghz(std::uint32_t channel)
{
    if (channel == kJapanOnlyChannel) return kChanWidthHt20;
    std::uint32_t flags = kChanWidthHt20;
    if (channel + kPartnerDistance <= kLast24GhzChannel) flags |= kChanWidthHt40Plus;
    if (channel > kPartnerDistance) flags |= kChanWidthHt40Minus;
    return flags;
}

// The DOS name of the card's device; false when no name leads to the card.
bool findCardDevice(const std::vector<std::wstring>& names, std::wstring& card)
{
    for (const auto& name : names) {
        std::vector<std::wstring> targets;
        if (!platform::queryDosDeviceTargets(name, targets)) continue;
        for (const auto& target : targets) {
            if (target.find(kCardTargetPart) == std::wstring::npos) continue;
            card = name;
            return true;
        }
    }
    return false;
}

}  // namespace

bool DevGetChanList(std::vector<WlanAllowedChannelT>& channels)
{
    channels.clear();
    std::vector<std::wstring> names;
    std::vector<std::uint8_t> answer;
    try {
        answer.resize(4 + platform::kWlanChannelListMaxRecords * platform::kWlanChannelRecordBytes);
        if (!platform::queryDosDeviceNames(names)) {
            WriteLog("QueryDosDevice error\n");
            return false;
        }
    } catch (const std::bad_alloc&) {
        WriteLog("Could not allocate memory for device info\n");
        return false;
    }
    std::wstring card;
    if (!findCardDevice(names, card)) {
        WriteLog("Could not find the specified card\n");
        return false;
    }
    const platform::UniqueHandle device = platform::openDriverDevice(card);
    std::uint32_t returned = 0;
    if (!device || !platform::deviceIoControl(device.get(), platform::kIoctlWlanGetChannelList, nullptr, 0,
                                              answer.data(), static_cast<std::uint32_t>(answer.size()), returned)) {
        WriteLog("Error: DevGetChanList(0x%x) retcode: 0x%x\n", platform::kIoctlWlanGetChannelList,
                 platform::lastError());
        return false;
    }
    std::uint32_t count = 0;
    if (returned >= 4) std::memcpy(&count, answer.data(), 4);
    // Only whole records that arrived count, whatever number the driver claims.
    const std::uint32_t arrived = returned >= 4 ? (returned - 4) / platform::kWlanChannelRecordBytes : 0;
    if (count > arrived) count = arrived;
    for (std::uint32_t i = 0; i < count; ++i) {
        const std::uint8_t* record = answer.data() + 4 + i * platform::kWlanChannelRecordBytes;
        WlanAllowedChannelT channel;
        std::memcpy(&channel.channel, record, 4);
        std::memcpy(&channel.widthFlags, record + 4, 4);
        channel.dfs = record[8] != 0 ? 1 : 0;
        channel.marked = record[9] != 0 ? 1 : 0;
        if (channel.channel < kFirst5GhzChannel) channel.widthFlags = widthFlags24Ghz(channel.channel);
        if (channel.marked != 0) WriteLog("[WLAN_INFO]: found marked channel: %d", static_cast<int>(channel.channel));
        channels.push_back(channel);
        if (channel.marked != 0) WriteLog("[WLAN_INFO]: add marked channel: %d", static_cast<int>(channel.channel));
    }
    return true;
}

}  // namespace halvern::net
