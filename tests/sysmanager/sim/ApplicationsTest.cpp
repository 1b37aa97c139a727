// The instrument's applications on the simulated instrument: real child processes (the stand-ins of the
// sim root) started in order, ended in order, and the power cycle that halts the sensor board and shuts
// Windows down.
#include <gtest/gtest.h>

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <thread>
#include <vector>

#include "links/TelnetConnection.h"
#include "platform/sim/SimRoot.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

std::string simFile(const std::string& relative)
{
    return platform::sim::root() + "/sim/" + relative;
}

void writeSimFile(const std::string& relative, const std::string& text)
{
    const std::string path = simFile(relative);
    platform::sim::makeDirectories(path.substr(0, path.rfind('/')));
    std::ofstream(path, std::ios::trunc) << text;
}

std::vector<std::string> linesOf(const std::string& relative)
{
    std::vector<std::string> lines;
    std::ifstream in(simFile(relative));
    for (std::string line; std::getline(in, line);)
        lines.push_back(line);
    return lines;
}

bool contains(const std::vector<std::string>& lines, const std::string& line)
{
    return std::find(lines.begin(), lines.end(), line) != lines.end();
}

bool anyStartsWith(const std::vector<std::string>& lines, const std::string& prefix)
{
    return std::any_of(lines.begin(), lines.end(), [&](const std::string& line) { return line.rfind(prefix, 0) == 0; });
}

// The stand-ins record their starts themselves, a moment after they were started.
bool waitForLine(const std::string& relative, const std::string& line)
{
    for (int wait = 0; wait < 500; ++wait) {
        if (contains(linesOf(relative), line)) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return false;
}

class ApplicationsTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
        manager = SysManagerC::Instance();
        manager->SetBackendToFrontendDelay(0);
    }
    void TearDown() override
    {
        // Nothing started here may outlive the test.
        manager->RequestComApplicationExit();
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }

    SysManagerC* manager = nullptr;
};

TEST_F(ApplicationsTest, TheInstrumentNameDecidesWhetherTheFrontendStarts)
{
    const struct {
        const char* name;
        bool set;
    } names[] = {{"ZENTOR-1000000", false},  {"ZENTOR-1000001", true}, {"zentor-2000000", true},
                 {"SCANNER-5000000", false}, {"ZENTOR-", false},       {"ZENTOR-10000000000", true}};
    for (const auto& name : names) {
        writeSimFile("computer/name", std::string(name.name) + "\n");
        EXPECT_EQ(manager->IsInstrumentNameSet(), name.set) << name.name;
    }

    writeSimFile("computer/name", "ZENTOR-1000000\n");
    ASSERT_TRUE(manager->StartComApplication());
    EXPECT_NE(findMessage(logMessages(),
                          "[SysManagerC::StartComApplication]: Instrument name is set to default one, "
                          "Zentor Frontend is not started"),
              -1);
    EXPECT_FALSE(manager->IsZentorApplicationRunning());
    EXPECT_TRUE(waitForLine("apps/log", "backend started")) << "the backend keeps running";
    EXPECT_FALSE(contains(linesOf("apps/log"), "frontend started"));
}

// The roles of this test's running stand-ins by process id; a program started earlier has the lower id.
std::map<int, std::string> standInChildren()
{
    std::map<int, std::string> children;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) continue;
        std::ifstream stat(entry.path() / "stat");
        std::string line;
        if (!std::getline(stat, line) || line.rfind(')') == std::string::npos) continue;
        std::istringstream fields(line.substr(line.rfind(')') + 2));
        std::string state;
        int parent = 0;
        if (!(fields >> state >> parent) || parent != ::getpid() || state == "Z") continue;
        std::ifstream cmdline(entry.path() / "cmdline", std::ios::binary);
        std::vector<std::string> words;
        for (std::string word; std::getline(cmdline, word, '\0');)
            words.push_back(word);
        std::ifstream environment(entry.path() / "environ", std::ios::binary);
        bool thisInstrument = false;
        for (std::string variable; std::getline(environment, variable, '\0');)
            thisInstrument = thisInstrument || variable == "HALVERN_ROOT=" + platform::sim::root();
        if (thisInstrument && words.size() >= 2 && words[0].find("halvern-standin") != std::string::npos)
            children[std::stoi(name)] = words[1];
    }
    return children;
}

// Virtual time that notes, at each sleep, how long it was and which applications had started before it.
class StartOrderClockC final : public platform::ClockI {
public:
    std::uint64_t tickCount64() override { return m_now; }
    void sleep(std::uint32_t milliseconds) override
    {
        m_now += milliseconds;
        sleeps.push_back(milliseconds);
        // A stand-in notes its start a moment after it was started; nothing started after this sleep can.
        startedBefore.push_back(onSleep ? onSleep(sleeps.size()) : std::vector<std::string>{});
    }
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override
    {
        m_now += milliseconds;
        return std::chrono::milliseconds(0);
    }
    std::function<std::vector<std::string>(std::size_t sleepNumber)> onSleep;
    std::vector<std::uint32_t> sleeps;
    std::vector<std::vector<std::string>> startedBefore;

private:
    std::uint64_t m_now = 1'000'000;
};

TEST_F(ApplicationsTest, ApplicationsStartInOrderWithTheirDelays)
{
    writeSimFile("computer/name", "ZENTOR-1000001\n");
    manager->SetBackendToFrontendDelay(2345);
    StartOrderClockC clock;
    // Before the first wait the console and the diagnostics service run; before the second the backend too.
    const std::vector<std::vector<std::string>> expectedBefore = {{"console", "diagnostics"},
                                                                  {"console", "diagnostics", "backend"}};
    clock.onSleep = [&expectedBefore](std::size_t sleepNumber) {
        const auto& expected = expectedBefore[std::min(sleepNumber, expectedBefore.size()) - 1];
        for (const auto& role : expected)
            waitForLine("apps/log", role + " started");
        std::vector<std::string> started;
        for (const auto& line : linesOf("apps/log"))
            started.push_back(line.substr(0, line.find(' ')));
        return started;
    };
    platform::setClock(&clock);
    ASSERT_TRUE(manager->StartComApplication());
    platform::setClock(nullptr);

    EXPECT_EQ(clock.sleeps, (std::vector<std::uint32_t>{500, 2345}))
        << "500 ms after the diagnostics service, the configured delay after the backend";
    ASSERT_EQ(clock.startedBefore.size(), 2u);
    for (std::size_t i = 0; i < 2; ++i) {
        auto started = clock.startedBefore[i];
        std::sort(started.begin(), started.end());
        auto expected = expectedBefore[i];
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(started, expected) << "before wait " << i + 1;
    }
    EXPECT_TRUE(waitForLine("apps/log", "frontend started"));

    std::vector<std::string> byStart;
    for (const auto& child : standInChildren())
        byStart.push_back(child.second);
    EXPECT_EQ(byStart, (std::vector<std::string>{"console", "diagnostics", "backend", "frontend"}));
}

TEST_F(ApplicationsTest, ApplicationsEndInOrderWithTheStubbornTerminated)
{
    writeSimFile("computer/name", "ZENTOR-1000001\n");
    ASSERT_TRUE(manager->StartComApplication());
    EXPECT_TRUE(manager->IsZentorApplicationRunning());
    auto messages = logMessages();
    EXPECT_NE(findMessage(messages,
                          "[SysManagerC::CreateChildProcess]: WinLogon process found, session id = 1, "
                          "PID = 264"),
              -1)
        << "Halvern runs as SYSTEM and starts the applications in the user's session";

    ASSERT_TRUE(manager->RequestComApplicationExit());
    messages = logMessages();
    const char* tag = "[SysManagerC::RequestComApplicationExit]: ";
    // The backend, frontend and console ignore their close and are terminated; the diagnostics service
    // ends on its request.
    int terminated = 0;
    for (const auto& message : messages)
        if (message.rfind("[SysManagerC::VerifyAndCloseProcess] [ERROR]: Waiting for Process [0x", 0) == 0)
            ++terminated;
    EXPECT_EQ(terminated, 3);
    EXPECT_TRUE(containsInOrder(
        messages, {std::string(tag) + "Closing Zentor Backend", std::string(tag) + "Closing Zentor Frontend",
                   std::string(tag) + "Closing Zentor Diagnostics",
                   "[SysManagerC::ShutdownDiagnosticsService] got 3 bytes from "
                   "\\\\.\\pipe\\DiagnosticsServiceProcessManagement",
                   "[SysManagerC::VerifyAndCloseProcess]: Process finished Succesfully",
                   std::string(tag) + "Closing Zentor DummyConsole"}));
    EXPECT_TRUE(waitForLine("apps/log", "diagnostics shutdown requested"));
    EXPECT_FALSE(manager->IsZentorApplicationRunning());
}

TEST_F(ApplicationsTest, StartDisabledStartsNothingAndAUserAccountSkipsTheWinlogonSearch)
{
    manager->SetAllowMxApplicationStartup(false);
    EXPECT_TRUE(manager->StartComApplication());
    EXPECT_TRUE(linesOf("apps/log").empty());

    manager->SetAllowMxApplicationStartup(true);
    writeSimFile("session/user", "Operator\n");
    platform::ProcessInformationT console;
    ASSERT_TRUE(manager->CreateChildProcess(L"c:\\windows\\system32\\cmd.exe", {}, platform::kCreateNoWindow,
                                            platform::StartupInfoT{}, &console, false));
    EXPECT_FALSE(manager->VerifyAndCloseProcess(&console)) << "the console runs until it is ended";
    const auto messages = logMessages();
    EXPECT_NE(findMessage(messages, "[SysManagerC::IsRunnigFromUserAccount]: Current User Name: [Operator]"), -1);
    EXPECT_NE(findMessage(messages, "[SysManagerC::CreateChildProcess]: Application started as a User"), -1);
    for (const auto& message : messages)
        EXPECT_EQ(message.find("WinLogon"), std::string::npos) << message;
}

TEST_F(ApplicationsTest, WithoutAUserSessionTheDiagnosticsServiceCannotStartAndTheSequenceStops)
{
    writeSimFile("session/processes", "4 0 System\n700 0 winlogon.exe\n");
    EXPECT_FALSE(manager->StartComApplication());
    const auto messages = logMessages();
    const int notFound = findMessage(messages, "[SysManagerC::CreateChildProcess] [ERROR]: WinLogon was not found!");
    ASSERT_NE(notFound, -1);
    EXPECT_TRUE(anyStartsWith({messages.begin() + notFound, messages.end()},
                              "[SysManagerC::StartComApplication] [ERROR]: Failed to start DiagnosticsService.exe, "
                              "ERROR("));
    EXPECT_TRUE(linesOf("apps/log").empty()) << "nothing started, the backend not tried";
}

TEST_F(ApplicationsTest, APowerCycleHaltsTheSensorBoardAndShutsWindowsDownWithoutReboot)
{
    manager->ConfigurePowerCycleRequest(POWER_REQUEST_REBOOT, true, 5);
    ASSERT_TRUE(manager->PowerCycleScannerDevice());
    EXPECT_EQ(linesOf("sensorboard/halted"), std::vector<std::string>{"root@127.0.0.1 init 0"});
    EXPECT_EQ(linesOf("power/shutdown"), std::vector<std::string>{"force=1 timeout=5 reboot=0 reason=0x80000000"});
    EXPECT_TRUE(
        containsInOrder(logMessages(), {"[SysManagerC::PowerCycleScannerDevice]: RequestSensorboardHalt",
                                        "[SysManagerC::RequestSensorboardHalt]: SSH Process Succesfully finished",
                                        "[SysManagerC::PowerCycleScannerDevice]: System Shutdown initiated "
                                        "successfully "}));
}

TEST_F(ApplicationsTest, TheSensorBoardIsWhereTheSettingsSayAndOnlyThere)
{
    const std::string machine = platform::sim::root() + "/registry/HKLM/SOFTWARE/Vexar/Halvern/";
    const std::string user = platform::sim::root() + "/registry/HKCU/SOFTWARE/Vexar/Halvern/";
    EXPECT_EQ(manager->GetSensorBoardAddress(), "127.0.0.1") << "the simulated instrument's own setting";
    // A user's own settings cannot send the ssh halt or the Ethernet checks elsewhere.
    std::ofstream(user + "SensorBoardAddress", std::ios::trunc) << "REG_SZ\n10.20.30.40\n";
    std::ofstream(user + "SensorBoardTelnetPort", std::ios::trunc) << "REG_DWORD\n2323\n";
    EXPECT_EQ(manager->GetSensorBoardAddress(), "127.0.0.1");
    std::ofstream(machine + "SensorBoardTelnetPort", std::ios::trunc) << "REG_DWORD\n4023\n";
    manager->ApplySensorBoardEndpoint();
    EXPECT_EQ(links::telnetEndpoint().host, "127.0.0.1");
    EXPECT_EQ(links::telnetEndpoint().port, "4023");
    const std::string moved = "[SysManagerC::ApplySensorBoardEndpoint] [WARN]: sensor board at 127.0.0.1:4023 instead "
                              "of 192.168.2.1:23 (HKLM\\SOFTWARE\\Vexar\\Halvern)";
    EXPECT_NE(findMessage(logMessages(), moved), -1);

    std::ofstream(machine + "SensorBoardAddress", std::ios::trunc) << "REG_SZ\nsensorboard.local\n";
    EXPECT_EQ(manager->GetSensorBoardAddress(), "192.168.2.1");
    EXPECT_NE(findMessage(logMessages(),
                          "[ERROR]: SensorBoardAddress 'sensorboard.local' is not an IPv4 address, using 192.168.2.1"),
              -1);

    // The instrument's own board is not worth a line.
    std::filesystem::remove(machine + "SensorBoardAddress");
    std::filesystem::remove(machine + "SensorBoardTelnetPort");
    const auto movedLines = [] {
        const auto messages = logMessages();
        return std::count_if(messages.begin(), messages.end(), [](const std::string& message) {
            return message.rfind("[SysManagerC::ApplySensorBoardEndpoint] [WARN]:", 0) == 0;
        });
    };
    const auto before = movedLines();
    manager->ApplySensorBoardEndpoint();
    EXPECT_EQ(links::telnetEndpoint().host, "192.168.2.1");
    EXPECT_EQ(links::telnetEndpoint().port, "23");
    EXPECT_EQ(movedLines(), before);
    links::setTelnetEndpoint({});
}

TEST_F(ApplicationsTest, OnlyRebootAndShutdownArePowerCycles)
{
    for (std::int32_t type : {0, 3}) {
        manager->ConfigurePowerCycleRequest(type, true, 0);
        EXPECT_FALSE(manager->PowerCycleScannerDevice());
        EXPECT_NE(findMessage(logMessages(),
                              "[ERROR]: Invalid ApplicationPowerRequestType for power cycle: " + std::to_string(type)),
                  -1);
    }
    EXPECT_TRUE(linesOf("apps/log").empty()) << "no ssh";
    EXPECT_TRUE(linesOf("power/shutdown").empty());
}

TEST_F(ApplicationsTest, AHangingSshIsEndedAfterItsWaitAndWindowsStillShutsDown)
{
    ScriptedClockC clock;
    platform::setClock(&clock);
    writeSimFile("apps/ssh", "exit-after-ms=never\n");
    manager->ConfigurePowerCycleRequest(POWER_REQUEST_SHUTDOWN, true, 0);
    const std::uint64_t start = clock.tickCount64();
    EXPECT_TRUE(manager->PowerCycleScannerDevice());
    EXPECT_GE(clock.tickCount64() - start, 1500u);
    EXPECT_TRUE(anyStartsWith(logMessages(),
                              "[SysManagerC::RequestSensorboardHalt] [ERROR]: Waiting for SSH Process "
                              "exit failed ERROR("));
    EXPECT_EQ(linesOf("power/shutdown"), std::vector<std::string>{"force=1 timeout=0 reboot=0 reason=0x80000000"});
}

}  // namespace
}  // namespace halvern::test
