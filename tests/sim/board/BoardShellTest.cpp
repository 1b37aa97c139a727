// The sensor board's shell as a service tool's commands meet it, whichever way they reach the board.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "platform/sim/SimRoot.h"
#include "sim/board/BoardShellC.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class BoardShellTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        const std::string folder = platform::sim::root() + "/sim/sensorboard";
        sim::BoardShellC::prepareFiles(folder);
        sim::BoardShellHostT host;
        host.boardFolder = folder;
        host.writeKernelLog = [this](const std::string& line) { m_kernelLog.push_back(line); };
        host.kernelLog = [this] { return m_kernelLog; };
        m_shell = std::make_unique<sim::BoardShellC>(host);
    }
    std::string run(const std::string& line) { return m_shell->run(line); }

    std::vector<std::string> m_kernelLog;
    std::unique_ptr<sim::BoardShellC> m_shell;
};

TEST_F(BoardShellTest, StatusFlowsThroughListsAndExpansions)
{
    EXPECT_EQ(run("false; echo $?"), "1\n");
    EXPECT_EQ(run("true && echo '$?' \"$?\""), "$? 0\n");
    EXPECT_EQ(run("false && echo never || echo fallback"), "fallback\n");
    EXPECT_EQ(run("nosuch; echo $?"), "sh: nosuch: not found\n127\n");
    EXPECT_EQ(run("echo -n a\\ b; echo \" c\""), "a b c\n");
    EXPECT_EQ(run("fail 300"), "");
    EXPECT_EQ(m_shell->lastStatus(), 44);  // statuses are 8 bits, as on the board
}

TEST_F(BoardShellTest, DirectoriesAndFilesStayOnTheBoard)
{
    EXPECT_EQ(run("cd /tmp/../etc && pwd && cat hostname"), "/etc\nmora\n");
    EXPECT_EQ(m_shell->prompt(), "root@mora:/etc# ");
    EXPECT_EQ(run("cd ../../../..; pwd"), "/\n");  // never above the board's root
    EXPECT_EQ(run("cd; pwd"), "/home/root\n");
    EXPECT_EQ(m_shell->prompt(), "root@mora:~# ");
    EXPECT_EQ(run("mkdir -p logs/old && cd logs/old && echo one > f && echo two >> f && cat f"), "one\ntwo\n");
    EXPECT_EQ(run("test -f /home/root/logs/old/f && [ -d /tmp ] && [ ! -e /nowhere ] && echo all"), "all\n");
    EXPECT_EQ(run("[ 3 -gt 12 ]; echo $?"), "1\n");
    EXPECT_EQ(run("cat /nowhere"), "cat: can't open '/nowhere': No such file or directory\n");
    EXPECT_EQ(run("echo x > /missing/dir/f; echo $?"),
              "sh: can't create /missing/dir/f: No such file or directory\n1\n");
}

TEST_F(BoardShellTest, RedirectionsAndPipelinesCarryOutputWhereAsked)
{
    EXPECT_EQ(run("echo VANT: marker > /dev/kmsg"), "");
    EXPECT_EQ(m_kernelLog, std::vector<std::string>{"VANT: marker"});
    EXPECT_EQ(run("fail 2 oops 2>/dev/null; echo $?"), "2\n");
    EXPECT_EQ(run("fail 2 oops 2>&1 > /dev/null"), "oops\n");
    EXPECT_EQ(run("echo 'a|b' | cat"), "a|b\n");
    run("echo first > /tmp/l; echo second >> /tmp/l; echo third >> /tmp/l");
    EXPECT_EQ(run("cat /tmp/l | grep -v second | tail -1"), "third\n");
    EXPECT_EQ(run("cat /tmp/l | head -n 2 | wc -l"), "2\n");
    EXPECT_EQ(run("dmesg | grep VANT"), "VANT: marker\n");
    EXPECT_EQ(run("echo x | grep y; echo $?"), "1\n");
    EXPECT_EQ(run("echo x |"), "sh: syntax error: unexpected \"|\"\n");
}

TEST_F(BoardShellTest, ExitEndsTheShellWithItsStatus)
{
    EXPECT_EQ(run("exit 4; echo after"), "");
    EXPECT_TRUE(m_shell->exitRequested());
    EXPECT_EQ(m_shell->lastStatus(), 4);
}

}  // namespace
}  // namespace halvern::test
