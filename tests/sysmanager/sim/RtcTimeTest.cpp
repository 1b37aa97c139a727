// Reading the I2C RTC for the Windows clock: its time when it holds one, 2018-01-01 when it does not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "sysmanager/sim/TimeTestSupport.h"

namespace halvern::test {
namespace {

using ::testing::ElementsAre;

class RtcTimeTest : public SimulatedClockTest {
protected:
    // The messages after the SPB devices were enabled.
    static std::vector<std::string> timeMessages()
    {
        auto messages = logMessages();
        const int done = findMessage(messages, "enableSpbDevices done!");
        return {messages.begin() + done + 1, messages.end()};
    }
};

TEST_F(RtcTimeTest, AClockThatHoldsItsTimeGivesIt)
{
    platform::SystemTime time;
    ASSERT_TRUE(SysManagerC::Instance()->GetI2cRtcTime(time));
    EXPECT_TRUE(SysManagerC::Instance()->IsRtcValid());
    EXPECT_EQ(time.year, 2024);
    EXPECT_EQ(time.month, 2);
    EXPECT_EQ(time.day, 29);
    EXPECT_THAT(timeMessages(), ElementsAre("Get I2C RTC Time: 2024-02-29 07:05:09"));
}

TEST_F(RtcTimeTest, AClockThatLostItsDataOrCannotBeReadGivesTheDefault)
{
    m_rtc.loseData();
    platform::SystemTime time;
    ASSERT_TRUE(SysManagerC::Instance()->GetI2cRtcTime(time));
    EXPECT_FALSE(SysManagerC::Instance()->IsRtcValid());
    EXPECT_EQ(time.year, 2018);
    EXPECT_EQ(time.month, 1);
    EXPECT_EQ(time.day, 1);

    m_rtc.setBroken(true);
    ASSERT_TRUE(SysManagerC::Instance()->GetI2cRtcTime(time));
    EXPECT_THAT(timeMessages(),
                ElementsAre("[SysManagerC::GetI2cRtcTime] [ERROR]: SPB_getTime Failed: 2",
                            "[ERROR]: It's not possible to read the RTC time! RTC was never set! Set Default system "
                            "time: 2018-01-01 00:00:00",
                            "Get I2C RTC Time: 2018-01-01 00:00:00",
                            "[SysManagerC::GetI2cRtcTime] [ERROR]: SPB_getTime Failed: 1",
                            "[ERROR]: It's not possible to read the RTC time! I2C communication problem to read the "
                            "RTC. Set system time: 2018-01-01 00:00:00",
                            "Get I2C RTC Time: 2018-01-01 00:00:00"));
}

TEST_F(RtcTimeTest, WithoutTheDevicesThereIsNoTime)
{
    m_server.stop();
    platform::SystemTime time;
    EXPECT_FALSE(SysManagerC::Instance()->GetI2cRtcTime(time));
    EXPECT_THAT(timeMessages(), ElementsAre("[SysManagerC::GetI2cRtcTime] [ERROR]: initSpbLibrary Failed"));
}

}  // namespace
}  // namespace halvern::test
