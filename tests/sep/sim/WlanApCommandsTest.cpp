// The access point as a service tool configures it over SEP: both record layouts, refused requests that
// leave it as it was, and a channel selection on demand whose result the clients hear and the driver runs.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <future>
#include <string>
#include <thread>

#include "app/StartUpSteps.h"
#include "net/NetManagerC.h"
#include "net/WlanAccessPointC.h"
#include "net/WlanAp.h"
#include "net/WlanChanSelector.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "sim/ControlCommands.h"
#include "sim/wlan/HostedNetworkControlCommands.h"
#include "sim/wlan/RadioControlCommands.h"
#include "tests/net/sim/WlanInstrument.h"

namespace halvern::test {
namespace {

namespace REC = Varda::SEP::HALVERN;
using ::testing::Contains;

class WlanApCommandsTest : public SepPortTest {
protected:
    void SetUp() override
    {
        SepPortTest::SetUp();
        m_wlan.setUp();
        m_wlan.serveDevices();
        sim::addHostedNetworkControlCommands(m_commands);
        sim::addRadioControlCommands(m_commands);
    }
    void TearDown() override
    {
        m_clients.clear();
        StopSepServer();
        WlanAp_Stop();
        net::setDfsExclusion(false);
        m_wlan.tearDown();
        SepPortTest::TearDown();
    }
    void simulate(const std::string& command) { ASSERT_EQ(m_commands.execute(command).rfind("OK", 0), 0u) << command; }
    std::string simulateAnswer(const std::string& command) { return m_commands.execute(command); }

    static REC::WlanCfg config(bool enabled, const char* ssid, const char* password, std::int32_t band)
    {
        REC::WlanCfg request;
        request.enabled = enabled;
        std::snprintf(request.ssid, sizeof request.ssid, "%s", ssid);
        std::snprintf(request.password, sizeof request.password, "%s", password);
        request.band = band;
        return request;
    }

    // The clients of the instrument's own SEP servers, which hear its events.
    void connectClients()
    {
        ASSERT_TRUE(StartSepServer());
        m_clients = connectToEveryPort();
        ASSERT_FALSE(m_clients.empty());
    }
    // The next event of the first client: a channel-selected event's record.
    bool channelEvent(REC::WlanChannelSelection& selection)
    {
        std::vector<std::uint8_t> frame;
        SEP::DecodedFrameT event;
        std::int32_t code = 0, facility = 0;
        std::uint16_t level = 0;
        return m_clients.front()->receiveFrame(frame, 10000) && SEP::decodeFrame(frame, event) &&
               event.kind == SEP::MESSAGE_KIND_EVENT && event.messageId == 1005 && event.coder->readI32(code) &&
               event.coder->readI32(facility) && event.coder->readU16(level) && code == 1097 &&
               SEP::decodeRecord(*event.coder, selection) == SEP::DecodeResultE::Ok;
    }
    static std::uint32_t driverChannel()
    {
        std::uint32_t channel = 0, width = 0;
        return net::NetManagerC::getDrvWlanChannel(channel, width) ? channel : 0;
    }

    WlanInstrumentC m_wlan;
    sim::ControlCommandsC m_commands;
    std::vector<std::unique_ptr<SEP::SepClientC>> m_clients;
};

TEST_F(WlanApCommandsTest, AConfigurationIsAppliedAndReadBackInBothLayouts)
{
    auto request = config(true, "Zentor-50321", "scan-the-world", 0);
    auto reply = port->askRecord(1002, request);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_THAT(
        logMessages(),
        Contains("Got request to set WiFi config, enabled: 1, ssid: Zentor-50321, pass: scan-the-world, band: 0"));
    EXPECT_EQ(WlanAp_Started(), 1);

    reply = port->ask(1003);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::WlanCfg read;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, read), SEP::DecodeResultE::Ok);
    EXPECT_TRUE(read.enabled);
    EXPECT_STREQ(read.ssid, "Zentor-50321");
    EXPECT_STREQ(read.password, "scan-the-world");
    EXPECT_EQ(read.band, static_cast<std::int32_t>(net::HALVERN_WLAN_5_0_GHZ)) << "band 0 keeps the driver's";

    // Switching on what runs is refused, and it keeps running.
    reply = port->askRecord(1002, request);
    EXPECT_EQ(reply.errorText, "Internal error, failed to set WiFi AP configuration!");
    EXPECT_EQ(WlanAp_Started(), 1);

    auto off = config(false, "", "", 0);
    ASSERT_EQ(port->askRecord(1002, off).returnCode, 1097);
    EXPECT_EQ(WlanAp_Started(), 0);

    // The extended layout's flag asks for channels without radar detection; empty texts keep the credentials.
    REC::WlanCfgExt extended;
    extended.enabled = true;
    extended.band = static_cast<std::int32_t>(net::HALVERN_WLAN_5_0_GHZ);
    extended.extension = true;
    reply = port->askRecord(1064, extended);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_TRUE(net::dfsExclusion());
    reply = port->ask(1065);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::WlanCfgExt readExtended;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, readExtended), SEP::DecodeResultE::Ok);
    EXPECT_TRUE(readExtended.enabled);
    EXPECT_TRUE(readExtended.extension);
    EXPECT_STREQ(readExtended.ssid, "Zentor-50321");
}

TEST_F(WlanApCommandsTest, RefusedRequestsLeaveTheAccessPointAsItWas)
{
    auto reply = port->ask(1002, [](SEP::DataWriterI& w) {
        return w.writeBool(true) && w.writeString(std::string(256, 's').c_str()) && w.writeString("scan-the-world") &&
               w.writeI32(0);
    });
    EXPECT_EQ(reply.errorText, "Received string is not NULL terminated ( (ssid))");
    reply = port->ask(1064, [](SEP::DataWriterI& w) {
        return w.writeBool(true) && w.writeString("Zentor-50321") && w.writeString(std::string(256, 'p').c_str()) &&
               w.writeI32(0) && w.writeBool(false);
    });
    EXPECT_EQ(reply.errorText, "Received string is not NULL terminated ( (password))");

    auto badBand = config(true, "Zentor-50321", "scan-the-world", 4);
    reply = port->askRecord(1002, badBand);
    EXPECT_EQ(reply.errorText, "Internal error, failed to set WiFi AP configuration!");
    EXPECT_THAT(logMessages(), Contains("[configureWlan] [ERROR]: Invalid band setting 4!"));
    EXPECT_EQ(WlanAp_Started(), 0);
    EXPECT_EQ(simulateAnswer("wlan ap show").find("Zentor"), std::string::npos) << "the SSID was not taken";
}

TEST_F(WlanApCommandsTest, ARequestedSelectionIsAnnouncedAndRunByTheDriver)
{
    connectClients();
    // A foreign network on 36 and a DFS channel: the quiet channel without radar detection wins.
    simulate("wlan channels set 36 40 52/1/dfs");
    simulate("wlan network add 5180 Cafe-Guests");
    REC::WlanChannelSelection request;
    request.b = net::HALVERN_WLAN_5_0_GHZ;
    auto reply = port->askRecord(1057, request);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;

    REC::WlanChannelSelection selected;
    ASSERT_TRUE(channelEvent(selected));
    EXPECT_TRUE(selected.a);
    EXPECT_EQ(selected.b, 40u);
    ASSERT_TRUE(net::WlanChanSelector::instance().waitForSelectionDone(10000));
    EXPECT_EQ(driverChannel(), 40u) << "the driver runs the selected channel";

    request.b = 7;
    reply = port->askRecord(1057, request);
    EXPECT_EQ(reply.errorText, "General failure ( failed to run WLAN channel selection)");
    request.b = 0;
    request.c = 60001;
    reply = port->askRecord(1057, request);
    EXPECT_EQ(reply.errorText, "Value out of range ( scan time above 60000 ms)");
}

TEST_F(WlanApCommandsTest, ASelectionWithoutDfsLeavesTheAccessPointsPolicyAlone)
{
    connectClients();
    // The DFS channel 52 is the quiet one: only a run that avoids DFS channels takes the busy 36.
    simulate("wlan channels set 36 52/1/dfs");
    simulate("wlan network add 5180 Cafe-Guests");
    REC::WlanChannelSelection request;
    request.a = true;
    request.b = net::HALVERN_WLAN_5_0_GHZ;
    ASSERT_EQ(port->askRecord(1057, request).returnCode, 1097);
    REC::WlanChannelSelection selected;
    ASSERT_TRUE(channelEvent(selected));
    EXPECT_EQ(selected.b, 36u);
    ASSERT_TRUE(net::WlanChanSelector::instance().waitForSelectionDone(10000));
    EXPECT_FALSE(net::dfsExclusion()) << "the access point's configuration never asked to avoid DFS channels";

    request.a = false;
    ASSERT_EQ(port->askRecord(1057, request).returnCode, 1097);
    ASSERT_TRUE(channelEvent(selected));
    EXPECT_EQ(selected.b, 52u) << "the next run goes by the access point's policy again";
    ASSERT_TRUE(net::WlanChanSelector::instance().waitForSelectionDone(10000));

    // An access point configured without DFS channels keeps them out of a run that does not ask.
    net::setDfsExclusion(true);
    ASSERT_EQ(port->askRecord(1057, request).returnCode, 1097);
    ASSERT_TRUE(channelEvent(selected));
    EXPECT_EQ(selected.b, 36u);
    ASSERT_TRUE(net::WlanChanSelector::instance().waitForSelectionDone(10000));
}

TEST_F(WlanApCommandsTest, ASelectionOnDemandNeverKeepsTheAccessPointOff)
{
    connectClients();
    simulate("wlan channels set 36 40 52/1/dfs");
    simulate("wlan scan delay 1000");
    const auto workersStarted = [] {
        const auto messages = logMessages();
        return std::count_if(messages.begin(), messages.end(), [](const std::string& message) {
            return message.rfind("WLAN channel selection worker started", 0) == 0;
        });
    };
    REC::WlanChannelSelection request;
    request.b = net::HALVERN_WLAN_5_0_GHZ;
    ASSERT_EQ(port->askRecord(1057, request).returnCode, 1097);

    // The access point's own configuration comes while that run still scans: it waits for it.
    net::WlanApRequestT on;
    on.start = 1;
    EXPECT_TRUE(net::WlanAccessPointC::instance().configure(on));
    EXPECT_EQ(WlanAp_Started(), 1);
    EXPECT_EQ(workersStarted(), 2);

    // A request while the access point is being configured is answered with the error.
    ASSERT_EQ(WlanAp_Stop(), 1);
    auto configured =
        std::async(std::launch::async, [&on] { return net::WlanAccessPointC::instance().configure(on); });
    for (int poll = 0; poll < 500 && workersStarted() < 3; ++poll)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    ASSERT_EQ(workersStarted(), 3);
    const auto reply = port->askRecord(1057, request);
    EXPECT_EQ(reply.errorText, "General failure ( failed to run WLAN channel selection)");
    EXPECT_TRUE(configured.get());
    EXPECT_EQ(WlanAp_Started(), 1);
    EXPECT_THAT(logMessages(), Contains("[ERROR]: Channel selection is already in progress."));
}

TEST_F(WlanApCommandsTest, StartUpOpensTheAccessPointOnTheSelectedChannel)
{
    connectClients();
    simulate("wlan channels set 36 40 44 52/1/dfs");
    simulate("wlan network add 5180 Cafe-Guests");
    simulate("wlan network add 5220 Zentor-50321");
    InitWlanAccessPoint();
    REC::WlanChannelSelection selected;
    ASSERT_TRUE(channelEvent(selected));
    EXPECT_TRUE(selected.a);
    EXPECT_EQ(selected.b, 40u);
    EXPECT_EQ(driverChannel(), 40u);
    EXPECT_EQ(WlanAp_Started(), 1);
}

}  // namespace
}  // namespace halvern::test
