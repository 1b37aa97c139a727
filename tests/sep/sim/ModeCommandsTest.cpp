// The device-mode commands as a client sees them: the production features read and set one by one, and
// the mode switches with their step texts.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "client/CtlTestSupport.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWriteFilter.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "support/Eventually.h"
#include "tests/sysmanager/sim/DeviceModeTestSupport.h"

namespace halvern::test {
namespace {

using namespace modes;

namespace REC = Varda::SEP::HALVERN;

class ModeCommandsTest : public SepPortTest {
protected:
    void SetUp() override
    {
        SepPortTest::SetUp();
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    }
    void TearDown() override
    {
        endExplorers();
        SepPortTest::TearDown();
    }
    REC::EnaProdFeat features()
    {
        REC::EnaProdFeat read;
        const auto reply = port->ask(1015);
        EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
        if (reply.returnCode == 1097) {
            EXPECT_EQ(SEP::decodeRecord(*reply.frame.coder, read), SEP::DecodeResultE::Ok);
        }
        return read;
    }
};

TEST_F(ModeCommandsTest, ProductionFeaturesAreSetAndReadBackInTheirWireOrder)
{
    REC::EnaProdFeat read = features();
    EXPECT_FALSE(read.uwf);
    EXPECT_FALSE(read.remoteDesktop);
    EXPECT_FALSE(read.portForwarding);

    REC::EnaProdFeat wanted;
    wanted.uwf = true;
    wanted.remoteDesktop = true;
    wanted.portForwarding = true;
    auto reply = port->askRecord(1014, wanted);
    EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
    read = features();
    EXPECT_FALSE(read.uwf) << "the filter protects from the next boot on";
    EXPECT_TRUE(read.remoteDesktop);
    EXPECT_TRUE(read.portForwarding);
    EXPECT_EQ(platform::sim::nextBootFilterState(), true);
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"Request to get production features",
         "Request to set production features, uwf: 1, remote desktop: 1, port forwarding: 1", "UWF is set to ON!",
         "Remote Desktop ON!", "Port Forwarding Activation!", "There are port entries in the port forwarding table!"}));

    // Only the remote desktop and the port forwarding off: wire order is forwarding, desktop, filter.
    reply = port->ask(
        1014, [](SEP::DataWriterI& w) { return w.writeBool(false) && w.writeBool(false) && w.writeBool(true); });
    EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
    read = features();
    EXPECT_FALSE(read.remoteDesktop);
    EXPECT_FALSE(read.portForwarding);
    EXPECT_TRUE(rootLines("sim/network/portproxy").empty());

    std::remove((platform::sim::root() + "/C/vexarBatches/Halvern/portsConfiguration.txt").c_str());
    reply = port->askRecord(1014, wanted);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to configure port forwarding status!)");

    // A port proxy table that cannot be read leaves the features unknown.
    std::remove((platform::sim::root() + "/C/Windows/System32/netsh.exe").c_str());
    reply = port->ask(1015);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "Internal error, failed to obtain WiFi AP configuration");
}

TEST_F(ModeCommandsTest, AModeSwitchAnswersWithItsStepsAndARefusalWithTheGeneralFailure)
{
    REC::ProdMode production;
    production.enable = true;
    auto reply = port->askRecord(1031, production);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::CurDevModeInfo info;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, info), SEP::DecodeResultE::Ok);
    EXPECT_STREQ(info.texts[0], "Device Mode Change: successfully completed");
    EXPECT_STREQ(info.texts[1], "Port Forwarding: ON");
    EXPECT_STREQ(info.texts[2], "Remote Desktop: ON");
    EXPECT_STREQ(info.texts[3], "File Explorer: ON");
    EXPECT_STREQ(info.texts[4], "Windows Firewall: OFF");
    EXPECT_STREQ(info.texts[5], "Ethernet Adapter Speed: 1Gbps Full Duplex");
    EXPECT_STREQ(info.texts[6], "UWF: OFF");
    EXPECT_STREQ(info.texts[7], "UWF is already deactivated, no restart is required.");
    EXPECT_FALSE(info.flag);
    EXPECT_TRUE(eventually([] { return explorerProcesses().size() == 1; }));

    // What a technician sees of the same switch.
    const CtlRunT run = runCtl(port->server().port(), {"service-mode", "on"});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    for (const char* line :
         {"result: \"Device Mode Change: successfully completed\"",
          "services and port forwarding: \"Port Forwarding: ON\"", "file explorer: \"File Explorer: ON\"",
          "write filter: \"UWF: OFF\"", "restart: \"UWF is already deactivated, no restart is required.\"",
          "restart required: no"})
        EXPECT_NE(run.out.find(line), std::string::npos) << line << "\n" << run.out;

    REC::ServMode customer;
    customer.enable = false;
    reply = port->askRecord(1032, customer);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, info), SEP::DecodeResultE::Ok);
    EXPECT_STREQ(info.texts[6], "UWF: ON");
    EXPECT_STREQ(info.texts[7], "A restart is required for the configuration of the UWF.");
    EXPECT_TRUE(info.flag);

    reply = port->askRecord(1031, production);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "General failure ( General Failure to set Production/Customer Mode Status!)");
    reply = port->askRecord(1032, customer);
    EXPECT_EQ(reply.errorText, "General failure ( General Failure to set Service/Customer Mode Status!)");
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"Got request to enable Production Mode", "Got request to disable Service Mode",
         "Got request to enable Production Mode", "[ERROR]: No switch possible before restarting device"}));
}

}  // namespace
}  // namespace halvern::test
