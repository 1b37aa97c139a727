// The display and touch board on COM5 and the calibration applications' running mutexes, as Halvern's
// HMI board manager meets them.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>
#include <string>

#include "links/ProcRunner.h"
#include "links/SerialPortC.h"
#include "platform/Sync.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlCommands.h"
#include "sim/board/HmiControlCommands.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "support/Eventually.h"

namespace halvern::test {
namespace {

class HmiBoardTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        std::string error;
        ASSERT_TRUE(m_hmi.start(platform::sim::root(), error)) << error;
        sim::addHmiControlCommands(m_commands, m_hmi, m_mutexes);
    }
    void TearDown() override
    {
        m_hmi.stop();
        InstrumentTest::TearDown();
    }
    // One exchange with the port table's terminator, as the manager makes it.
    static std::string ask(const std::string& request)
    {
        std::string reply;
        EXPECT_TRUE(links::comPortTransaction("DIVO", "", request + "\r\n", reply, 100));
        return reply;
    }
    // Whether a calibration application runs, as Halvern tells it: the mutex of that name exists.
    static bool running(const wchar_t* name)
    {
        platform::UniqueHandle probe = platform::createMutex(nullptr, false, name);
        return probe && platform::lastError() == platform::kErrorAlreadyExists;
    }

    sim::HmiBoardModelC m_hmi;
    sim::CalibrationMutexesC m_mutexes;
    sim::ControlCommandsC m_commands;
};

TEST_F(HmiBoardTest, RegistersAnswerWithFourHexDigitsAsSetFromOutside)
{
    EXPECT_EQ(ask(""), "");  // the wake-up
    EXPECT_EQ(ask("G2B"), "R2B=0010\r");
    EXPECT_EQ(ask("G29"), "R29=0010\r");
    EXPECT_EQ(m_commands.execute("hmi touch 0000"), "OK touch=0000 voltage=0010 silent=off");
    EXPECT_EQ(m_commands.execute("hmi voltage 1a2F"), "OK touch=0000 voltage=1A2F silent=off");
    EXPECT_EQ(ask("G2B"), "R2B=0000\r");
    EXPECT_EQ(ask("G29"), "R29=1A2F\r");
    EXPECT_EQ(ask("G77"), "ERR\r");
}

TEST_F(HmiBoardTest, SilentBoardTakesRequestsAndAnswersNothing)
{
    EXPECT_EQ(m_commands.execute("hmi silent on"), "OK touch=0010 voltage=0010 silent=on");
    EXPECT_EQ(ask("G2B"), "");
    m_commands.execute("hmi silent off");
    EXPECT_EQ(ask("G2B"), "R2B=0010\r");
}

TEST_F(HmiBoardTest, ControlWordsRefuseBadValues)
{
    for (const char* line : {"hmi", "hmi touch", "hmi touch 10", "hmi touch 00100", "hmi voltage zzzz",
                             "hmi silent maybe", "mutex hold", "mutex hold screen", "mutex grab touch"})
        EXPECT_EQ(m_commands.execute(line).rfind("ERROR usage:", 0), 0u) << line;
}

TEST_F(HmiBoardTest, HeldMutexesSayTheCalibrationApplicationsRun)
{
    EXPECT_FALSE(running(L"Global\\TOUCHSCRAPP"));
    EXPECT_EQ(m_commands.execute("mutex hold touch"), "OK holding the touch calibration's mutex");
    EXPECT_TRUE(running(L"Global\\TOUCHSCRAPP"));
    EXPECT_FALSE(running(L"Global\\VLTGSCRAPP"));
    EXPECT_EQ(m_commands.execute("mutex hold voltage"), "OK holding the voltage calibration's mutex");
    EXPECT_TRUE(running(L"Global\\VLTGSCRAPP"));
    EXPECT_EQ(m_commands.execute("mutex release touch"), "OK released the touch calibration's mutex");
    EXPECT_FALSE(running(L"Global\\TOUCHSCRAPP"));
    EXPECT_TRUE(running(L"Global\\VLTGSCRAPP"));
}

TEST_F(HmiBoardTest, CalibrationApplicationHoldsItsMutexWhileItRuns)
{
    std::string error;
    ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    platform::sim::makeDirectories(platform::sim::root() + "/sim/apps");
    std::ofstream(platform::sim::root() + "/sim/apps/voltage-calibration") << "exit-after-ms=400\n";
    std::ostringstream runnerLog;
    links::ProcRunner runner(runnerLog);
    ASSERT_TRUE(runner.start(L"D:\\ZentorTools\\ScreenVoltageCalibrationApp.exe", L""));
    EXPECT_TRUE(eventually([] { return running(L"Global\\VLTGSCRAPP"); }));
    EXPECT_FALSE(running(L"Global\\TOUCHSCRAPP"));
    EXPECT_TRUE(runner.wait(5000));
    EXPECT_FALSE(running(L"Global\\VLTGSCRAPP"));
}

}  // namespace
}  // namespace halvern::test
