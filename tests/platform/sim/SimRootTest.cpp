#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/Process.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class SimRootTest : public InstrumentTest {};

TEST_F(SimRootTest, WindowsPathsLandInTheRootWithTheSpellingOnDisk)
{
    const std::string root = platform::sim::root();
    EXPECT_EQ(platform::sim::resolveWindowsPath("D:\\logs\\Halvern.log"), root + "/D/logs/Halvern.log");
    EXPECT_EQ(platform::sim::resolveWindowsPath("d:\\LOGS\\Halvern.log"), root + "/D/logs/Halvern.log");
    EXPECT_EQ(platform::sim::resolveWindowsPath("C:\\VEXARBATCHES\\unprotected\\Zentor.fw"),
              root + "/C/vexarBatches/Unprotected/Zentor.fw");
    // Below a missing folder nothing can match: the spelling given is kept.
    EXPECT_EQ(platform::sim::resolveWindowsPath("F:\\System\\software.img"), root + "/F/System/software.img");
}

// A client names paths (command lines, firmware images): none of them may reach the machine the simulation
// runs on.
TEST_F(SimRootTest, ParentFoldersStopAtTheDrivesRoot)
{
    const std::string root = platform::sim::root();
    EXPECT_EQ(platform::sim::resolveWindowsPath("D:\\..\\..\\..\\etc\\passwd"), root + "/D/etc/passwd");
    EXPECT_EQ(platform::sim::resolveWindowsPath("d:\\LOGS\\x\\..\\Halvern.log"), root + "/D/logs/Halvern.log");
    EXPECT_EQ(platform::sim::resolveWindowsPath("..\\..\\bin\\sh"), root + "/C/bin/sh");

    platform::ProcessInformationT started;
    EXPECT_FALSE(platform::createProcess(L"", L"C:\\..\\..\\..\\..\\..\\..\\..\\bin\\true", 0, platform::StartupInfoT{},
                                         started));
    EXPECT_EQ(platform::lastError(), platform::kErrorFileNotFound);
}

// The session's process list is changed by Halvern and by the stand-ins it starts, at the same time: no
// change may be lost, and a reader never meets a half-written list (it once read an empty one and found no
// user logged on).
TEST_F(SimRootTest, ASharedFileLosesNoChangeAndIsNeverSeenHalfWritten)
{
    const std::string path = platform::sim::root() + "/sim/session/processes";
    const std::string system = "4 0 System\n612 1 winlogon.exe\n";
    ASSERT_TRUE(platform::sim::updateSharedFile(path, [&](const std::string&) { return system; }));

    std::atomic<bool> writing{true};
    std::atomic<int> tornReads{0};
    std::thread reader([&] {
        while (writing) {
            std::ifstream in(path);
            std::ostringstream content;
            content << in.rdbuf();
            if (content.str().compare(0, system.size(), system) != 0) ++tornReads;
        }
    });
    constexpr int kWriters = 4;
    constexpr int kLinesEach = 40;
    std::vector<std::thread> writers;
    for (int w = 0; w < kWriters; ++w) {
        writers.emplace_back([&, w] {
            for (int i = 0; i < kLinesEach; ++i) {
                const std::string line = std::to_string(1000 + w * kLinesEach + i) + " 1 explorer.exe\n";
                EXPECT_TRUE(platform::sim::updateSharedFile(path, [&](const std::string& list) { return list + line; }));
            }
        });
    }
    for (auto& writer : writers)
        writer.join();
    writing = false;
    reader.join();

    std::ifstream in(path);
    int lines = 0;
    for (std::string line; std::getline(in, line);)
        ++lines;
    EXPECT_EQ(lines, 2 + kWriters * kLinesEach);
    EXPECT_EQ(tornReads.load(), 0);
}

TEST(SimRootWithoutRoot, NothingResolvesWithoutARoot)
{
    platform::sim::setRoot("");
    EXPECT_EQ(platform::sim::resolveWindowsPath("D:\\logs\\Halvern.log"), "");
}

}  // namespace
}  // namespace halvern::test
