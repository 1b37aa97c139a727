// The channel selector's reading of scanned beacons and its choice by usage, on both platforms.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "net/WlanChanSelector.h"
#include "support/TestEnvironment.h"
#include "tests/net/WlanSelectionTest.h"

namespace halvern::test {
namespace {

using net::WlanChannelUsageT;
using net::WlanChanSelector;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

platform::WlanBssEntryT bss(const std::string& ssid, std::uint32_t mhz, std::vector<std::uint8_t> elements = {})
{
    platform::WlanBssEntryT entry;
    entry.ssid = ssid;
    entry.centerFrequencyKhz = mhz * 1000;
    entry.informationElements = std::move(elements);
    return entry;
}

// An HT operation element for `primary` with `offsetBits` in its first information byte.
std::vector<std::uint8_t> htOperation(std::uint8_t primary, std::uint8_t offsetBits)
{
    std::vector<std::uint8_t> element{61, 22, primary, offsetBits};
    element.resize(24, 0);
    return element;
}

std::vector<std::uint8_t> ssidElement(const std::string& ssid)
{
    std::vector<std::uint8_t> element(2 + ssid.size());
    element[1] = static_cast<std::uint8_t>(ssid.size());
    std::copy(ssid.begin(), ssid.end(), element.begin() + 2);
    return element;
}

std::vector<std::uint8_t> join(std::vector<std::uint8_t> a, const std::vector<std::uint8_t>& b)
{
    a.insert(a.end(), b.begin(), b.end());
    return a;
}

WlanChannelUsageT usage(int channel, std::uint8_t dfs, std::uint32_t nonPeers, std::uint32_t peers)
{
    WlanChannelUsageT entry;
    entry.channel = channel;
    entry.dfs = dfs;
    entry.nonPeerUsers = nonPeers;
    entry.peerUsers = peers;
    return entry;
}

class WlanChanSelectorTest : public WlanSelectionTest {};

TEST_F(WlanChanSelectorTest, CentreFrequenciesMapToChannelsOfBothBands)
{
    EXPECT_EQ(WlanChanSelector::observe(bss("a", 5745)).channel, 149u);
    EXPECT_EQ(WlanChanSelector::observe(bss("a", 5180)).channel, 36u);
    EXPECT_EQ(WlanChanSelector::observe(bss("a", 2412)).channel, 1u);
    EXPECT_EQ(WlanChanSelector::observe(bss("a", 2437)).channel, 6u);
    // The service reports kHz; what lies below a whole MHz does not move the channel.
    platform::WlanBssEntryT odd = bss("a", 0);
    odd.centerFrequencyKhz = 5180999;
    EXPECT_EQ(WlanChanSelector::observe(odd).channel, 36u);
}

TEST_F(WlanChanSelectorTest, PeersAreToldApartByPrefixAndLength)
{
    EXPECT_TRUE(WlanChanSelector::isPeerName("Zentor-12345"));
    EXPECT_FALSE(WlanChanSelector::isPeerName("Zentor-1")) << "8 bytes: a network that only looks alike";
    EXPECT_TRUE(WlanChanSelector::isPeerName("Zentic-007"));
    EXPECT_TRUE(WlanChanSelector::isPeerName("ZentorLT-1"));
    EXPECT_TRUE(WlanChanSelector::isPeerName("Kalvo-123"));
    EXPECT_FALSE(WlanChanSelector::isPeerName("zentor-12345")) << "the prefix is compared as bytes";
    EXPECT_FALSE(WlanChanSelector::isPeerName("MyZentor-12345"));
    EXPECT_EQ(WlanChanSelector::observe(bss("Zentor-12345", 2412)).peer, 1);
    EXPECT_EQ(WlanChanSelector::observe(bss("Zentor-1", 2412)).peer, 0);
}

TEST_F(WlanChanSelectorTest, TheHtOperationElementGivesTheWidth)
{
    const auto plus = WlanChanSelector::observe(bss("a", 5180, join(ssidElement("a"), htOperation(36, 0x05))));
    EXPECT_EQ(plus.width, net::kChanWidthHt40Plus);
    const auto minus = WlanChanSelector::observe(bss("a", 5200, join(ssidElement("a"), htOperation(40, 0x07))));
    EXPECT_EQ(minus.width, net::kChanWidthHt40Minus);
    EXPECT_EQ(WlanChanSelector::observe(bss("a", 5180, htOperation(36, 0))).width, net::kChanWidthHt20);
    EXPECT_EQ(WlanChanSelector::observe(bss("a", 5180, ssidElement("legacy"))).width, net::kChanWidthHt20);

    // Offset 2 names no secondary channel: the network counts as HT20.
    const auto invalid = WlanChanSelector::observe(bss("a", 5745, htOperation(149, 0x02)));
    EXPECT_EQ(invalid.width, net::kChanWidthHt20);
    EXPECT_THAT(logMessages(), Contains("parseHtIe: Invalid secondary channel offset (2)!"));

    std::uint32_t primary = 0;
    std::uint32_t width = 0;
    const auto element = htOperation(149, 0x02);
    EXPECT_FALSE(WlanChanSelector::parseHtIe(element.data(), static_cast<int>(element.size()), primary, width));
    EXPECT_EQ(primary, 149u);
    EXPECT_EQ(width, net::kChanWidthInvalid);
}

TEST_F(WlanChanSelectorTest, AShortHtElementIsReportedAndStillRead)
{
    const std::vector<std::uint8_t> element{61, 1, 44};
    std::uint32_t primary = 0;
    std::uint32_t width = 0;
    EXPECT_TRUE(WlanChanSelector::parseHtIe(element.data(), static_cast<int>(element.size()), primary, width));
    EXPECT_EQ(primary, 44u);
    EXPECT_EQ(width, net::kChanWidthHt20);
    EXPECT_THAT(logMessages(), Contains("parseHtIe: Invalid size of HT IE (3)!"));
}

TEST_F(WlanChanSelectorTest, TheElementWalkStopsAtOverflows)
{
    std::uint32_t primary = 0;
    std::uint32_t width = net::kChanWidthHt20;
    // A length byte of 128 or more would step backwards: the walk ends before the HT element behind it.
    const auto signedLength = join({221, 0x80, 1, 2}, htOperation(36, 0x05));
    EXPECT_FALSE(WlanChanSelector::parseInformationElements(signedLength.data(), signedLength.size(), primary, width));
    EXPECT_EQ(width, net::kChanWidthHt20);
    EXPECT_EQ(WlanChanSelector::observe(bss("a", 5180, signedLength)).width, net::kChanWidthHt20);

    // An element longer than what is left, and a lone id byte at the end.
    const auto pastEnd = join(ssidElement("a"), {61, 22, 36, 0x05});
    EXPECT_FALSE(WlanChanSelector::parseInformationElements(pastEnd.data(), pastEnd.size(), primary, width));
    const auto loneId = join(ssidElement("a"), {61});
    EXPECT_FALSE(WlanChanSelector::parseInformationElements(loneId.data(), loneId.size(), primary, width));
    EXPECT_EQ(width, net::kChanWidthHt20);

    auto messages = logMessages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "[ERROR]: Overflow occured when parsing WLAN IEs."), 4);

    // An element that ends exactly at the end is whole.
    const auto exact = join(ssidElement("a"), htOperation(100, 0x07));
    EXPECT_TRUE(WlanChanSelector::parseInformationElements(exact.data(), exact.size(), primary, width));
    EXPECT_EQ(primary, 100u);
    EXPECT_EQ(width, net::kChanWidthHt40Minus);
}

TEST_F(WlanChanSelectorTest, UsageIn5GhzKeepsAwayFromChannelsOfTwoPeers)
{
    net::setWlanBandMode(net::HALVERN_WLAN_5_0_GHZ);
    // 36 has the fewest users, but two of them are instruments.
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(36, 0, 0, 2), usage(40, 0, 3, 0)}, -1), 40);
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(36, 0, 0, 1), usage(40, 0, 3, 0)}, -1), 36);
    // Fewer users first, then fewer instruments, then a channel without radar detection, then fewer others.
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(52, 1, 1, 0), usage(44, 0, 1, 0)}, -1), 44);
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(44, 0, 0, 1), usage(52, 1, 1, 0)}, -1), 52);
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(44, 0, 2, 0), usage(52, 1, 1, 0)}, -1), 52);
    // 2.4 GHz channels are no candidates in 5 GHz mode, however empty.
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(1, 0, 0, 0), usage(36, 0, 0, 2)}, -1), -1);

    // With DFS channels excluded only non-DFS channels count, peers or not.
    net::setDfsExclusion(true);
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(52, 1, 0, 0), usage(36, 0, 1, 2)}, -1), 36);
}

TEST_F(WlanChanSelectorTest, TheChannelToAvoidGivesWayToTheNextBest)
{
    net::setWlanBandMode(net::HALVERN_WLAN_5_0_GHZ);
    const std::vector<WlanChannelUsageT> two{usage(40, 0, 3, 0), usage(36, 0, 1, 0)};
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage(two, 36), 40);
    EXPECT_THAT(logMessages(), Contains("[WLAN_INFO]: getAlternativeChannel: Ignore channel set: 36"));
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage(two, 40), 36) << "not the best: nothing to avoid";
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(36, 0, 1, 0)}, 36), 36) << "the only candidate is kept";

    net::setWlanBandMode(net::HALVERN_WLAN_2_4_GHZ);
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({usage(1, 0, 0, 0), usage(6, 0, 1, 0)}, 1), 6);
}

TEST_F(WlanChanSelectorTest, BothBandsFallBackTo24GhzWhere5GhzOnlyGivesUp)
{
    const std::vector<WlanChannelUsageT> crowded{usage(36, 0, 0, 2), usage(40, 0, 0, 2), usage(1, 0, 1, 1),
                                                 usage(6, 0, 1, 0), usage(11, 0, 2, 0)};
    net::setWlanBandMode(net::HALVERN_WLAN_BOTH_BANDS);
    // In 2.4 GHz instruments weigh first, then other networks; the crowded 5 GHz channels stay out.
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage(crowded, -1), 6);
    EXPECT_TRUE(containsInOrder(logMessages(), {"[WLAN_INFO]: HALVERN_WLAN_BOTH_BANDS, HALVERN_WLAN_5_0_GHZ",
                                                "[WLAN_INFO]: No valid 5GHz channels found. Switch to 2.4Ghz!",
                                                "[WLAN_INFO]: HALVERN_WLAN_2_4_GHZ"}));

    net::setWlanBandMode(net::HALVERN_WLAN_5_0_GHZ);
    releaseInstrument();
    prepareInstrument();
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage(crowded, -1), -1);
    EXPECT_THAT(logMessages(), Not(Contains(HasSubstr("Switch to 2.4Ghz!"))));
    EXPECT_EQ(WlanChanSelector::getWlanChannelByUsage({}, -1), -1);
}

// Neither a fresh simulated instrument (its WLAN module unpowered) nor a Wine prefix has a WLAN interface.
TEST_F(WlanChanSelectorTest, WithoutAWlanInterfaceNoSelectionStarts)
{
    WlanChanSelector selector;
    bool called = false;
    const std::vector<net::WlanAllowedChannelT> allowed(1);
    EXPECT_FALSE(selector.startChannelSelection(
        allowed, [&called](const net::WlanSelectionResultT&) { called = true; }, 7000));
    EXPECT_THAT(logMessages(), Contains("[ERROR]: Failed to initialize WlanChanSelector"));
    EXPECT_TRUE(selector.waitForSelectionDone(0));
    EXPECT_FALSE(called);
}

TEST_F(WlanChanSelectorTest, WidthFlagsMapToOneCode)
{
    EXPECT_EQ(net::widthCodeOfFlags(1 | 2 | 4), net::kChanWidthHt40Minus);
    EXPECT_EQ(net::widthCodeOfFlags(1 | 2), net::kChanWidthHt40Plus);
    EXPECT_EQ(net::widthCodeOfFlags(1), net::kChanWidthHt20);
    EXPECT_EQ(net::widthCodeOfFlags(0), net::kChanWidthInvalid);
    EXPECT_STREQ(net::chanWidthName(net::kChanWidthHt40Plus), "HT40+");
    EXPECT_STREQ(net::chanWidthName(net::kChanWidthInvalid), "INVALID_CHAN_WIDTH");
    EXPECT_STREQ(net::chanWidthName(3), "INVALID_CHAN_WIDTH");
}

}  // namespace
}  // namespace halvern::test
