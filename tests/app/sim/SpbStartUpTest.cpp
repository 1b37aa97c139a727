// The start-up's SPB step and the hardware check's RTC flag on an instrument with its I2C devices.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/StartUpSteps.h"
#include "platform/sim/SimRoot.h"
#include "sim/i2c/I2cDeviceServer.h"
#include "spb/SpbEnable.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::Not;

class SpbStartUpTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        m_server.add("IOExpander", m_devices.ioExpander);
        m_server.add("RTClock", m_devices.rtc);
        m_server.add("EEPROM", m_devices.eeprom);
        std::string error;
        ASSERT_TRUE(m_server.start(platform::sim::root(), error)) << error;
    }
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        forgetSpbDevices();
        m_server.stop();
        InstrumentTest::TearDown();
    }
    sim::I2cInstrumentDevicesS m_devices;
    sim::I2cDeviceServerC m_server;
};

TEST_F(SpbStartUpTest, DevicesOpenOnceAndTheClockCountsAsConfigured)
{
    m_devices.ioExpander.poke(sim::IoExpanderModelC::kOutput, 0x40);
    EXPECT_TRUE(enableSpbDevices());
    EXPECT_TRUE(wlanPoweredAtPowerOn());
    EXPECT_TRUE(enableSpbDevices()) << "a second call answers the first result";
    isHwErrorDetected(false);
    const auto messages = logMessages();
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "enableSpbDevices done!"), 1);
    EXPECT_THAT(messages, Not(Contains("Halvern [HwRelatedInit] [ERROR]: enableSpbDevices Failed")));
    EXPECT_THAT(messages, Contains("[HW Status] Vexar Bios flashed\t: OK"));
    EXPECT_THAT(messages, Contains("[HW Status] RTC Configured\t: OK"));
}

TEST_F(SpbStartUpTest, AClockThatLostItsDataIsNotConfigured)
{
    m_devices.rtc.loseData();
    m_devices.ioExpander.poke(sim::IoExpanderModelC::kOutput, 0x00);
    EXPECT_TRUE(enableSpbDevices());
    EXPECT_FALSE(wlanPoweredAtPowerOn());
    isHwErrorDetected(false);
    EXPECT_THAT(logMessages(), Contains("[HW Status] RTC Configured\t: NOT OK"));
}

TEST_F(SpbStartUpTest, ABrokenExpanderFailsTheStepButNotTheOpen)
{
    m_devices.ioExpander.setBroken(true);
    EXPECT_TRUE(enableSpbDevices());
    EXPECT_FALSE(wlanPoweredAtPowerOn());
    EXPECT_THAT(logMessages(), ::testing::ElementsAre("Halvern [HwRelatedInit] [ERROR]: enableSpbDevices Failed",
                                                      "enableSpbDevices done!"));
}

}  // namespace
}  // namespace halvern::test
