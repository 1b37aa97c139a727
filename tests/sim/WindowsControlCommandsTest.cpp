// The Windows side of the simulated instrument as a person acts on it: its clock and zone are shown, the
// write filter is switched, a service is stopped.
#include <gtest/gtest.h>

#include "platform/Privilege.h"
#include "platform/Service.h"
#include "platform/Time.h"
#include "platform/sim/SimWriteFilter.h"
#include "sim/WindowsControlCommands.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

class WindowsControlCommandsTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        sim::addWindowsControlCommands(m_commands);
    }
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
    sim::ControlCommandsC m_commands;
};

TEST_F(WindowsControlCommandsTest, TheClockShowsTheInstrumentsTimeAndZone)
{
    {
        const platform::PrivilegeScopeC privilege(platform::kSeSystemtimePrivilege);
        ASSERT_TRUE(platform::setSystemTime(platform::SystemTime{2031, 6, 0, 15, 12, 0, 0, 0}));
    }
    const std::string reply = m_commands.execute("clock get");
    EXPECT_EQ(reply.rfind("OK utc 2031-06-15 12:00:", 0), 0u) << reply;
    EXPECT_NE(reply.find(" zone UTC"), std::string::npos) << "a fresh instrument runs on UTC: " << reply;
    EXPECT_EQ(m_commands.execute("clock set").rfind("ERROR", 0), 0u);
}

TEST_F(WindowsControlCommandsTest, TheWriteFilterIsSwitchedAsTheInstrumentReadsIt)
{
    bool active = true;
    ASSERT_TRUE(SysManagerC::Instance()->GetUWFilter(active));
    EXPECT_FALSE(active) << "a fresh instrument is not protected";
    EXPECT_EQ(m_commands.execute("uwf on"), "OK");
    ASSERT_TRUE(SysManagerC::Instance()->GetUWFilter(active));
    EXPECT_TRUE(active);
    EXPECT_EQ(m_commands.execute("uwf off"), "OK");
    ASSERT_TRUE(SysManagerC::Instance()->GetUWFilter(active));
    EXPECT_FALSE(active);
    EXPECT_EQ(m_commands.execute("uwf maybe").rfind("ERROR", 0), 0u);

    // What uwfmgr sets for the next boot changes nothing before the restart.
    ASSERT_TRUE(platform::sim::setNextBootFilterState(true));
    EXPECT_EQ(m_commands.execute("uwf show"), "OK current off next on");
    ASSERT_TRUE(SysManagerC::Instance()->GetUWFilter(active));
    EXPECT_FALSE(active);
    EXPECT_EQ(m_commands.execute("uwf reboot"), "OK");
    ASSERT_TRUE(SysManagerC::Instance()->GetUWFilter(active));
    EXPECT_TRUE(active);
    EXPECT_EQ(m_commands.execute("uwf show"), "OK current on next on");
    EXPECT_EQ(m_commands.execute("uwf set off"), "OK");
    EXPECT_EQ(m_commands.execute("uwf show"), "OK current off next off");
}

TEST_F(WindowsControlCommandsTest, AStoppedTimeServiceIsStartedAgain)
{
    platform::ManualClockC clock;
    platform::setClock(&clock);
    EXPECT_EQ(m_commands.execute("service W32Time get"), "OK STOPPED");
    ASSERT_TRUE(SysManagerC::Instance()->startW32TimeService());
    EXPECT_EQ(m_commands.execute("service W32Time get"), "OK RUNNING");
    EXPECT_EQ(m_commands.execute("service W32Time stop"), "OK");
    ASSERT_TRUE(SysManagerC::Instance()->startW32TimeService());
    EXPECT_EQ(logMessages(), (std::vector<std::string>{"W32Time Service started.", "W32Time Service started."}));
}

}  // namespace
}  // namespace halvern::test
