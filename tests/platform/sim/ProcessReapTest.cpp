// Programs this process starts and forgets: once they end they must not stay behind as zombies, however
// many the instrument starts in its life (a calibration application per request, a tool per command).
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "platform/Process.h"
#include "platform/Sync.h"
#include "support/ScriptProgram.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

// The state letter of /proc/PID/stat; empty once the process is gone altogether.
std::string processState(std::uint32_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string stat;
    if (!std::getline(in, stat)) return {};
    const auto close = stat.rfind(')');
    return close == std::string::npos || close + 2 >= stat.size() ? std::string() : stat.substr(close + 2, 1);
}

int zombiesAmong(const std::vector<std::uint32_t>& pids)
{
    int zombies = 0;
    for (std::uint32_t pid : pids)
        zombies += processState(pid) == "Z" ? 1 : 0;
    return zombies;
}

using ProcessReapTest = InstrumentTest;

TEST_F(ProcessReapTest, ProgramsWhoseHandlesWereClosedAreCollectedOnceTheyEnd)
{
    installScriptProgram("C:\\Tools\\quick.exe", "exit 0");
    installScriptProgram("C:\\Tools\\slow.exe", "sleep 0.3");
    std::vector<std::uint32_t> pids;
    for (int i = 0; i < 20; ++i) {
        // Closed while the program may still run, as a caller that does not wait for it does.
        platform::ProcessInformationT started;
        ASSERT_TRUE(platform::createProcess(i % 2 == 0 ? L"C:\\Tools\\quick.exe" : L"C:\\Tools\\slow.exe", L"", 0,
                                            platform::StartupInfoT{}, started))
            << platform::lastError();
        pids.push_back(started.processId);
    }
    // Every one has ended after its 0.3 s; a zombie left after that is one nobody collects.
    std::this_thread::sleep_for(std::chrono::milliseconds(400));
    for (int wait = 0; wait < 500 && zombiesAmong(pids) > 0; ++wait)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    EXPECT_EQ(zombiesAmong(pids), 0);
}

TEST_F(ProcessReapTest, AProgramWhoseHandleIsKeptStillReportsItsExitCode)
{
    installScriptProgram("C:\\Tools\\quick.exe", "exit 0");
    installScriptProgram("C:\\Tools\\seven.exe", "exit 7");
    // Forgotten programs in the collector's hands beside one whose handle is kept.
    for (int i = 0; i < 5; ++i) {
        platform::ProcessInformationT forgotten;
        ASSERT_TRUE(
            platform::createProcess(L"C:\\Tools\\quick.exe", L"", 0, platform::StartupInfoT{}, forgotten));
    }
    platform::ProcessInformationT kept;
    ASSERT_TRUE(platform::createProcess(L"C:\\Tools\\seven.exe", L"", 0, platform::StartupInfoT{}, kept));
    ASSERT_EQ(platform::waitForSingleObject(kept.process.get(), 10000), platform::kWaitObject0);
    std::uint32_t code = 0;
    ASSERT_TRUE(platform::getExitCodeProcess(kept.process.get(), code));
    EXPECT_EQ(code, 7u);
}

}  // namespace
}  // namespace halvern::test
