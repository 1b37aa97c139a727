// Under Wine every call that would change the machine is refused with ERROR_ACCESS_DENIED before it reaches
// the machine running the tests, and what can be read back of that machine is as it was. Each case calls the
// facility the way Halvern calls it; without its guard the call would go on to Wine and answer otherwise.
#include <gtest/gtest.h>

#include <cwchar>
#include <vector>

#include "platform/CommandLine.h"
#include "platform/FileSystem.h"
#include "platform/Firewall.h"
#include "platform/Privilege.h"
#include "platform/Process.h"
#include "platform/Service.h"
#include "platform/Socket.h"
#include "platform/Sync.h"
#include "platform/Time.h"
#include "platform/Usb.h"
#include "platform/WinError.h"
#include "platform/Wlan.h"
#include "platform/win32/WineGuard.h"
#include "support/ClockSupport.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class WineSafetyTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        if (!platform::win32::runningUnderWine()) GTEST_SKIP() << "the guards stand aside on a real Windows";
    }
    // The call answered false and left ERROR_ACCESS_DENIED.
    template <typename Call>
    static ::testing::AssertionResult refused(Call call)
    {
        platform::setLastError(0);
        if (call()) return ::testing::AssertionFailure() << "the call went through";
        const std::uint32_t error = platform::lastError();
        if (error != platform::kErrorAccessDenied) return ::testing::AssertionFailure() << "refused with " << error;
        return ::testing::AssertionSuccess();
    }
    static bool launched(const std::wstring& commandLine, std::uint32_t& exitCode)
    {
        platform::ProcessInformationT started;
        if (!platform::createProcessInheriting(commandLine, platform::kCreateNoWindow, L"", platform::StartupInfoT{},
                                               started))
            return false;
        return platform::waitForSingleObject(started.process.get(), 30000) == platform::kWaitObject0 &&
               platform::getExitCodeProcess(started.process.get(), exitCode);
    }
};

TEST_F(WineSafetyTest, TheClockAndTheZoneAreNeverSetEvenWithThePrivileges)
{
    const platform::SystemTime before = platform::systemTime();
    platform::DynamicTimeZoneInformation zoneBefore;
    platform::getDynamicTimeZoneInformation(zoneBefore);
    const platform::SystemTime ahead = aDayAhead();
    {
        const platform::PrivilegeScopeC privilege(platform::kSeSystemtimePrivilege);
        ASSERT_TRUE(privilege.enabled());
        EXPECT_TRUE(refused([&] { return platform::setSystemTime(ahead); }));
        EXPECT_TRUE(refused([&] { return platform::setLocalTime(ahead); }));
    }
    platform::DynamicTimeZoneInformation tokyo = zoneBefore;
    tokyo.bias = -540;
    std::wcsncpy(tokyo.timeZoneKeyName, L"Tokyo Standard Time", platform::kTimeZoneKeyNameChars - 1);
    {
        // Wine's token does not hold SeTimeZonePrivilege: the call is made as Halvern makes it all the same.
        const platform::PrivilegeScopeC privilege(platform::kSeTimeZonePrivilege);
        EXPECT_TRUE(refused([&] { return platform::setDynamicTimeZoneInformation(tokyo); }));
    }
    EXPECT_NEAR(secondsOf(platform::systemTime()), secondsOf(before), kClockSlackSeconds) << "the host's clock moved";
    platform::DynamicTimeZoneInformation zoneAfter;
    platform::getDynamicTimeZoneInformation(zoneAfter);
    EXPECT_EQ(zoneAfter.bias, zoneBefore.bias);
    EXPECT_EQ(std::wstring(zoneAfter.timeZoneKeyName), std::wstring(zoneBefore.timeZoneKeyName));
}

TEST_F(WineSafetyTest, NeitherShutdownNorRebootNorARenameReachesTheMachine)
{
    EXPECT_TRUE(refused([] { return platform::initiateSystemShutdown(0, true, false, 0); }));
    EXPECT_TRUE(refused([] { return platform::initiateSystemShutdown(0, true, true, 0); }));
    std::wstring name;
    ASSERT_TRUE(platform::getComputerName(platform::ComputerNameE::PhysicalDnsHostname, name));
    EXPECT_TRUE(refused(
        [] { return platform::setComputerName(platform::ComputerNameE::PhysicalDnsHostname, L"ZENTOR-1000042"); }));
    EXPECT_TRUE(
        refused([] { return platform::setComputerName(platform::ComputerNameE::PhysicalNetBios, L"ZENTOR-1000042"); }));
    std::wstring after;
    ASSERT_TRUE(platform::getComputerName(platform::ComputerNameE::PhysicalDnsHostname, after));
    EXPECT_EQ(after, name);
}

TEST_F(WineSafetyTest, ConnectionsReachOnlyLoopbackWhateverTheSettingsName)
{
    // The instrument's own sensor board address, as a Windows build without its settings would use it.
    std::uint32_t board = 0;
    ASSERT_TRUE(platform::parseIpv4("192.168.2.1", board));
    platform::UniqueSocket socket = platform::createTcpSocket();
    ASSERT_NE(socket.get(), platform::kInvalidSocket);
    platform::setLastError(0);
    EXPECT_FALSE(platform::connectSocket(socket.get(), board, 23));
    EXPECT_EQ(platform::lastError(), 10013u) << "refused before any packet, as a firewall answers";

    // Loopback is the simulated instrument's, and stays reachable.
    platform::UniqueSocket listening = platform::createTcpSocket();
    std::uint32_t loopback = 0;
    ASSERT_TRUE(platform::parseIpv4("127.0.0.1", loopback));
    ASSERT_TRUE(platform::bindSocket(listening.get(), loopback, 0));
    ASSERT_TRUE(platform::listenSocket(listening.get(), 1));
    platform::UniqueSocket client = platform::createTcpSocket();
    EXPECT_TRUE(platform::connectSocket(client.get(), loopback, platform::localPort(listening.get())))
        << platform::lastError();
}

TEST_F(WineSafetyTest, ServicesAreNeitherStartedNorReconfigured)
{
    // Refused before the handle is looked at: without the guard an empty handle would answer 6.
    const platform::UniqueServiceHandle none;
    EXPECT_TRUE(refused([&] { return platform::startService(none); }));
    EXPECT_TRUE(refused([&] { return platform::changeServiceStartType(none, platform::kServiceDisabled); }));
}

TEST_F(WineSafetyTest, TheFirewallPolicyIsLeftAsItIs)
{
    bool before = false;
    const bool readable = platform::getFirewallEnabled(platform::FirewallProfileE::Public, before).ok();
    const platform::FirewallResultT result = platform::setFirewallEnabled(platform::FirewallProfileE::Public, !before);
    EXPECT_EQ(result.step, platform::FirewallStepE::PutFirewallEnabled);
    EXPECT_EQ(result.hresult, 0x80070005u) << "E_ACCESSDENIED";
    if (readable) {
        bool after = !before;
        ASSERT_TRUE(platform::getFirewallEnabled(platform::FirewallProfileE::Public, after).ok());
        EXPECT_EQ(after, before);
    }
}

TEST_F(WineSafetyTest, NoDeviceIsRestartedAndTheHostedNetworkStaysDown)
{
    EXPECT_TRUE(refused([] { return platform::restartUsbDevice(1); }));
    const platform::UniqueWlanHandle none;
    std::uint32_t reason = 0;
    EXPECT_EQ(platform::wlanHostedNetworkForceStart(none, reason), platform::kErrorAccessDenied);
    EXPECT_EQ(platform::wlanHostedNetworkForceStop(none, reason), platform::kErrorAccessDenied);
    EXPECT_EQ(platform::wlanHostedNetworkSetConnectionSettings(none, std::vector<std::uint8_t>(40, 0), reason),
              platform::kErrorAccessDenied);
    EXPECT_EQ(platform::wlanHostedNetworkSetSecondaryKey(none, std::vector<std::uint8_t>(8, 'k'), true, true, reason),
              platform::kErrorAccessDenied);
}

TEST_F(WineSafetyTest, WinesOwnSystemToolsAndUnixProgramsAreNeverStarted)
{
    // Wine's own netsh, ipconfig, sc and shutdown stand where the instrument's tools are: only a stand-in put
    // there may run.
    platform::ProcessInformationT started;
    EXPECT_TRUE(refused([&] {
        return platform::createProcess(L"", L"C:\\windows\\system32\\ipconfig.exe /release", platform::kCreateNoWindow,
                                       platform::StartupInfoT{}, started);
    }));
    platform::UniqueHandle process;
    EXPECT_TRUE(refused([&] {
        return platform::shellExecuteElevated(L"C:\\windows\\system32\\netsh.exe",
                                              L"advfirewall set allprofiles state off", process);
    }));
    EXPECT_TRUE(refused([&] {
        return platform::createProcessInheriting(L"sc config w32time start= disabled", platform::kCreateNoWindow, L"",
                                                 platform::StartupInfoT{}, started);
    }));
    EXPECT_TRUE(refused([&] {
        return platform::createProcessInheriting(L"shutdown.exe /s /t 0", platform::kCreateNoWindow, L"",
                                                 platform::StartupInfoT{}, started);
    }));
    // A Unix path, directly or through a shell, and a program that is no Windows program.
    EXPECT_TRUE(refused([&] {
        return platform::createProcessInheriting(L"cmd.exe /c \\\\?\\unix\\bin\\true", platform::kCreateNoWindow, L"",
                                                 platform::StartupInfoT{}, started);
    }));
    EXPECT_TRUE(refused([&] {
        return platform::createProcess(L"", L"\"//?/unix/bin/true\"", platform::kCreateNoWindow,
                                       platform::StartupInfoT{}, started);
    }));
    ASSERT_TRUE(writeWholeFile("D:\\logs\\unixprogram.exe", std::string("\x7f"
                                                                        "ELF\x02\x01\x01",
                                                                        7) +
                                                                std::string(120, '\0')));
    EXPECT_TRUE(refused([&] {
        return platform::createProcess(L"D:\\logs\\unixprogram.exe", L"unixprogram.exe", platform::kCreateNoWindow,
                                       platform::StartupInfoT{}, started);
    }));
}

TEST_F(WineSafetyTest, OtherWindowsProgramsAndStandInsAtAToolsPathStillRun)
{
    std::uint32_t exitCode = 0;
    ASSERT_TRUE(launched(L"cmd.exe /c exit 3", exitCode)) << platform::lastError();
    EXPECT_EQ(exitCode, 3u);
    // A Windows program that is not Wine's own, named like a tool: what a stand-in is.
    const std::wstring self = platform::commandLineArguments().at(0);
    ASSERT_TRUE(platform::copyFile(self, L"D:\\logs\\netsh.exe", false)) << platform::lastError();
    ASSERT_TRUE(launched(L"D:\\logs\\netsh.exe --gtest_filter=NoSuchTest", exitCode)) << platform::lastError();
    EXPECT_EQ(exitCode, 0u);
}

}  // namespace
}  // namespace halvern::test
