// Reading the I2C RTC for the Windows clock: its time when it holds one, 2018-01-01 when it does not.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "platform/Calendar.h"
#include "platform/sim/SimRoot.h"
#include "sim/i2c/I2cDeviceServer.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

using ::testing::ElementsAre;

class RtcTimeTest : public InstrumentTest {
protected:
    void startDevices()
    {
        m_server.add("IOExpander", m_expander);
        m_server.add("RTClock", m_rtc);
        m_server.add("EEPROM", m_eeprom);
        std::string error;
        ASSERT_TRUE(m_server.start(platform::sim::root(), error)) << error;
    }
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        m_server.stop();
        InstrumentTest::TearDown();
    }
    // The messages after the SPB devices were enabled.
    static std::vector<std::string> timeMessages()
    {
        auto messages = logMessages();
        const int done = findMessage(messages, "enableSpbDevices done!");
        return {messages.begin() + done + 1, messages.end()};
    }

    std::atomic<std::int64_t> m_now{0};
    sim::IoExpanderModelC m_expander;
    sim::RtcModelC m_rtc{[this] { return m_now.load(); },
                         platform::daysFromCivil(2024, 2, 29) * 86400 + 7 * 3600 + 5 * 60 + 9};
    sim::EepromModelC m_eeprom;
    sim::I2cDeviceServerC m_server;
};

TEST_F(RtcTimeTest, AClockThatHoldsItsTimeGivesIt)
{
    startDevices();
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
    startDevices();
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
    platform::SystemTime time;
    EXPECT_FALSE(SysManagerC::Instance()->GetI2cRtcTime(time));
    EXPECT_THAT(timeMessages(), ElementsAre("[SysManagerC::GetI2cRtcTime] [ERROR]: initSpbLibrary Failed"));
}

}  // namespace
}  // namespace halvern::test
