// The simulated I2C devices as halvern-sim offers them: the clock counts and stops as the part does, and
// the control commands break devices, drop the clock's supply and set the revision.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "platform/Calendar.h"
#include "sim/i2c/I2cControlCommands.h"

namespace halvern::test {
namespace {

using sim::RtcModelC;

TEST(RtcModelTest, CountsWhileRunningAndFreezesWhileStopped)
{
    std::atomic<std::int64_t> now{0};
    RtcModelC rtc([&now] { return now.load(); }, 1'700'000'000);
    now += 10;
    EXPECT_EQ(rtc.unixTime(), 1'700'000'010);
    std::vector<std::uint8_t> read;
    ASSERT_EQ(rtc.transfer({RtcModelC::kControl0, RtcModelC::kControl0Stop}, 0, read), 0u);
    now += 50;
    EXPECT_EQ(rtc.unixTime(), 1'700'000'010);
    ASSERT_EQ(rtc.transfer({RtcModelC::kControl0, 0x00}, 0, read), 0u);
    ASSERT_EQ(rtc.transfer({RtcModelC::kControl0, 0x00}, 0, read), 0u) << "running on keeps counting";
    now += 5;
    EXPECT_EQ(rtc.unixTime(), 1'700'000'015);

    // Flags are cleared by writing 0 only.
    rtc.loseData();
    ASSERT_EQ(rtc.transfer({RtcModelC::kFlags, 0xFF}, 1, read), 0u);
    ASSERT_EQ(rtc.transfer({RtcModelC::kFlags}, 1, read), 0u);
    EXPECT_EQ(read.at(0), RtcModelC::kFlagVlf);
    EXPECT_EQ(rtc.unixTime(), platform::daysFromCivil(2000, 1, 1) * 86400);
}

// What a driver that ignores the pages meets on the real part: the tail of a long write overwrites the
// start of its page, and the part is deaf while it programs.
TEST(EepromModelTest, AWriteWrapsWithinItsPageAndThePartIsBusyMeanwhile)
{
    sim::EepromModelC eeprom(std::chrono::milliseconds(50));
    std::vector<std::uint8_t> read;
    ASSERT_EQ(eeprom.transfer({6, 0xA1, 0xA2, 0xA3, 0xA4}, 0, read), 0u);
    EXPECT_NE(eeprom.transfer({6}, 1, read), 0u) << "no acknowledge during the write cycle";
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    ASSERT_EQ(eeprom.transfer({0}, 9, read), 0u);
    EXPECT_EQ(read, (std::vector<std::uint8_t>{0xA3, 0xA4, 'N', 'T', '-', 'S', 0xA1, 0xA2, '-'}));

    // Reading runs on across pages.
    sim::EepromModelC idle(std::chrono::milliseconds(0));
    ASSERT_EQ(idle.transfer({6}, 4, read), 0u);
    EXPECT_EQ(read, (std::vector<std::uint8_t>{'I', 'M', '-', 'B'}));
}

TEST(I2cControlCommandsTest, BreakFixVlfAndRevision)
{
    sim::ControlCommandsC commands;
    sim::I2cInstrumentDevicesS devices;
    sim::addI2cControlCommands(commands, devices);

    EXPECT_EQ(commands.execute("i2c break rtc"), "OK");
    std::vector<std::uint8_t> read;
    EXPECT_NE(devices.rtc.transfer({RtcModelC::kFlags}, 1, read), 0u);
    EXPECT_EQ(commands.execute("i2c fix rtc"), "OK");
    EXPECT_EQ(devices.rtc.transfer({RtcModelC::kFlags}, 1, read), 0u);
    EXPECT_EQ(read.at(0) & RtcModelC::kFlagVlf, 0) << "a fresh instrument's clock holds its time";

    EXPECT_EQ(commands.execute("rtc vlf"), "OK");
    EXPECT_EQ(devices.rtc.peek(RtcModelC::kFlags) & RtcModelC::kFlagVlf, RtcModelC::kFlagVlf);

    EXPECT_EQ(commands.execute("revision 5"), "OK");
    EXPECT_EQ(devices.ioExpander.peek(sim::IoExpanderModelC::kInput) & 7, 5);
    EXPECT_EQ(commands.execute("revision 8").rfind("ERROR", 0), 0u);
    EXPECT_EQ(commands.execute("i2c break clock").rfind("ERROR", 0), 0u);
}

}  // namespace
}  // namespace halvern::test
