// The device-mode commands as a client sees them: the production features read and set one by one, and
// the mode switches with their step texts.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "client/CtlTestSupport.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWriteFilter.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "support/Eventually.h"
#include "support/FirmwareUpdaterSupport.h"
#include "support/ScriptProgram.h"
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

TEST_F(ModeCommandsTest, FeaturesSetWhileAnotherClientSwitchesTheModeEndAsOneRequestAfterTheOther)
{
    REC::EnaProdFeat forwarded;
    forwarded.portForwarding = true;
    ASSERT_EQ(port->askRecord(1014, forwarded).returnCode, 1097);
    // netsh holds its first deletion until the test lets it go (10 s at most): the feature setting below
    // has then switched the remote desktop off and stands before its port forwarding.
    const std::string netsh = platform::sim::resolveWindowsPath("c:\\windows\\system32\\netsh.exe");
    std::filesystem::copy_file(netsh, netsh + ".held");
    const std::string held = simFile("netsh-held");
    const std::string release = simFile("netsh-release");
    installScriptProgram("c:\\windows\\system32\\netsh.exe",
                         "case \" $* \" in *\" delete \"*) if [ ! -e '" + held + "' ]; then : > '" + held + "'\n" +
                             "  for i in $(seq 1000); do [ -e '" + release + "' ] && break; sleep 0.01; done; fi;;\n" +
                             "esac\nexec '" + netsh + ".held' \"$@\"");
    REC::EnaProdFeat allOff;
    ASSERT_TRUE(port->client().sendBytes(
        commandFrame(1014, [&allOff](SEP::DataWriterI& w) { return SEP::encodeRecord(w, allOff); })));
    ASSERT_TRUE(eventually([&held] { return std::filesystem::exists(held); }));

    SEP::SepClientC second;
    ASSERT_TRUE(second.connect("127.0.0.1", port->server().port()));
    REC::ProdMode production;
    production.enable = true;
    ASSERT_TRUE(second.sendBytes(
        commandFrame(1031, [&production](SEP::DataWriterI& w) { return SEP::encodeRecord(w, production); })));
    // A switch that ran now would be undone half by the feature setting's remaining steps.
    CommandReplyT switched = readReply(second, 1031, 1000);
    std::ofstream{release};
    EXPECT_EQ(readReply(port->client(), 1014).returnCode, 1097);
    if (!switched.received) switched = readReply(second, 1031);
    EXPECT_EQ(switched.returnCode, 1097) << switched.errorText;

    const REC::EnaProdFeat read = features();
    EXPECT_TRUE(read.remoteDesktop);
    EXPECT_TRUE(read.portForwarding) << "the switch's forwarding was deleted by the earlier feature setting";
}

}  // namespace
}  // namespace halvern::test
