// The switches between customer mode and production or service mode against the simulated instrument: what
// the device looks like afterwards, what the client is told, and how a restart completes a switch.
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <string>

#include "app/StartUpSteps.h"
#include "net/NetManagerC.h"
#include "platform/Firewall.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWriteFilter.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"
#include "support/Eventually.h"
#include "tests/sysmanager/sim/DeviceModeTestSupport.h"

namespace halvern::test {
namespace {

using namespace modes;

using ModeInfo = SysManagerC::CurDevModeInfo;

bool firewallOn(platform::FirewallProfileE profile)
{
    bool enabled = false;
    EXPECT_TRUE(platform::getFirewallEnabled(profile, enabled).ok());
    return enabled;
}

class DeviceModesTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    }
    void TearDown() override
    {
        endExplorers();
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
    // Halvern ends and starts again on the same instrument; with `reboot` Windows restarted in between.
    static void restart(bool reboot)
    {
        SysManagerC::DestroyInstance();
        if (reboot) {
            ASSERT_TRUE(platform::sim::bootWriteFilter());
        }
    }
    static void setName(const std::string& name)
    {
        platform::sim::makeDirectories(platform::sim::root() + "/sim/computer");
        std::ofstream(platform::sim::root() + "/sim/computer/name") << name << "\n";
    }
    static void failNetsh()
    {
        platform::sim::makeDirectories(platform::sim::root() + "/sim/apps");
        std::ofstream(platform::sim::root() + "/sim/apps/netsh") << "exit-code=1\n";
    }
    static bool flagFilePresent() { return rootFileExists("C/vexarBatches/Unprotected/toProdMode.txt"); }
};

// Every feature as production mode leaves it.
void expectOpened()
{
    EXPECT_EQ(serviceStart("LanmanWorkstation"), "2");
    EXPECT_EQ(serviceStart("SessionEnv"), "2");
    EXPECT_EQ(rootLines("sim/network/portproxy"), (std::vector<std::string>{"22 192.168.2.1 22", "23 192.168.2.1 23"}));
    EXPECT_EQ(userinit(), "C:\\Windows\\system32\\userinit.exe, C:\\Windows\\explorer.exe,");
    EXPECT_TRUE(eventually([] { return explorerProcesses().size() == 1; })) << "the shell runs";
    EXPECT_EQ(denyRemoteDesktop(), "0");
    EXPECT_EQ(loggedOnUserCursor("Arrow"), "C:\\Windows\\Cursors\\aero_arrow.cur");
    EXPECT_EQ(registryData(platform::RegHive::CurrentUser, "Control Panel\\Cursors", "Arrow"), "")
        << "not the pointer of the account Halvern runs as";
    EXPECT_FALSE(firewallOn(platform::FirewallProfileE::Private));
    EXPECT_EQ(net::NetManagerC::GetAdapterSpeed(), 5);
}

TEST_F(DeviceModesTest, CustomerModeNeedsAnInstrumentNameAndChangesNothingWithoutOne)
{
    setName("ZENTOR-1000000");
    ModeInfo info;
    EXPECT_FALSE(SysManagerC::Instance()->productionMode(false, info));
    EXPECT_STREQ(info.writeFilter, "Invalid instrument name, custom mode not allowed!");
    for (const char* field : {info.result, info.servicesAndPortForwarding, info.remoteDesktop, info.fileExplorer,
                              info.firewall, info.ethernetSpeed, info.restart})
        EXPECT_STREQ(field, "");
    EXPECT_FALSE(info.restartRequired);
    EXPECT_EQ(serviceStart("SessionEnv"), "3");
    EXPECT_EQ(platform::sim::nextBootFilterState(), std::nullopt) << "the write filter stays as it is";
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"productionMode 0", "[ERROR]: Invalid instrument name, custom mode not allowed!"}));

    // Opening the device needs no name: a factory device has none yet.
    EXPECT_TRUE(SysManagerC::Instance()->serviceMode(true, info));
    EXPECT_STREQ(info.result, "Device Mode Change: successfully completed");
    EXPECT_TRUE(eventually([] { return explorerProcesses().size() == 1; }));
}

TEST_F(DeviceModesTest, ProductionModeUnderTheFilterOpensTheDeviceAndTheNextBootCompletesIt)
{
    ASSERT_TRUE(platform::sim::setFilterState(true));
    ModeInfo info;
    ASSERT_TRUE(SysManagerC::Instance()->productionMode(true, info));
    EXPECT_STREQ(info.result, "Device Mode Change: successfully completed");
    EXPECT_STREQ(info.servicesAndPortForwarding, "Port Forwarding: ON");
    EXPECT_STREQ(info.remoteDesktop, "Remote Desktop: ON");
    EXPECT_STREQ(info.fileExplorer, "File Explorer: ON");
    EXPECT_STREQ(info.firewall, "Windows Firewall: OFF");
    EXPECT_STREQ(info.ethernetSpeed, "Ethernet Adapter Speed: 1Gbps Full Duplex");
    EXPECT_STREQ(info.writeFilter, "UWF: OFF");
    EXPECT_STREQ(info.restart, "A restart is required for the configuration of the UWF.");
    EXPECT_TRUE(info.restartRequired);
    expectOpened();
    EXPECT_TRUE(flagFilePresent());
    EXPECT_EQ(platform::sim::currentFilterState(), true) << "the filter protects until the restart";
    EXPECT_EQ(platform::sim::nextBootFilterState(), false);
    EXPECT_TRUE(containsInOrder(
        logMessages(), {"productionMode 1", "UWF Deactivation", " After a system restart, the UWF will be deactivated",
                        "UWF: OFF!", "Configure all features of Production Mode", "Enabled Service: LanmanWorkstation",
                        "Enabled Service: SessionEnv", "Port Forwarding: ON!", "File Explorer: ON!",
                        "Remote Desktop: ON!", "Windows Firewall: OFF!", "Ethernet Adapter Speed: 1Gbps Full Duplex"}));

    // Until the restart, no mode can be switched: the filter would be set twice for the same boot.
    ModeInfo refused;
    EXPECT_FALSE(SysManagerC::Instance()->productionMode(false, refused));
    EXPECT_STREQ(refused.writeFilter, "No switch possible before restarting device!");
    EXPECT_FALSE(SysManagerC::Instance()->serviceMode(true, refused));
    EXPECT_STREQ(refused.writeFilter, "No switch possible before restarting device!");
    EXPECT_EQ(platform::sim::nextBootFilterState(), false);

    // The next boot finds the flag file, completes production mode and leaves the network observer off.
    restart(true);
    EXPECT_TRUE(HandleProductionModeFlagFile());
    EXPECT_FALSE(flagFilePresent());
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"[wWinMain] Halvern: Indication of a transition from customer to "
                                        "production mode!",
                                        "productionMode 1", "UWF is already deactivated, no restart is required.",
                                        "Delete device production mode flag file!"}));
    EXPECT_FALSE(HandleProductionModeFlagFile()) << "a boot without the flag file has nothing to complete";
    EXPECT_TRUE(containsInOrder(logMessages(), {"[wWinMain] Halvern: No production mode flag file in the given path, "
                                                "so no indication of a transition from customer to production mode!"}));
}

TEST_F(DeviceModesTest, ProductionModeWithoutTheFilterNeedsNoRestartAndCustomerModeClosesEverything)
{
    ModeInfo info;
    ASSERT_TRUE(SysManagerC::Instance()->productionMode(true, info));
    EXPECT_STREQ(info.writeFilter, "UWF: OFF");
    EXPECT_STREQ(info.restart, "UWF is already deactivated, no restart is required.");
    EXPECT_FALSE(info.restartRequired);
    EXPECT_FALSE(flagFilePresent());
    expectOpened();

    ASSERT_TRUE(SysManagerC::Instance()->productionMode(true, info)) << "nothing pending: a second switch is fine";
    EXPECT_EQ(explorerProcesses().size(), 1u) << "a running shell is not started twice";

    ASSERT_TRUE(SysManagerC::Instance()->serviceMode(false, info));
    EXPECT_STREQ(info.result, "Device Mode Change: successfully completed");
    EXPECT_STREQ(info.servicesAndPortForwarding, "Port Forwarding: OFF");
    EXPECT_STREQ(info.fileExplorer, "File Explorer: OFF");
    EXPECT_STREQ(info.ethernetSpeed, "Ethernet Adapter Speed: 100Mbps Full Duplex");
    EXPECT_STREQ(info.remoteDesktop, "Remote Desktop: OFF");
    EXPECT_STREQ(info.firewall, "Windows Firewall: ON");
    EXPECT_STREQ(info.writeFilter, "UWF: ON");
    EXPECT_STREQ(info.restart, "A restart is required for the configuration of the UWF.");
    EXPECT_TRUE(info.restartRequired);
    EXPECT_EQ(serviceStart("LanmanWorkstation"), "4");
    EXPECT_EQ(serviceStart("SessionEnv"), "4");
    EXPECT_TRUE(rootLines("sim/network/portproxy").empty());
    EXPECT_EQ(userinit(), "C:\\Windows\\system32\\userinit.exe,");
    EXPECT_TRUE(explorerProcesses().empty()) << "the shell is ended";
    EXPECT_EQ(denyRemoteDesktop(), "1");
    EXPECT_EQ(loggedOnUserCursor("Arrow"), "C:\\Windows\\Cursors\\hidden.cur");
    EXPECT_EQ(registryData(platform::RegHive::CurrentUser, "Control Panel\\Cursors", "Arrow"), "")
        << "not the pointer of the account Halvern runs as";
    EXPECT_TRUE(firewallOn(platform::FirewallProfileE::Private));
    EXPECT_EQ(net::NetManagerC::GetAdapterSpeed(), 4);
    EXPECT_EQ(platform::sim::currentFilterState(), false);
    EXPECT_EQ(platform::sim::nextBootFilterState(), true);
    EXPECT_TRUE(containsInOrder(
        logMessages(), {"serviceMode 0", "UWF Activation", "UWF: ON!", "Configure all features of Customer Mode",
                        "Disabled Service: SessionEnv", "Disabled Service: LanmanWorkstation", "Port Forwarding: OFF!",
                        "File Explorer: OFF!", "Ethernet Adapter Speed: 100Mbps Full Duplex", "Remote Desktop: OFF!",
                        "Windows Firewall: ON!"}));

    EXPECT_FALSE(SysManagerC::Instance()->productionMode(true, info));
    EXPECT_STREQ(info.writeFilter, "No switch possible before restarting device!");
}

// The pointer belongs to whoever sits at the screen: the user logged on to the session, reached through its
// token while Halvern runs as SYSTEM; Halvern's own hive when it runs as that user itself.
TEST_F(DeviceModesTest, TheCursorSchemeGoesToTheLoggedOnUsersHive)
{
    SysManagerC* manager = SysManagerC::Instance();
    ASSERT_TRUE(manager->hideMousePointer(true));
    EXPECT_EQ(loggedOnUserCursor("Arrow"), "C:\\Windows\\Cursors\\hidden.cur");
    EXPECT_EQ(loggedOnUserCursor(""), "Hidden");
    EXPECT_EQ(registryData(platform::RegHive::CurrentUser, "Control Panel\\Cursors", "Arrow"), "");

    platform::sim::makeDirectories(platform::sim::root() + "/sim/session");
    std::ofstream(platform::sim::root() + "/sim/session/user") << "Operator\n";
    ASSERT_TRUE(manager->hideMousePointer(false));
    EXPECT_EQ(registryData(platform::RegHive::CurrentUser, "Control Panel\\Cursors", "Arrow"),
              "C:\\Windows\\Cursors\\aero_arrow.cur");

    // Without a user logged on there is no pointer to change: said, not hidden.
    std::ofstream(platform::sim::root() + "/sim/session/user") << "SYSTEM\n";
    std::ofstream(platform::sim::root() + "/sim/session/processes") << "4 0 System\n";
    EXPECT_FALSE(manager->hideMousePointer(true));
}

TEST_F(DeviceModesTest, AFailingFeatureStopsCustomerModeButNotProductionMode)
{
    ModeInfo info;
    ASSERT_TRUE(SysManagerC::Instance()->productionMode(true, info));
    ASSERT_TRUE(eventually([] { return explorerProcesses().size() == 1; }));
    restart(false);

    failNetsh();
    EXPECT_FALSE(SysManagerC::Instance()->productionMode(false, info));
    EXPECT_STREQ(info.servicesAndPortForwarding, "Internal error, failed to configure port forwarding table.");
    for (const char* field : {info.result, info.fileExplorer, info.ethernetSpeed, info.remoteDesktop, info.firewall})
        EXPECT_STREQ(field, "");
    EXPECT_EQ(serviceStart("SessionEnv"), "4") << "the services come before the port forwarding";
    EXPECT_EQ(rootLines("sim/network/portproxy").size(), 2u);
    EXPECT_EQ(explorerProcesses().size(), 1u) << "the later steps are not touched";
    EXPECT_EQ(userinit(), "C:\\Windows\\system32\\userinit.exe, C:\\Windows\\explorer.exe,");
    EXPECT_EQ(net::NetManagerC::GetAdapterSpeed(), 5);
    EXPECT_EQ(denyRemoteDesktop(), "0");
    EXPECT_FALSE(firewallOn(platform::FirewallProfileE::Private));
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"[SysManagerC::PortForwardingDeactivation] [ERROR]:The netsh command execution to delete the defined ports "
         "failed!, ERROR(1)",
         "[SysManagerC::productionMode] [ERROR]: PortForwarding function failed: 1"}));

    // Production mode goes on past its failures and reports them all.
    restart(true);
    std::remove((platform::sim::root() + "/C/vexarBatches/Halvern/portsConfiguration.txt").c_str());
    ASSERT_TRUE(platform::sim::setFilterState(false));
    EXPECT_FALSE(SysManagerC::Instance()->serviceMode(true, info));
    EXPECT_STREQ(info.result, "Device Mode Change: Error during switching the mode!");
    EXPECT_STREQ(info.servicesAndPortForwarding, "Internal error, failed to configure port forwarding table.");
    EXPECT_STREQ(info.fileExplorer, "File Explorer: ON");
    EXPECT_STREQ(info.remoteDesktop, "Remote Desktop: ON");
    EXPECT_STREQ(info.firewall, "Windows Firewall: OFF");
    EXPECT_STREQ(info.ethernetSpeed, "Ethernet Adapter Speed: 1Gbps Full Duplex");
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"[SysManagerC::PortForwardingActivation] [ERROR]:The "
                                 "'C:\\vexarBatches\\Halvern\\portsConfiguration.txt' with the defined ports is not "
                                 "present!, ERROR(2)",
                                 "[SysManagerC::serviceMode] [ERROR]: PortForwarding function failed: 2"}));
}

TEST_F(DeviceModesTest, AFirewallThatRefusesIsReportedWithItsProfile)
{
    // The start-up turns the public profile off; the switches use the private one.
    DisablePublicFirewall();
    EXPECT_FALSE(firewallOn(platform::FirewallProfileE::Public));
    EXPECT_TRUE(firewallOn(platform::FirewallProfileE::Private));

    platform::sim::makeDirectories(platform::sim::root() + "/sim/firewall/Private");
    ModeInfo info;
    EXPECT_FALSE(SysManagerC::Instance()->productionMode(true, info));
    EXPECT_STREQ(info.firewall, "Internal error, failed to configure windows firewall.");
    EXPECT_STREQ(info.ethernetSpeed, "Ethernet Adapter Speed: 1Gbps Full Duplex") << "the next step still runs";
    EXPECT_TRUE(containsInOrder(logMessages(), {"put_FirewallEnabled failed for Private: 0x80070005"}));
    EXPECT_TRUE(eventually([] { return explorerProcesses().size() == 1; }));
}

TEST_F(DeviceModesTest, ARenamingIsCommittedThroughTheFilterOnlyWhileItProtects)
{
    SysManagerC* manager = SysManagerC::Instance();
    EXPECT_EQ(manager->ConfigureUnifiedWriteFilter(), 0u);
    EXPECT_TRUE(platform::sim::uwfCommits(platform::sim::root()).empty());

    ASSERT_TRUE(platform::sim::setFilterState(true));
    EXPECT_EQ(manager->ConfigureUnifiedWriteFilter(), 0u);
    EXPECT_EQ(platform::sim::uwfCommits(platform::sim::root()),
              (std::vector<std::string>{
                  "UwfCfgCommitRegistry HKLM\\SYSTEM\\CurrentControlSet\\Control\\ComputerName\\ComputerName "
                  "ComputerName",
                  "UwfCfgCommitRegistry HKLM\\SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters Hostname",
                  "UwfCfgCommitRegistry HKLM\\SYSTEM\\CurrentControlSet\\Services\\Tcpip\\Parameters NV Hostname"}));

    // Without the filter's library nothing can be committed: the renaming would not survive the boot.
    std::remove((platform::sim::root() + "/C/Windows/System32/uwfcfgmgmt.dll").c_str());
    EXPECT_EQ(manager->ConfigureUnifiedWriteFilter(), 0x80004005u);
}

}  // namespace
}  // namespace halvern::test
