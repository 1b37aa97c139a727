// halvernctl on the instrument's access point: one `wlan set` per intent, whatever the access point is
// doing, and its refusals with their reasons.
#include <gtest/gtest.h>

#include "app/StartUpSteps.h"
#include "client/CtlTestSupport.h"
#include "net/WlanAp.h"
#include "net/WlanChanSelector.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/server/SepServer.h"
#include "sep/server/TcpIpServerChannelSetupC.h"
#include "sim/ControlCommands.h"
#include "sim/wlan/HostedNetworkControlCommands.h"
#include "sim/wlan/RadioControlCommands.h"
#include "tests/net/sim/WlanInstrument.h"

namespace halvern::test {
namespace {

class CtlWlanTest : public SepPortTest {
protected:
    void SetUp() override
    {
        SepPortTest::SetUp();
        m_wlan.setUp();
        m_wlan.serveDevices();
        sim::addHostedNetworkControlCommands(m_commands);
        sim::addRadioControlCommands(m_commands);
    }
    void simulate(const std::string& command) { ASSERT_EQ(m_commands.execute(command).rfind("OK", 0), 0u) << command; }
    void TearDown() override
    {
        StopSepServer();
        WlanAp_Stop();
        net::setDfsExclusion(false);
        m_wlan.tearDown();
        SepPortTest::TearDown();
    }
    CtlRunT ctl(std::vector<std::string> arguments) { return runCtl(port->server().port(), std::move(arguments)); }

    WlanInstrumentC m_wlan;
    sim::ControlCommandsC m_commands;
};

TEST_F(CtlWlanTest, ANewSsidOnARunningAccessPointIsTakenAndTheAccessPointRunsWithIt)
{
    CtlRunT run = ctl({"wlan", "set", "--ssid", "Zentor-50321", "--password", "scan-the-world", "--on"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    ASSERT_EQ(WlanAp_Started(), 1);

    run = ctl({"wlan", "set", "--ssid", "Zentor-NEW"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(WlanAp_Started(), 1) << "switched off for the change and on again";
    EXPECT_NE(run.out.find("access point restarted with the new configuration\n"), std::string::npos) << run.out;
    EXPECT_NE(run.out.find("SSID: \"Zentor-NEW\"\n"), std::string::npos) << run.out;
    EXPECT_EQ(run.out.find("scan-the-world"), std::string::npos) << "the password is masked";

    run = ctl({"--json", "--show-password", "wlan", "get"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto json = run.json();
    EXPECT_EQ(json["enabled"], true);
    EXPECT_EQ(json["ssid"], "Zentor-NEW");
    EXPECT_EQ(json["password"], "scan-the-world") << "the password not given stays";

    // A band alone, then switched off: each keeps what was not named.
    run = ctl({"wlan", "set", "--band", "2.4"});
    ASSERT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(ctl({"--value", "band", "wlan", "get"}).out, "2.4\n");
    EXPECT_EQ(ctl({"--value", "band", "--raw", "wlan", "get"}).out, "1\n");
    ASSERT_EQ(ctl({"wlan", "set", "--off"}).exitCode, 0);
    EXPECT_EQ(WlanAp_Started(), 0);
    EXPECT_EQ(ctl({"--value", "ssid", "wlan"}).out, "Zentor-NEW\n") << "`wlan` alone reads";
}

TEST_F(CtlWlanTest, WhatTheAccessPointCannotTakeIsRefusedWithTheRuleBeforeAnythingIsSent)
{
    struct CaseT {
        std::vector<std::string> arguments;
        const char* rule;
    };
    const std::vector<CaseT> cases = {
        {{"wlan", "set", "--password", "secret"}, "a WPA2 password must have 8-63 characters, not 6"},
        {{"wlan", "set", "--ssid", std::string(40, 's')}, "an SSID must have 1-32 characters, not 40"},
        {{"wlan", "set", "--ssid", "caf\xc3\xa9"}, "an SSID must be printable ASCII"},
        {{"wlan", "set"}, "nothing to change"},
        {{"wlan", "set", "--on", "--off"}, "excludes"},
    };
    for (const auto& c : cases) {
        const CtlRunT run = ctl(c.arguments);
        EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_BAD_ARGUMENTS) << c.rule;
        EXPECT_NE(run.err.find(c.rule), std::string::npos) << run.err;
    }
    EXPECT_EQ(WlanAp_Started(), 0);
}

TEST_F(CtlWlanTest, AnErrorReplyCarriesTheWireTextAndWhatToDoAboutIt)
{
    ASSERT_EQ(ctl({"wlan", "set", "--ssid", "Zentor-50321", "--password", "scan-the-world", "--on"}).exitCode, 0);
    // The raw command, as older tools send it, on a running access point.
    CtlRunT run = ctl({"send", "1002", "bool:1", "str:x", "str:", "i32:0"});
    EXPECT_EQ(run.exitCode, SEP::CTL_EXIT_ERROR_REPLY);
    EXPECT_NE(run.err.find("halvernctl: Internal error, failed to set WiFi AP configuration!\n  hint: the access "
                           "point must be off to change its configuration"),
              std::string::npos)
        << run.err;
}

TEST_F(CtlWlanTest, AChannelSelectionIsWaitedForAndItsOutcomeIsTheResult)
{
    // The instrument's own servers carry the channel-selected event.
    ASSERT_TRUE(StartSepServer());
    std::uint16_t primary = 0;
    forEachSepServer([&](HalvernRpc::TcpIpServerChannelSetupC& server) {
        primary = server.port();
        return false;
    });
    // A foreign network on 36 and a DFS channel: the quiet channel without radar detection wins.
    simulate("wlan channels set 36 40 52/1/dfs");
    simulate("wlan network add 5180 Cafe-Guests");
    CtlRunT run = runCtl(primary, {"--json", "wlan", "select", "--band", "5"});
    ASSERT_EQ(run.exitCode, 0) << run.err << run.out;
    const auto json = run.json();
    EXPECT_EQ(json["selected"], true) << run.out;
    EXPECT_EQ(json["channel"], 40) << run.out;
    EXPECT_TRUE(json["width"].is_string()) << run.out;
    ASSERT_TRUE(net::WlanChanSelector::instance().waitForSelectionDone(10000));
    EXPECT_EQ(run.err, "") << "no progress into a pipe";
}

}  // namespace
}  // namespace halvern::test
