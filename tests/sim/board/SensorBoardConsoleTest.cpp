// The sensor board's serial console as Halvern reaches it: one short exchange per request on COM3.
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>

#include "links/SerialPortC.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlCommands.h"
#include "sim/board/SensorBoardControlCommands.h"
#include "sim/board/SensorBoardModelC.h"
#include "support/TestEnvironment.h"
#include "support/Eventually.h"

namespace halvern::test {
namespace {

using StageE = sim::SensorBoardModelC::StageE;

class SensorBoardConsoleTest : public InstrumentTest {
protected:
    void startBoard(int bootDelayMs, bool ubootOnly = false)
    {
        m_board.setBootDelay(bootDelayMs);
        m_board.setUBootOnly(ubootOnly);
        std::string error;
        ASSERT_TRUE(m_board.start(platform::sim::root(), error)) << error;
    }
    void TearDown() override
    {
        m_board.stop();
        InstrumentTest::TearDown();
    }
    // One exchange as the sensor board manager makes it; lines are cut at their line feed.
    std::string exchange(const std::string& request)
    {
        std::string reply;
        EXPECT_TRUE(links::comPortTransaction("MORA", "\n", request, reply, 100));
        return reply;
    }
    bool reaches(StageE stage)
    {
        return eventually([&] { return m_board.stage() == stage; });
    }
    static std::string kmsgFile()
    {
        std::ifstream in(platform::sim::root() + "/sim/sensorboard/kmsg");
        return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    }
    static bool contains(const std::string& text, const std::string& part)
    {
        return text.find(part) != std::string::npos;
    }

    sim::SensorBoardModelC m_board;
};

TEST_F(SensorBoardConsoleTest, UBootReadsTheHardwareVersionButKnowsNoLinuxCommands)
{
    startBoard(50, true);
    const std::string md = exchange("md 0xFF200118 1\r\n");
    EXPECT_TRUE(contains(md, "md 0xFF200118 1\r\n")) << md;  // echoed as typed
    EXPECT_TRUE(contains(md, "ff200118: 00000003")) << md;
    const std::string uname = exchange("uname -o\r\n");
    EXPECT_TRUE(contains(uname, "Unknown command 'uname'")) << uname;
    EXPECT_FALSE(contains(uname, "GNU/Linux")) << uname;
    EXPECT_EQ(m_board.stage(), StageE::UBoot);
}

TEST_F(SensorBoardConsoleTest, RootLogsInAtTheLoginPromptAndTheShellAnswersUname)
{
    startBoard(60);
    ASSERT_TRUE(reaches(StageE::Login));
    EXPECT_TRUE(contains(exchange("admin\r\n"), "Login incorrect"));
    const std::string login = exchange("root\r\n");
    EXPECT_TRUE(contains(login, "root\r\n")) << login;
    EXPECT_EQ(m_board.stage(), StageE::Shell);
    EXPECT_TRUE(contains(exchange("uname -o\r\n"), "\nGNU/Linux\r\n"));
    // The board's own shell is behind the console too.
    EXPECT_TRUE(contains(exchange("nosuch\r\n"), "sh: nosuch: not found"));
}

TEST_F(SensorBoardConsoleTest, LoginTypedDuringTheKernelBootWaitsForThePrompt)
{
    startBoard(600);
    ASSERT_TRUE(reaches(StageE::Kernel));
    const std::string duringBoot = exchange("root\r\n");
    EXPECT_FALSE(contains(duringBoot, "root")) << duringBoot;  // the kernel does not echo
    EXPECT_TRUE(reaches(StageE::Shell));
}

TEST_F(SensorBoardConsoleTest, KernelLogTakesEchoesToKmsgUntilTheNextBoot)
{
    startBoard(40);
    ASSERT_TRUE(reaches(StageE::Login));
    exchange("root\r\n");
    exchange("echo VANT: Halvern started > /dev/kmsg\r\n");
    const auto log = m_board.kernelLog();
    ASSERT_FALSE(log.empty());
    EXPECT_EQ(log.back(), "VANT: Halvern started");
    EXPECT_TRUE(contains(kmsgFile(), "VANT: Halvern started\n"));

    m_board.powerOff();
    m_board.powerOn();
    ASSERT_TRUE(reaches(StageE::Login));
    for (const auto& line : m_board.kernelLog())
        EXPECT_NE(line, "VANT: Halvern started");
    // The record of every boot stays for people to read.
    EXPECT_TRUE(contains(kmsgFile(), "VANT: Halvern started\n"));
}

TEST_F(SensorBoardConsoleTest, StoppedBoardAnswersNothingAndBootsAgainWhenStarted)
{
    startBoard(40);
    sim::ControlCommandsC commands;
    sim::addSensorBoardControlCommands(commands, m_board);
    ASSERT_TRUE(reaches(StageE::Login));
    EXPECT_EQ(commands.execute("board stop"), "OK board stopped");
    EXPECT_EQ(exchange("root\r\n"), "");
    EXPECT_EQ(exchange("md 0xFF200118 1\r\n"), "");

    EXPECT_EQ(commands.execute("board boot-delay 1000"), "OK boot delay 1000 ms from the next start");
    EXPECT_EQ(commands.execute("board start"), "OK board booting");
    EXPECT_TRUE(contains(commands.execute("board status"), "stage=u-boot"));
    EXPECT_TRUE(contains(exchange("md 0xFF200118 1\r\n"), "ff200118: 00000003"));
    EXPECT_TRUE(reaches(StageE::Login));
}

}  // namespace
}  // namespace halvern::test
