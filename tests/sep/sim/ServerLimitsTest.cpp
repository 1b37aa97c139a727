// Who may connect to a SEP port: the address ranges that the registry allows, and how a broken or
// missing setting is read.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>

#include "client/SepClientC.h"
#include "platform/Registry.h"
#include "platform/sim/SimRegistry.h"
#include "sep/server/TcpIpServerChannelSetupC.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using BSS::NET::AddressRangeT;
using HalvernRpc::TcpIpServerChannelSetupC;
using platform::RegHive;

constexpr const char* kKey = "SOFTWARE\\Vexar\\Halvern";

class ServerLimitsTest : public InstrumentTest {
protected:
    static void setRanges(RegHive hive, const std::string& lines)
    {
        ASSERT_TRUE(platform::sim::writeValue(hive, kKey, "SepAllowedAddressRanges", {platform::kRegMultiSz, lines}));
    }
    // What a client from 127.0.0.1 meets: true when it is served, false when it is refused.
    static bool loopbackClientIsServed()
    {
        auto config = TcpIpServerChannelSetupC::defaultConfig(0);
        config.passTimeoutMs = 20;
        TcpIpServerChannelSetupC server(config);
        if (!server.start(3600000)) return false;
        SEP::SepClientC client;
        if (!client.connect("127.0.0.1", server.port())) return false;
        std::vector<std::uint8_t> ignored;
        while (client.receiveFrame(ignored, 300)) {
        }
        return !client.closed();
    }
};

TEST_F(ServerLimitsTest, RangesAreWrittenAsAddressAndPrefixLength)
{
    AddressRangeT range{};
    ASSERT_TRUE(BSS::NET::parseAddressRange("192.168.2.77/24", range));
    EXPECT_EQ(range, (AddressRangeT{0xC0A80200, 0xFFFFFF00}));
    ASSERT_TRUE(BSS::NET::parseAddressRange("10.1.2.3", range));
    EXPECT_EQ(range, (AddressRangeT{0x0A010203, 0xFFFFFFFF}));
    ASSERT_TRUE(BSS::NET::parseAddressRange("0.0.0.0/0", range));
    EXPECT_TRUE(range.contains(0x08080808));
    for (const char* text : {"", "10.1.2.3/", "10.1.2.3/33", "10.1.2.3/-1", "10.1.2.3/+8", "10.1.2/8", "10.1.2.3/8 ",
                             "10.1.2.3/008", "any"})
        EXPECT_FALSE(BSS::NET::parseAddressRange(text, range)) << text;
}

TEST_F(ServerLimitsTest, WithoutASettingTheInstrumentsOwnNetworksAreAllowed)
{
    EXPECT_EQ(TcpIpServerChannelSetupC::allowedRanges(), BSS::NET::defaultAllowedRanges());
    EXPECT_TRUE(loopbackClientIsServed());
}

TEST_F(ServerLimitsTest, TheMachineSettingWinsOverTheUsersAndBadEntriesAreLeftOut)
{
    setRanges(RegHive::CurrentUser, "127.0.0.0/8\n");
    EXPECT_EQ(TcpIpServerChannelSetupC::allowedRanges(), (std::vector<AddressRangeT>{{0x7F000000, 0xFF000000}}));

    // A user who may write the per-user key cannot let in more than the administrator allows.
    setRanges(RegHive::LocalMachine, "192.168.137.0/24\n127.0.0.1/33\n");
    EXPECT_EQ(TcpIpServerChannelSetupC::allowedRanges(), (std::vector<AddressRangeT>{{0xC0A88900, 0xFFFFFF00}}));
    EXPECT_THAT(logMessages(), ::testing::Contains("[TcpIpServerChannelSetupC::allowedRanges] [ERROR]: HKLM "
                                                   "SepAllowedAddressRanges entry '127.0.0.1/33' is no address "
                                                   "range, left out"));
    EXPECT_FALSE(loopbackClientIsServed());

    setRanges(RegHive::LocalMachine, "127.0.0.1/32\n");
    EXPECT_TRUE(loopbackClientIsServed());
}

TEST_F(ServerLimitsTest, ASettingWithNoValidEntryLetsNoOneIn)
{
    setRanges(RegHive::CurrentUser, "everyone\n");
    EXPECT_TRUE(TcpIpServerChannelSetupC::allowedRanges().empty());
    EXPECT_FALSE(loopbackClientIsServed());
}

}  // namespace
}  // namespace halvern::test
