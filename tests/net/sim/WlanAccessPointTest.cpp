// The access point's configuration against the simulated instrument:
// credentials and the start with its retries, the stop, the refused requests,
// and the channel selection's result reaching the driver and the SEP clients.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "app/StartUpSteps.h"
#include "net/NetManagerC.h"
#include "net/WlanAccessPointC.h"
#include "net/WlanAp.h"
#include "net/WlanDriverManager.h"
#include "platform/Clock.h"
#include "platform/sim/SimHostedNetwork.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWlanDriver.h"
#include "sep/SepCommandTestSupport.h"
#include "sim/ControlCommands.h"
#include "sim/wlan/HostedNetworkControlCommands.h"
#include "support/EfiInstrumentTest.h"
#include "support/TestEnvironment.h"
#include "tests/net/sim/WlanInstrument.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

platform::sim::SimHostedNetworkS service()
{
    return platform::sim::readHostedNetwork(platform::sim::root());
}

net::WlanApConfigT record(std::uint32_t start, const char* ssid = "", const char* password = "")
{
    net::WlanApConfigT config;
    config.start = start;
    std::strncpy(config.ssid, ssid, sizeof config.ssid - 1);
    std::strncpy(config.password, password, sizeof config.password - 1);
    return config;
}

// A client's switch-on with these credentials.
net::WlanApRequestT switchOn(const char* ssid, const char* password)
{
    net::WlanApRequestT request;
    request.start = 1;
    request.ssid = ssid;
    request.password = password;
    return request;
}

int countOf(const std::vector<std::string>& messages, const std::string& text)
{
    return static_cast<int>(std::count(messages.begin(), messages.end(), text));
}

class WlanAccessPointTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        m_wlan.setUp();
        m_wlan.serveDevices();
        sim::addHostedNetworkControlCommands(m_commands);
    }
    void TearDown() override
    {
        WlanAp_Stop();
        net::setDfsExclusion(false);
        m_wlan.tearDown();
        InstrumentTest::TearDown();
    }
    void simulate(const std::string& command) { ASSERT_EQ(m_commands.execute(command).rfind("OK", 0), 0u) << command; }
    // Virtual time for the retries: each sleep moves it, nothing else does.
    void useManualClock() { platform::setClock(&m_clock); }
    std::uint64_t elapsedMs() { return m_clock.tickCount64() - kClockStart; }

    static constexpr std::uint64_t kClockStart = 1'000'000;
    platform::ManualClockC m_clock{kClockStart};
    WlanInstrumentC m_wlan;
    sim::ControlCommandsC m_commands;
};

TEST_F(WlanAccessPointTest, AStartWithoutTheInterfaceIsTriedEvery200MsThirtyTimesInAll)
{
    useManualClock();
    simulate("wlan ap fail 40 12");
    auto config = record(1);
    EXPECT_FALSE(net::applyWlanCfg(config));
    EXPECT_EQ(service().starts, 30u);
    EXPECT_EQ(service().failingStarts, 10u);
    EXPECT_EQ(elapsedMs(), 29u * 200u);
    const auto messages = logMessages();
    EXPECT_EQ(countOf(messages, "[ERROR]: Failed to start WiFi access point: try to restart"), 29);
    EXPECT_TRUE(
        containsInOrder(messages, {"Start WiFi access point", "[ERROR]: Failed to start WiFi access point: 12"}));
    EXPECT_EQ(WlanAp_Started(), 0);
}

TEST_F(WlanAccessPointTest, AStartThatFindsTheInterfaceAgainSucceeds)
{
    useManualClock();
    simulate("wlan ap fail 3 12");
    auto config = record(1, "Zentor-50321", "scan-the-world");
    ASSERT_TRUE(net::applyWlanCfg(config));
    EXPECT_EQ(service().starts, 4u);
    EXPECT_EQ(elapsedMs(), 600u);
    EXPECT_EQ(WlanAp_Started(), 1);
    EXPECT_EQ(platform::sim::hostedNetworkSsid(service().settings), "Zentor-50321");
}

TEST_F(WlanAccessPointTest, AnotherReasonEndsTheAttemptsAtOnce)
{
    useManualClock();
    simulate("wlan ap fail 5 19");
    auto config = record(1);
    EXPECT_FALSE(net::applyWlanCfg(config));
    EXPECT_EQ(service().starts, 1u);
    EXPECT_EQ(elapsedMs(), 0u);
    EXPECT_THAT(logMessages(), Contains("[ERROR]: Failed to start WiFi access point: 19"));
    EXPECT_THAT(logMessages(), Not(Contains(HasSubstr("try to restart"))));
}

TEST_F(WlanAccessPointTest, RefusedCredentialsStopTheConfigurationBeforeTheStart)
{
    auto config = record(1, "Zentor-50321", "short");
    EXPECT_FALSE(net::applyWlanCfg(config));
    EXPECT_THAT(logMessages(), Contains("[ERROR]: Failed to set password (length 5): 2"));
    EXPECT_EQ(service().starts, 0u);
}

TEST_F(WlanAccessPointTest, TheStopEndsTheDfsExclusion)
{
    ASSERT_EQ(WlanAp_Start(), 1);
    net::setDfsExclusion(true);
    auto config = record(0);
    config.noneDfs = true;
    ASSERT_TRUE(net::applyWlanCfg(config));
    EXPECT_FALSE(net::dfsExclusion());
    EXPECT_FALSE(config.noneDfs);
    EXPECT_EQ(WlanAp_Started(), 0);
    EXPECT_THAT(logMessages(), Contains("Stop WiFi access point"));
}

TEST_F(WlanAccessPointTest, ConfigurationsThatCannotBeAreRefused)
{
    net::WlanApRequestT request;
    auto config = record(0);

    ASSERT_EQ(WlanAp_Start(), 1);
    request.start = 1;
    EXPECT_FALSE(net::configureWlan(config, request));
    EXPECT_THAT(logMessages(), Contains("[configureWlan] [ERROR]: WLAN AP Mode already enabled! "
                                        "Please stop AP Mode first!"));
    ASSERT_EQ(WlanAp_Stop(), 1);
    const std::uint32_t startsBefore = service().starts;

    request.band = 4;
    EXPECT_FALSE(net::configureWlan(config, request));
    EXPECT_THAT(logMessages(), Contains("[configureWlan] [ERROR]: Invalid band setting 4!"));

    // 2.4 GHz has no radar channels to leave out; the band itself is already the
    // driver's by then.
    request.band = net::HALVERN_WLAN_2_4_GHZ;
    request.noneDfs = true;
    EXPECT_FALSE(net::configureWlan(config, request));
    EXPECT_THAT(logMessages(), Contains("[configureWlan] [ERROR]: None-Dfs in 2.4Ghz not valid!"));
    EXPECT_EQ(wlanDriverValue("NetBand"), "26668");
    EXPECT_THAT(deviceToolRuns(), Contains("restart PCI\\VEN_168C&DEV_0033*"));

    // 5 GHz where every channel needs radar detection: nothing to run on, and the
    // access point goes off.
    simulate("wlan channels set 52/3/dfs 56/5/dfs 100/3/dfs");
    request.band = net::HALVERN_WLAN_5_0_GHZ;
    EXPECT_FALSE(net::configureWlan(config, request));
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"[configureWlan] [ERROR]: no None-Dfs channels found!", "Stop WiFi access point"}));
    EXPECT_EQ(config.start, 0u);
    EXPECT_FALSE(net::dfsExclusion());
    EXPECT_EQ(service().starts, startsBefore);
}

TEST_F(WlanAccessPointTest, AnyAllowedChannelWithoutRadarDetectionLetsA5GhzStartAvoidDfs)
{
    // The driver still lists 2.4 GHz channels in 5 GHz mode; they need no radar detection either.
    simulate("wlan channels set 1 6 11 52/3/dfs 56/5/dfs 100/3/dfs");
    net::WlanApRequestT request;
    request.start = 1;
    request.band = net::HALVERN_WLAN_5_0_GHZ;
    request.noneDfs = true;
    auto config = record(0);
    net::configureWlan(config, request);
    EXPECT_THAT(logMessages(), Not(Contains("[configureWlan] [ERROR]: no None-Dfs channels found!")));
    EXPECT_TRUE(net::dfsExclusion()) << "the access point avoids DFS channels from now on";
    EXPECT_EQ(config.start, 1u);
}

TEST_F(WlanAccessPointTest, SwitchingOnSelectsAChannelAndStartsWithTheRequestedCredentials)
{
    const auto request = switchOn("Zentor-50321", "scan-the-world");
    ASSERT_TRUE(net::WlanAccessPointC::instance().configure(request));
    EXPECT_EQ(WlanAp_Started(), 1);
    EXPECT_EQ(platform::sim::hostedNetworkSsid(service().settings), "Zentor-50321");
    const auto config = net::WlanAccessPointC::instance().config();
    EXPECT_EQ(config.start, 1u);
    EXPECT_EQ(config.band, net::HALVERN_WLAN_5_0_GHZ) << "band 0 keeps the driver's";
    EXPECT_FALSE(config.allowedChannels.empty());
    // The selection's result reached the driver before the access point started on it.
    const auto messages = logMessages();
    const auto selected = std::find_if(messages.begin(), messages.end(), [](const std::string& message) {
        return message.rfind("Got results of channel selection: ", 0) == 0;
    });
    ASSERT_NE(selected, messages.end()) << ::testing::PrintToString(messages);
    EXPECT_TRUE(containsInOrder(
        messages, {"[WLAN_INFO]: WLAN Country Code is set to: CH", *selected, "Start WiFi access point"}));
    // A second switch-on while it runs is refused; the running access point stays.
    EXPECT_FALSE(net::WlanAccessPointC::instance().configure(request));
    EXPECT_EQ(WlanAp_Started(), 1);
}

// The driver's fourth band ("NetBand" "12") is no band mode: the record keeps it as band 0, so that the
// restart after radar, which asks for the record's band, is not refused.
TEST_F(WlanAccessPointTest, ADriverBandThatIsNoBandModeIsKeptWithoutEnteringTheRecord)
{
    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine, kWlanDriverKey, "NetBand",
                                          {platform::kRegSz, "12"}));
    net::WlanApRequestT request;
    request.start = 1;
    ASSERT_TRUE(net::WlanAccessPointC::instance().configure(request));
    EXPECT_EQ(net::WlanAccessPointC::instance().config().band, net::kWlanBandKeep);
    EXPECT_EQ(net::wlanBandMode(), net::HALVERN_WLAN_BOTH_BANDS);

    // The driver stopped the access point; the restart asks for what the record holds.
    ASSERT_EQ(WlanAp_Stop(), 1);
    request.band = net::WlanAccessPointC::instance().config().band;
    EXPECT_TRUE(net::WlanAccessPointC::instance().configure(request));
    EXPECT_THAT(logMessages(), Not(Contains(HasSubstr("Invalid band setting"))));
    EXPECT_EQ(WlanAp_Started(), 1);
    EXPECT_EQ(wlanDriverValue("NetBand"), "12") << "the driver keeps its band";
}

TEST_F(WlanAccessPointTest, AFailedConfigurationIsNotRemembered)
{
    auto request = switchOn("Zentor-50321", "scan-the-world");
    ASSERT_TRUE(net::WlanAccessPointC::instance().configure(request));
    ASSERT_EQ(WlanAp_Stop(), 1);

    // 33 bytes: the hosted network refuses it.
    request.ssid = std::string(33, 'z');
    EXPECT_FALSE(net::WlanAccessPointC::instance().configure(request));
    EXPECT_THAT(logMessages(), Contains(HasSubstr("[ERROR]: Failed to set SSID (length 33): ")));
    EXPECT_EQ(std::string(net::WlanAccessPointC::instance().config().ssid), "Zentor-50321");

    // A request that brings no SSID goes on with the one that worked.
    request.ssid.reset();
    request.password.reset();
    EXPECT_TRUE(net::WlanAccessPointC::instance().configure(request));
    EXPECT_EQ(WlanAp_Started(), 1);
    EXPECT_EQ(platform::sim::hostedNetworkSsid(service().settings), "Zentor-50321");
}

TEST_F(WlanAccessPointTest, WithoutTheDriversChannelsTheDriverFallsBackToTheDefaultChannel)
{
    // The card's device is gone from the DOS names: no channel list, so no selection can run.
    auto devices = platform::sim::readDosDevices(platform::sim::root());
    devices.erase(
        std::remove_if(devices.begin(), devices.end(),
                       [](const auto& device) { return device.first == platform::sim::kWlanDriverDeviceName; }),
        devices.end());
    ASSERT_TRUE(platform::sim::writeDosDevices(platform::sim::root(), devices));
    ASSERT_EQ(wlanDriverValue("ApChanExtOffset"), "1");

    net::WlanApRequestT request;
    request.start = 1;
    EXPECT_FALSE(net::WlanAccessPointC::instance().configure(request));
    EXPECT_TRUE(containsInOrder(logMessages(), {"Could not find the specified card",
                                                "[configureWlan] [ERROR]: failed to start channel selection!"}));
    // 5 GHz: channel 36 at 20 MHz, which every country allows; the driver restarts onto it.
    EXPECT_EQ(wlanDriverValue("ApChanNum"), "36");
    EXPECT_EQ(wlanDriverValue("ApChanExtOffset"), "2");
    EXPECT_THAT(deviceToolRuns(), Contains("restart PCI\\VEN_168C&DEV_0033*"));
    EXPECT_EQ(WlanAp_Started(), 0);
}

TEST_F(WlanAccessPointTest, SwitchingOffStopsARunningAccessPoint)
{
    ASSERT_EQ(WlanAp_Start(), 1);
    net::WlanApRequestT request;
    request.start = 0;
    request.ssid = "Zentor-77001";
    ASSERT_TRUE(net::WlanAccessPointC::instance().configure(request));
    EXPECT_EQ(WlanAp_Started(), 0);
    EXPECT_EQ(platform::sim::hostedNetworkSsid(service().settings), "Zentor-77001");
    EXPECT_EQ(std::string(net::WlanAccessPointC::instance().config().ssid), "Zentor-77001");
}

TEST_F(WlanAccessPointTest, ASelectedChannelThatDiffersIsWrittenAndTheDriverRestarted)
{
    ASSERT_EQ(wlanDriverValue("ApChanNum"), "36");
    net::WlanSelectionResultT same;
    same.channel = 36;
    same.width = net::kChanWidthHt40Plus;
    net::chanSelectionDone(same);
    EXPECT_THAT(deviceToolRuns(), Not(Contains(HasSubstr("restart"))));
    EXPECT_THAT(logMessages(), Contains("Got results of channel selection: 36, HT40+"));

    net::WlanSelectionResultT other;
    other.channel = 149;
    other.width = net::kChanWidthHt20;
    net::chanSelectionDone(other);
    EXPECT_EQ(wlanDriverValue("ApChanNum"), "149");
    EXPECT_EQ(wlanDriverValue("defaultApChannel"), "149");
    EXPECT_EQ(wlanDriverValue("ApChanExtOffset"), "2");
    EXPECT_THAT(deviceToolRuns(), Contains("restart PCI\\VEN_168C&DEV_0033*"));
    std::uint32_t channel = 0, width = 9;
    ASSERT_TRUE(net::NetManagerC::getDrvWlanChannel(channel, width));
    EXPECT_EQ(channel, 149u);

    // The same channel with another width is a change too.
    net::WlanSelectionResultT below;
    below.channel = 149;
    below.width = net::kChanWidthHt40Minus;
    net::chanSelectionDone(below);
    EXPECT_EQ(wlanDriverValue("ApChanExtOffset"), "3");
}

TEST_F(WlanAccessPointTest, TheCurrentSettingsComeFromTheServiceAndTheDriver)
{
    const std::string name = "Zentor-50321", phrase = "scan-the-world";
    ASSERT_EQ(WlanAp_SetSsid(reinterpret_cast<const unsigned char*>(name.data()), 12), 1);
    ASSERT_EQ(WlanAp_SetPassword(reinterpret_cast<const unsigned char*>(phrase.data()), 14), 1);
    ASSERT_EQ(WlanAp_Start(), 1);
    net::WlanApSettingsT settings;
    ASSERT_TRUE(net::WlanAccessPointC::instance().currentSettings(settings));
    EXPECT_TRUE(settings.enabled);
    EXPECT_EQ(settings.ssid, name);
    EXPECT_EQ(settings.password, phrase);
    EXPECT_EQ(settings.band, net::HALVERN_WLAN_5_0_GHZ);
}

TEST_F(WlanAccessPointTest, TheModuleComingUpBringsTheServicesSettingsIntoTheRecord)
{
    const std::string name = "Zentor-61002", phrase = "after-the-power-cut";
    ASSERT_EQ(WlanAp_SetSsid(reinterpret_cast<const unsigned char*>(name.data()), 12), 1);
    ASSERT_EQ(WlanAp_SetPassword(reinterpret_cast<const unsigned char*>(phrase.data()), 19), 1);
    ASSERT_TRUE(net::setWlanModulePower(true));
    const auto config = net::WlanAccessPointC::instance().config();
    EXPECT_EQ(std::string(config.ssid), name);
    EXPECT_EQ(std::string(config.password), phrase);
    EXPECT_EQ(config.band, net::HALVERN_WLAN_5_0_GHZ);
}

class WlanChannelEventTest : public EfiInstrumentTest {
protected:
    void SetUp() override
    {
        EfiInstrumentTest::SetUp();
        m_wlan.setUp();
    }
    void TearDown() override
    {
        clients.clear();
        m_wlan.tearDown();
        EfiInstrumentTest::TearDown();
    }
    WlanInstrumentC m_wlan;
    std::vector<std::unique_ptr<SEP::SepClientC>> clients;
};

TEST_F(WlanChannelEventTest, TheSelectionIsAnnouncedToEveryClient)
{
    ASSERT_TRUE(StartSepServer());
    clients = connectToEveryPort();
    ASSERT_FALSE(clients.empty());
    net::WlanSelectionResultT result;
    result.channel = 44;
    result.width = net::kChanWidthHt40Plus;
    net::chanSelectionDone(result);
    for (auto& client : clients) {
        std::vector<std::uint8_t> frame;
        SEP::DecodedFrameT event;
        ASSERT_TRUE(client->receiveFrame(frame, 10000));
        ASSERT_TRUE(SEP::decodeFrame(frame, event));
        EXPECT_EQ(event.kind, SEP::MESSAGE_KIND_EVENT);
        EXPECT_EQ(event.messageId, 1005);
        std::int32_t code = 0, facility = 0, channelWidth = 0;
        std::uint16_t level = 9;
        bool selected = false;
        std::uint32_t channel = 0;
        ASSERT_TRUE(event.coder->readI32(code) && event.coder->readI32(facility) && event.coder->readU16(level));
        EXPECT_EQ(code, 1097);
        ASSERT_TRUE(event.coder->readBool(selected) && event.coder->readU32(channel) &&
                    event.coder->readI32(channelWidth));
        EXPECT_TRUE(selected);
        EXPECT_EQ(channel, 44u);
        EXPECT_EQ(channelWidth, static_cast<std::int32_t>(net::kChanWidthHt40Plus));
    }
}

}  // namespace
}  // namespace halvern::test
