// Tools run on this computer through the process runner, with stand-in programs in the sim root that
// print and exit as the test tells them.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "app/Log.h"
#include "links/ProcRunner.h"
#include "platform/sim/SimRoot.h"
#include "tests/support/ScriptProgram.h"
#include "tests/support/TestEnvironment.h"

namespace halvern::test {
namespace {

using ProcRunnerTest = InstrumentTest;

TEST_F(ProcRunnerTest, FailingToolReportsItsCodeAndBothStreams)
{
    installScriptProgram("C:\\vexarBatches\\FirmwareUpdater\\tool.exe", "echo \"out $1\"\necho \"err $2\" >&2\nexit 3");
    std::string output;
    std::uint32_t exitCode = 0;
    ::testing::internal::CaptureStderr();
    const bool ran =
        links::runVantCommand("C:\\vexarBatches\\FirmwareUpdater\\tool.exe one two", output, exitCode, 0, "");
    const std::string runnerLog = ::testing::internal::GetCapturedStderr();
    EXPECT_TRUE(ran);
    EXPECT_EQ(exitCode, 3u);
    EXPECT_EQ(output, "out one\nerr two\n");
    EXPECT_NE(runnerLog.find("BSPProcRunner: Process reported failure, exit code: 3\n"), std::string::npos)
        << runnerLog;
}

TEST_F(ProcRunnerTest, SilentToolSucceedsWithEmptyOutput)
{
    installScriptProgram("C:\\Tools\\quiet.exe", "pwd > \"$HALVERN_ROOT/where\"");
    platform::sim::makeDirectories(platform::sim::resolveWindowsPath("D:\\work"));
    std::string output;
    std::uint32_t exitCode = 7;
    ::testing::internal::CaptureStderr();
    EXPECT_TRUE(links::runVantCommand("C:\\Tools\\quiet.exe", output, exitCode, 5000, "D:\\work"));
    const std::string runnerLog = ::testing::internal::GetCapturedStderr();
    EXPECT_EQ(exitCode, 0u);
    EXPECT_TRUE(output.empty());
    std::size_t reads = 0;
    for (std::size_t at = runnerLog.find("BSPProcRunner: Failed to read: "); at != std::string::npos;
         at = runnerLog.find("BSPProcRunner: Failed to read: ", at + 1))
        ++reads;
    EXPECT_EQ(reads, 2u) << runnerLog;
    // The working directory was the one asked for.
    std::ifstream where(platform::sim::root() + "/where");
    std::string directory;
    std::getline(where, directory);
    EXPECT_EQ(directory, platform::sim::resolveWindowsPath("D:\\work"));
}

TEST_F(ProcRunnerTest, ToolThatOutlivesItsTimeoutIsEnded)
{
    installScriptProgram("C:\\Tools\\hang.exe", "exec sleep 60");
    ScriptedClockC clock;
    platform::setClock(&clock);
    std::string output;
    std::uint32_t exitCode = 0;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(links::runVantCommand("C:\\Tools\\hang.exe", output, exitCode, 100, ""));
    ::testing::internal::GetCapturedStderr();
    EXPECT_NE(findMessage(logMessages(), "[ERROR]: Failed to wait for the process to terminate!"), -1);
}

TEST_F(ProcRunnerTest, MissingToolDoesNotStart)
{
    std::string output;
    std::uint32_t exitCode = 0;
    ::testing::internal::CaptureStderr();
    EXPECT_FALSE(links::runVantCommand("C:\\Tools\\absent.exe", output, exitCode, 100, ""));
    const std::string runnerLog = ::testing::internal::GetCapturedStderr();
    EXPECT_NE(runnerLog.find("BSPProcRunner: Failed to create process: 2"), std::string::npos) << runnerLog;
    EXPECT_NE(findMessage(logMessages(), "[ERROR]: Failed to start the process on VANT!"), -1);
}

}  // namespace
}  // namespace halvern::test
