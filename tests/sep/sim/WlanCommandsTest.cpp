// The WLAN commands a service tool sends: the country code, the driver installation and the module's power,
// against the simulated instrument's driver tools, I2C devices and WLAN driver settings; and the start-up
// step that gives a driver without a country the default one.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "app/StartUpSteps.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWriteFilter.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "support/Eventually.h"
#include "support/FirmwareUpdaterSupport.h"
#include "support/ScriptProgram.h"
#include "tests/net/sim/WlanInstrument.h"

namespace halvern::test {
namespace {

namespace REC = Varda::SEP::HALVERN;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

class WlanCommandsTest : public SepPortTest {
protected:
    void SetUp() override
    {
        SepPortTest::SetUp();
        m_wlan.setUp();
    }
    void TearDown() override
    {
        m_wlan.tearDown();
        SepPortTest::TearDown();
    }
    void serveDevices() { m_wlan.serveDevices(); }
    CommandReplyT setCountry(const std::string& code)
    {
        REC::CtryCode request;
        std::snprintf(request.code, sizeof request.code, "%s", code.c_str());
        return port->askRecord(1016, request);
    }

    WlanInstrumentC m_wlan;
};

TEST_F(WlanCommandsTest, ACountryIsTwoLettersAndTheChannelFollowsIt)
{
    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine, kWlanDriverKey, "defaultApChannel",
                                          {platform::kRegSz, "40"}));
    auto reply = setCountry("DE");
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(wlanDriverValue("ccode"), "DE");
    EXPECT_EQ(wlanDriverValue("defaultApChannel"), "36") << "the default channel is the one the driver runs";
    EXPECT_THAT(logMessages(), Contains("Request to set country code, code: DE"));

    for (const char* invalid : {"", "D", "DEU", "4E"}) {
        reply = setCountry(invalid);
        ASSERT_TRUE(reply.received) << invalid;
        EXPECT_EQ(reply.returnCode, 889) << invalid;
        EXPECT_EQ(reply.errorText, "Internal error, failed to set WiFi AP configuration!") << invalid;
    }
    EXPECT_THAT(logMessages(), Contains("Invalid country code!"));
    EXPECT_EQ(wlanDriverValue("ccode"), "DE") << "a refused code changes nothing";
}

TEST_F(WlanCommandsTest, TheDriverIsInstalledFromTheUsbDriveOnRequest)
{
    serveDevices();
    REC::WlanDrv request;
    request.testNotRegular = true;
    std::snprintf(request.path, sizeof request.path, "%s", "F:\\wlan_test_drv");
    auto reply = port->askRecord(1024, request);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_THAT(logMessages(),
                Contains("Got request to install WLAN driver, testNotRegular: 1, drv path: F:\\wlan_test_drv"));
    EXPECT_THAT(deviceToolRuns(), Contains("update F:/wlan_test_drv/qcwlantest.inf PCI\\VEN_168C&DEV_0033"));

    std::filesystem::remove_all(platform::sim::root() + "/F/wlan_regular_drv");
    request.testNotRegular = false;
    reply = port->askRecord(1024, request);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.errorText, "General failure ( driver installation)");
}

TEST_F(WlanCommandsTest, AnInstallationAskedWhileAnotherClientsRunsIsRefusedAndTheFirstDriverLoads)
{
    serveDevices();
    // The driver store tool holds each package addition until the test lets it go (10 s at most).
    const std::string store = platform::sim::resolveWindowsPath("c:\\Windows\\System32\\pnputil.exe");
    std::filesystem::copy_file(store, store + ".held");
    const std::string release = simFile("pnputil-release");
    installScriptProgram("c:\\Windows\\System32\\pnputil.exe",
                         "case \" $* \" in *\" -a \"*) echo add >> '" + simFile("pnputil-adds") + "'\n" +
                             "  for i in $(seq 1000); do [ -e '" + release + "' ] && break; sleep 0.01; done;;\n" +
                             "esac\nexec '" + store + ".held' \"$@\"");
    const auto install = [](bool test) {
        return [test](SEP::DataWriterI& w) {
            REC::WlanDrv request;
            request.testNotRegular = test;
            std::snprintf(request.path, sizeof request.path, "%s", "F:\\wlan_drv");
            return SEP::encodeRecord(w, request);
        };
    };
    ASSERT_TRUE(port->client().sendBytes(commandFrame(1024, install(true))));
    ASSERT_TRUE(eventually([] { return simLines("pnputil-adds").size() == 1; }));

    SEP::SepClientC second;
    ASSERT_TRUE(second.connect("127.0.0.1", port->server().port()));
    ASSERT_TRUE(second.sendBytes(commandFrame(1024, install(false))));
    const CommandReplyT refused = readReply(second, 1024, 3000);
    EXPECT_TRUE(refused.received) << "the second installation waited for the first";
    EXPECT_EQ(refused.errorText, "General failure ( driver installation, another installation is in progress)");
    EXPECT_EQ(simLines("pnputil-adds").size(), 1u) << "two installations ran";

    std::ofstream{release};
    const CommandReplyT installed = readReply(port->client(), 1024, 60000);
    EXPECT_EQ(installed.returnCode, HalvernRpc::kReturnCodeSuccess) << installed.errorText;
    EXPECT_THAT(deviceToolRuns(), Not(Contains(HasSubstr("wlan_regular_drv"))));
    EXPECT_THAT(logMessages(),
                Contains("[installWlanDriver] [ERROR]: A WLAN driver installation is already in progress"));
}

TEST_F(WlanCommandsTest, TheModulesPowerIsSwitchedOnTheBus)
{
    REC::WlanPower request;
    request.enable = false;
    auto reply = port->askRecord(1026, request);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.errorText, "General failure ( WLAN module power)") << "without the bus nothing is switched";

    serveDevices();
    reply = port->askRecord(1026, request);
    EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_EQ(m_wlan.i2c.devices.ioExpander.peek(sim::IoExpanderModelC::kOutput) & 0x40, 0);
    request.enable = true;
    reply = port->askRecord(1026, request);
    EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_NE(m_wlan.i2c.devices.ioExpander.peek(sim::IoExpanderModelC::kOutput) & 0x40, 0);
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"Got request to disable WLAN module", "Got request to enable WLAN module",
                                        "[WLAN_INFO]: WLAN driver Ready after: 500 ms."}));
}

TEST_F(WlanCommandsTest, StartUpGivesADriverWithoutCountryTheDefaultAndCommitsIt)
{
    EnsureWlanCountryCode();
    EXPECT_TRUE(deviceToolRuns().empty()) << "a driver with a country is left as it is";

    const std::string folder = platform::sim::keyFolder(platform::RegHive::LocalMachine, kWlanDriverKey);
    std::remove((folder + "/ccode").c_str());
    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine,
                                          "SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status", "FilterState",
                                          {platform::kRegDword, "1"}));
    EnsureWlanCountryCode();
    EXPECT_EQ(wlanDriverValue("ccode"), "CH");
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"[ERROR]: County code not defined!", "Set default county code to: CH"}));
    EXPECT_EQ(deviceToolRuns(), (std::vector<std::string>{"disable PCI\\VEN_168C&DEV_0033*",
                                                          "enable PCI\\VEN_168C&DEV_0033*", "rescan"}));
    EXPECT_THAT(platform::sim::uwfCommits(platform::sim::root()),
                Contains(std::string("UwfCfgCommitRegistry HKLM\\") + kWlanDriverKey + " ccode"));
}

}  // namespace
}  // namespace halvern::test
