// The exported access-point API against the simulated WLAN service, halvern-sim's "wlan" commands acting on
// it, and the driver's channel list as the access point reads it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "net/WlanAp.h"
#include "net/WlanChannelList.h"
#include "platform/sim/SimHostedNetwork.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWlanDriver.h"
#include "sim/ControlCommands.h"
#include "sim/wlan/HostedNetworkControlCommands.h"
#include "sim/wlan/RadioControlCommands.h"
#include "support/TestEnvironment.h"
#include "tests/net/sim/WlanInstrument.h"

namespace halvern::test {
namespace {

using ::testing::HasSubstr;

std::vector<std::uint8_t> bytesOf(const std::string& text)
{
    return std::vector<std::uint8_t>(text.begin(), text.end());
}

class WlanHostedNetworkTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        m_wlan.setUp();
        sim::addHostedNetworkControlCommands(m_commands);
    }
    void TearDown() override
    {
        m_wlan.tearDown();
        InstrumentTest::TearDown();
    }
    // The module powered, so that the service sees its interface.
    void powerModule() { m_wlan.serveDevices(); }
    static platform::sim::SimHostedNetworkS service()
    {
        return platform::sim::readHostedNetwork(platform::sim::root());
    }
    std::string simulate(const std::string& command) { return m_commands.execute(command); }
    static std::string ssid()
    {
        unsigned char* buffer = WlanAp_GetSsid();
        if (buffer == nullptr) return "<none>";
        std::string text(reinterpret_cast<const char*>(buffer));
        WlanAp_FreeMemory(buffer);
        return text;
    }

    WlanInstrumentC m_wlan;
    sim::ControlCommandsC m_commands;
};

TEST_F(WlanHostedNetworkTest, AnSsidLongerThan32BytesIsRefusedWithoutAskingTheService)
{
    const std::string name = "Zentor-50321";
    ASSERT_EQ(WlanAp_SetSsid(reinterpret_cast<const unsigned char*>(name.data()), 12), 1);
    const auto before = service();

    const std::string tooLong(33, 'x');
    EXPECT_EQ(WlanAp_SetSsid(reinterpret_cast<const unsigned char*>(tooLong.data()), 33), 0);
    const auto after = service();
    EXPECT_EQ(after.settings, before.settings);
    EXPECT_EQ(platform::sim::hostedNetworkSsid(after.settings), name);

    // 32 bytes is the most an SSID holds.
    const std::string longest(32, 'z');
    ASSERT_EQ(WlanAp_SetSsid(reinterpret_cast<const unsigned char*>(longest.data()), 32), 1);
    EXPECT_EQ(ssid(), longest);
}

TEST_F(WlanHostedNetworkTest, SsidAndPassPhraseReadBackAsTheyWereSet)
{
    const std::string name = "Zentor-50321";
    ASSERT_EQ(WlanAp_SetSsid(reinterpret_cast<const unsigned char*>(name.data()), 12), 1);
    unsigned char* buffer = WlanAp_GetSsid();
    ASSERT_NE(buffer, nullptr);
    // The SSID's bytes, then two zero bytes.
    EXPECT_EQ(std::memcmp(buffer, name.data(), 12), 0);
    EXPECT_EQ(buffer[12], 0);
    EXPECT_EQ(buffer[13], 0);
    WlanAp_FreeMemory(buffer);
    // The number of peers is the service's and stays.
    const auto settings = service().settings;
    ASSERT_EQ(settings.size(), 40u);
    EXPECT_EQ(settings[36], 100);

    const std::string phrase = "scan-the-world";
    ASSERT_EQ(WlanAp_SetPassword(reinterpret_cast<const unsigned char*>(phrase.data()), 14), 1);
    const auto stored = service();
    std::vector<std::uint8_t> withNul = bytesOf(phrase);
    withNul.push_back(0);
    EXPECT_EQ(stored.key, withNul);
    EXPECT_TRUE(stored.passPhrase);
    EXPECT_TRUE(stored.persistent);
    buffer = WlanAp_GetPassword();
    ASSERT_NE(buffer, nullptr);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(buffer)), phrase);
    WlanAp_FreeMemory(buffer);
}

TEST_F(WlanHostedNetworkTest, APassPhraseTheServiceRefusesLeavesItsReason)
{
    const std::string phrase = "scan-the-world";
    ASSERT_EQ(WlanAp_SetPassword(reinterpret_cast<const unsigned char*>(phrase.data()), 14), 1);
    const std::string tooShort = "1234567";
    EXPECT_EQ(WlanAp_SetPassword(reinterpret_cast<const unsigned char*>(tooShort.data()), 7), 0);
    EXPECT_EQ(WlanAp_GetFailReason(), platform::kWlanHostedNetworkReasonBadParameters);
    EXPECT_EQ(service().key.size(), phrase.size() + 1);
}

TEST_F(WlanHostedNetworkTest, StartAndStopFollowTheHostedNetworksState)
{
    powerModule();
    EXPECT_EQ(WlanAp_Started(), 0);
    ASSERT_EQ(WlanAp_Start(), 1);
    EXPECT_EQ(WlanAp_Started(), 1);
    EXPECT_EQ(service().state, "active");
    EXPECT_THAT(simulate("wlan ap show"), HasSubstr("state active"));
    ASSERT_EQ(WlanAp_Stop(), 1);
    EXPECT_EQ(WlanAp_Started(), 0);
    EXPECT_EQ(service().state, "idle");
}

TEST_F(WlanHostedNetworkTest, WithoutTheModulesInterfaceAStartFailsWithReason12)
{
    // No IO expander answers: the module is not powered.
    EXPECT_EQ(WlanAp_Start(), 0);
    EXPECT_EQ(WlanAp_GetFailReason(), platform::kWlanHostedNetworkReasonInterfaceUnavailable);
    EXPECT_EQ(WlanAp_Started(), 0);

    powerModule();
    ASSERT_EQ(simulate("wlan ap unavailable"), "OK");
    EXPECT_EQ(WlanAp_Start(), 0);
    EXPECT_EQ(WlanAp_GetFailReason(), platform::kWlanHostedNetworkReasonInterfaceUnavailable);
    ASSERT_EQ(simulate("wlan ap available"), "OK");
    EXPECT_EQ(WlanAp_Start(), 1);
}

TEST_F(WlanHostedNetworkTest, InjectedFailuresHitTheNextStartsWithTheirReason)
{
    powerModule();
    ASSERT_EQ(simulate("wlan ap fail 2 19"), "OK");
    EXPECT_EQ(WlanAp_Start(), 0);
    EXPECT_EQ(WlanAp_GetFailReason(), 19u);
    EXPECT_EQ(WlanAp_Start(), 0);
    EXPECT_EQ(WlanAp_Start(), 1);
    EXPECT_EQ(simulate("wlan ap show"), "OK state active ssid \"\" key \"\" starts 3 failing 0 reason 19");
    EXPECT_THAT(simulate("wlan ap fail x 12"), HasSubstr("ERROR usage"));
}

TEST_F(WlanHostedNetworkTest, TheDriversChannelsComeWithTheirFlagsAndTheWidthsOfTheirBand)
{
    powerModule();
    ASSERT_EQ(simulate("wlan channels set 1 6 13 36/3 40/5 52/3/dfs 100/3/dfs/marked"), "OK");
    EXPECT_EQ(simulate("wlan channels show"), "OK 1/1 6/1 13/1 36/3 40/5 52/3/dfs 100/3/dfs/marked");
    std::vector<net::WlanAllowedChannelT> channels;
    ASSERT_TRUE(net::DevGetChanList(channels));
    ASSERT_EQ(channels.size(), 7u);
    const std::uint32_t ht20 = 1, plus = 2, minus = 4;
    EXPECT_EQ(channels[0].widthFlags, ht20 | plus);
    EXPECT_EQ(channels[1].widthFlags, ht20 | plus | minus);
    EXPECT_EQ(channels[2].widthFlags, ht20 | minus);
    EXPECT_EQ(channels[3].widthFlags, ht20 | plus);
    EXPECT_EQ(channels[4].widthFlags, ht20 | minus);
    EXPECT_EQ(channels[5].channel, 52u);
    EXPECT_EQ(channels[5].dfs, 1);
    EXPECT_EQ(channels[5].marked, 0);
    EXPECT_EQ(channels[6].channel, 100u);
    EXPECT_EQ(channels[6].dfs, 1);
    EXPECT_EQ(channels[6].marked, 1);
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"[WLAN_INFO]: found marked channel: 100", "[WLAN_INFO]: add marked channel: 100"}));

    // A radar event's channel is marked on the running driver and the next list has it so.
    ASSERT_EQ(simulate("wlan channels mark 52"), "OK");
    ASSERT_TRUE(net::DevGetChanList(channels));
    EXPECT_EQ(channels[5].marked, 1);
}

TEST_F(WlanHostedNetworkTest, AFreshInstrumentsDriverOffersBothBands)
{
    powerModule();
    std::vector<net::WlanAllowedChannelT> channels;
    ASSERT_TRUE(net::DevGetChanList(channels));
    ASSERT_FALSE(channels.empty());
    EXPECT_EQ(channels.front().channel, 1u);
    const auto first5Ghz = std::find_if(channels.begin(), channels.end(),
                                        [](const net::WlanAllowedChannelT& channel) { return channel.channel >= 36; });
    ASSERT_NE(first5Ghz, channels.end());
    EXPECT_EQ(first5Ghz->channel, 36u);
    EXPECT_EQ(first5Ghz->dfs, 0);
    EXPECT_TRUE(std::any_of(channels.begin(), channels.end(),
                            [](const net::WlanAllowedChannelT& channel) { return channel.dfs != 0; }));
}

TEST_F(WlanHostedNetworkTest, WithoutTheCardOrItsDeviceThereIsNoChannelList)
{
    std::vector<net::WlanAllowedChannelT> channels;
    // The card is listed but unpowered: its device cannot be opened.
    EXPECT_FALSE(net::DevGetChanList(channels));
    EXPECT_TRUE(containsInOrder(logMessages(), {"Error: DevGetChanList(0xff2004) retcode: 0x2"}));

    powerModule();
    auto devices = platform::sim::readDosDevices(platform::sim::root());
    devices.erase(
        std::remove_if(devices.begin(), devices.end(),
                       [](const auto& device) { return device.first == platform::sim::kWlanDriverDeviceName; }),
        devices.end());
    ASSERT_TRUE(platform::sim::writeDosDevices(platform::sim::root(), devices));
    EXPECT_FALSE(net::DevGetChanList(channels));
    EXPECT_TRUE(channels.empty());
    EXPECT_TRUE(containsInOrder(logMessages(), {"Could not find the specified card"}));
}

TEST_F(WlanHostedNetworkTest, TheAccessPointsCommandsLiveBesideTheOtherWlanCommands)
{
    sim::addRadioControlCommands(m_commands);
    m_commands.add("wlan", [](const std::vector<std::string>& arguments) {
        return "OK other " + std::to_string(arguments.size());
    });
    EXPECT_EQ(simulate("wlan radar 52"), "OK other 2");
    EXPECT_EQ(simulate("wlan networks").rfind("OK", 0), 0u);
    EXPECT_THAT(simulate("wlan ap show"), HasSubstr("OK state idle"));
    EXPECT_THAT(simulate("wlan channels bogus"), HasSubstr("ERROR usage"));
}

}  // namespace
}  // namespace halvern::test
