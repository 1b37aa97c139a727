#include <gtest/gtest.h>

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

TEST(SimRootWithoutRoot, NothingResolvesWithoutARoot)
{
    platform::sim::setRoot("");
    EXPECT_EQ(platform::sim::resolveWindowsPath("D:\\logs\\Halvern.log"), "");
}

}  // namespace
}  // namespace halvern::test
