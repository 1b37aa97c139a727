// The sensor board's telnet shell and Ethernet link as Halvern's telnet client and device tool see them.
#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "app/Log.h"
#include "links/ProcRunner.h"
#include "links/TelnetConnection.h"
#include "platform/Registry.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlCommands.h"
#include "sim/board/SensorBoardControlCommands.h"
#include "sim/board/SensorBoardModelC.h"
#include "sim/standin/StandInInstall.h"
#include "support/TestEnvironment.h"
#include "support/Eventually.h"

namespace halvern::test {
namespace {

const char* const kDevcon = "C:\\vexarBatches\\FirmwareUpdater\\devcon.exe";
const char* const kAdapter = "@PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213D5DE2&0&00E1";

class SensorBoardTelnetTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
        m_board.setBootDelay(30);
        ASSERT_TRUE(m_board.start(platform::sim::root(), error)) << error;
        sim::addSensorBoardControlCommands(m_commands, m_board);
        // Halvern finds the board where the simulated instrument's registry says.
        const auto port = platform::sim::readValue(
            platform::sim::keyFolder(platform::RegHive::LocalMachine, "SOFTWARE\\Vexar\\Halvern"),
            "SensorBoardTelnetPort");
        ASSERT_TRUE(port.has_value());
        EXPECT_EQ(port->type, platform::kRegDword);
        EXPECT_EQ(port->data, std::to_string(m_board.telnetPort()));
        links::setTelnetEndpoint({"127.0.0.1", port->data});
        ASSERT_TRUE(eventually([&] { return m_board.linkUp(); }));
    }
    void TearDown() override
    {
        links::setTelnetEndpoint({});
        m_board.stop();
        InstrumentTest::TearDown();
    }
    static bool connects()
    {
        links::TelnetConnection connection;
        return connection.connect(100);
    }
    static std::string run(const std::string& command, int& status)
    {
        std::string reply;
        links::runTelnetCommand(command, status, reply, 2000);
        return reply;
    }
    static std::string devcon(const std::string& arguments)
    {
        std::string output;
        std::uint32_t exitCode = 99;
        EXPECT_TRUE(links::runVantCommand(std::string(kDevcon) + " " + arguments, output, exitCode, 5000, ""));
        EXPECT_EQ(exitCode, 0u) << output;
        return output;
    }
    static bool contains(const std::string& text, const std::string& part)
    {
        return text.find(part) != std::string::npos;
    }

    sim::SensorBoardModelC m_board;
    sim::ControlCommandsC m_commands;
};

TEST_F(SensorBoardTelnetTest, ShellReportsStatusesAsTheTelnetClientReadsThem)
{
    int status = -1;
    std::string reply;
    EXPECT_FALSE(links::runTelnetCommand("false", status, reply));
    EXPECT_EQ(status, 1);
    EXPECT_TRUE(contains(reply, "\nRESULT: 1\r\n")) << reply;

    EXPECT_TRUE(links::runTelnetCommand("echo hi", status, reply));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(contains(reply, "\nhi\r\n")) << reply;

    EXPECT_TRUE(contains(run("cd /tmp && echo $?", status), "\n0\r\n"));
    EXPECT_EQ(status, 0);
    EXPECT_TRUE(contains(run("cd /tmp && pwd", status), "\n/tmp\r\n"));
    // Each connection has a shell of its own that starts at home.
    EXPECT_TRUE(contains(run("pwd", status), "\n/home/root\r\n"));
    EXPECT_TRUE(contains(run("false; echo \"was $?\"", status), "\nwas 1\r\n"));
    EXPECT_TRUE(contains(run("false || echo rescued", status), "\nrescued\r\n"));

    const std::string missing = run("cd /nowhere && echo reached", status);
    EXPECT_EQ(status, 2);
    EXPECT_FALSE(contains(missing, "\nreached")) << missing;
    EXPECT_TRUE(contains(run("nosuch -x", status), "sh: nosuch: not found\r\n"));
    EXPECT_EQ(status, 127);
}

TEST_F(SensorBoardTelnetTest, TestsChooseACommandsStatusAndOutput)
{
    int status = -1;
    EXPECT_TRUE(contains(run("fail 3 went wrong", status), "\nwent wrong\r\n"));
    EXPECT_EQ(status, 3);

    std::ofstream(platform::sim::root() + "/sim/sensorboard/bin/calibrate")
        << "#status 4\nfirst line\n#stderr broken sensor\n";
    const std::string reply = run("calibrate", status);
    EXPECT_EQ(status, 4);
    EXPECT_TRUE(contains(reply, "\nfirst line\r\nbroken sensor\r\n")) << reply;

    // What a command writes to a file is there for the next one, on any connection.
    run("echo saved > /tmp/note", status);
    EXPECT_TRUE(contains(run("cat /tmp/note", status), "\nsaved\r\n"));
    run("echo VANT: from telnet > /dev/kmsg", status);
    EXPECT_EQ(m_board.kernelLog().back(), "VANT: from telnet");

    std::string output;
    EXPECT_FALSE(links::runMoraCommand("fail 5", output, status, 0, "/tmp"));
    EXPECT_EQ(status, 5);
}

TEST_F(SensorBoardTelnetTest, UnpluggedLinkRefusesUntilTheAdapterIsRestarted)
{
    links::TelnetConnection open;
    ASSERT_TRUE(open.connect(100));
    EXPECT_EQ(m_commands.execute("board eth unplug"), "OK ethernet unplugged");
    EXPECT_FALSE(connects());
    // The session that was open is gone with the link.
    std::string reply;
    int status = -1;
    EXPECT_FALSE(open.execute("echo still", reply, status, 500));

    EXPECT_TRUE(contains(devcon(std::string("disable ") + kAdapter),
                         "PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213D5DE2&0&00E1: Disabled"));
    EXPECT_FALSE(connects());
    const std::string enabled =
        devcon(std::string("enable @pci\\ven_8086&dev_1533&subsys_00000000&rev_03\\4&213d5de2&0&00e1"));
    EXPECT_TRUE(contains(enabled, ": Enabled")) << enabled;
    EXPECT_TRUE(contains(enabled, "1 device(s) are enabled.")) << enabled;
    EXPECT_TRUE(eventually(connects));
}

TEST_F(SensorBoardTelnetTest, DisabledAdapterTakesThePluggedLinkDownToo)
{
    EXPECT_TRUE(contains(devcon(std::string("disable ") + kAdapter), "1 device(s) disabled."));
    EXPECT_TRUE(eventually([&] { return !connects(); }));
    EXPECT_TRUE(contains(m_commands.execute("board status"), "adapter=disabled"));
    EXPECT_EQ(devcon("disable @PCI\\VEN_10EC&DEV_8168\\0"), "No matching devices found.\n");
    devcon(std::string("enable ") + kAdapter);
    EXPECT_TRUE(eventually(connects));
}

TEST_F(SensorBoardTelnetTest, StoppedBoardRefusesAndItsPlugComesBackWithTheBoot)
{
    EXPECT_EQ(m_commands.execute("board eth unplug"), "OK ethernet unplugged");
    EXPECT_EQ(m_commands.execute("board eth plug"), "OK ethernet plugged");
    EXPECT_TRUE(connects());
    EXPECT_EQ(m_commands.execute("board stop"), "OK board stopped");
    EXPECT_FALSE(connects());
    EXPECT_TRUE(contains(m_commands.execute("board status"), "power=off stage=off link=down"));
    EXPECT_EQ(m_commands.execute("board start"), "OK board booting");
    EXPECT_TRUE(eventually(connects));
}

TEST_F(SensorBoardTelnetTest, ControlWordsRefuseWhatTheyDoNotKnow)
{
    for (const char* line : {"board", "board boot-delay", "board boot-delay soon", "board boot-delay -5",
                             "board eth sideways", "board uboot-only maybe", "board kmsg all", "board reboot"})
        EXPECT_EQ(m_commands.execute(line).rfind("ERROR usage: board", 0), 0u) << line;
    EXPECT_EQ(m_commands.execute("board start"), "ERROR the board is running; stop it first");
}

}  // namespace
}  // namespace halvern::test
