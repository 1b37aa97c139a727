// The SPB library against the simulated IO expander, RTC and EEPROM of a fresh instrument.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <string>
#include <vector>

#include "platform/Calendar.h"
#include "platform/sim/SimRoot.h"
#include "sim/i2c/I2cDeviceServer.h"
#include "spb/SpbApi.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using sim::RtcModelC;
using ::testing::Contains;
using ::testing::ElementsAre;

std::tm calendar(int year, int month, int day, int hour, int minute, int second)
{
    std::tm time{};
    time.tm_year = year - 1900;
    time.tm_mon = month - 1;
    time.tm_mday = day;
    time.tm_hour = hour;
    time.tm_min = minute;
    time.tm_sec = second;
    return time;
}

std::int64_t unixTime(int year, int month, int day, int hour, int minute, int second)
{
    return platform::daysFromCivil(year, static_cast<unsigned>(month), static_cast<unsigned>(day)) * 86400 +
           hour * 3600 + minute * 60 + second;
}

class SpbDevicesTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        m_server.add("IOExpander", m_expander);
        m_server.add("RTClock", m_rtc);
        m_server.add("EEPROM", m_eeprom);
        std::string error;
        ASSERT_TRUE(m_server.start(platform::sim::root(), error)) << error;
        SPB_RegisterLogger(&SpbDevicesTest::collect, &m_lines);
    }
    void TearDown() override
    {
        SPB_deinit();
        SPB_UnRegisterLogger();
        m_server.stop();
        InstrumentTest::TearDown();
    }
    static void collect(void* context, int, const char* text)
    {
        std::string line(text);
        if (!line.empty() && line.back() == '\n') line.pop_back();
        static_cast<std::vector<std::string>*>(context)->push_back(line);
    }

    std::atomic<std::int64_t> m_now{1000};
    sim::IoExpanderModelC m_expander;
    RtcModelC m_rtc{[this] { return m_now.load(); }, unixTime(2024, 6, 30, 23, 59, 58)};
    sim::EepromModelC m_eeprom;
    sim::I2cDeviceServerC m_server;
    std::vector<std::string> m_lines;
};

TEST_F(SpbDevicesTest, DevicePowerLinesAndTheRevision)
{
    ASSERT_TRUE(SPB_init());
    m_expander.poke(sim::IoExpanderModelC::kOutput, 0x00);
    ASSERT_TRUE(SPB_setDevPower(0, true));
    ASSERT_TRUE(SPB_setDevPower(2, true));
    EXPECT_EQ(m_expander.peek(sim::IoExpanderModelC::kOutput), 0x60) << "device 0 is bit 6, device 2 bit 5";
    EXPECT_EQ(m_expander.peek(sim::IoExpanderModelC::kConfiguration), 0x1F);
    ASSERT_TRUE(SPB_setDevPower(1, true));
    ASSERT_TRUE(SPB_setDevPower(0, false));
    EXPECT_EQ(m_expander.peek(sim::IoExpanderModelC::kOutput), 0xA0);
    bool on = true;
    ASSERT_TRUE(SPB_getDevPower(0, &on));
    EXPECT_FALSE(on);
    ASSERT_TRUE(SPB_getDevPower(1, &on));
    EXPECT_TRUE(on);

    EXPECT_FALSE(SPB_setDevPower(3, false));
    EXPECT_EQ(m_expander.peek(sim::IoExpanderModelC::kOutput), 0xA0) << "an invalid device changes nothing";
    EXPECT_THAT(m_lines, ElementsAre("SPBCommImlp: reuqested to set power for invalid device: 0x3"));

    m_expander.poke(sim::IoExpanderModelC::kInput, 0xFB);
    std::uint32_t revision = 0;
    ASSERT_TRUE(SPB_getHWRevision(&revision));
    EXPECT_EQ(revision, 3u);

    m_expander.setBroken(true);
    EXPECT_FALSE(SPB_setDevPower(1, false));
    EXPECT_THAT(m_lines, Contains("Failed to read IOExpander!"));
}

TEST_F(SpbDevicesTest, TheClockReadsWhatItCountsAndRefusesTimesItCannotHold)
{
    ASSERT_TRUE(SPB_init());
    m_now += 3;
    std::tm time{};
    ASSERT_EQ(SPB_getTime(&time), 0);
    EXPECT_EQ(time.tm_year, 124);
    EXPECT_EQ(time.tm_mon, 6);
    EXPECT_EQ(time.tm_mday, 1);
    EXPECT_EQ(time.tm_hour, 0);
    EXPECT_EQ(time.tm_sec, 1);
    EXPECT_EQ(time.tm_wday, 1) << "2024-07-01 was a Monday";

    for (const std::tm& outside : {calendar(1999, 12, 31, 12, 0, 0), calendar(2100, 1, 1, 0, 0, 0)}) {
        m_lines.clear();
        EXPECT_EQ(SPB_initRTClock(&outside), 3);
        EXPECT_THAT(m_lines, ElementsAre("Failed to convert supplied time in RT clock format!",
                                         "Failed to set time in RT Clock!"));
    }
    std::tm february30 = calendar(2030, 2, 30, 0, 0, 0);
    EXPECT_EQ(SPB_initRTClock(&february30), 3);
    EXPECT_THAT(m_lines, Contains("Requested to set invalid time!"));
    EXPECT_EQ(m_rtc.unixTime(), unixTime(2024, 7, 1, 0, 0, 1)) << "refused times leave the clock running on";

    const std::tm edge = calendar(2099, 12, 31, 23, 59, 59);
    EXPECT_EQ(SPB_initRTClock(&edge), 0);
    EXPECT_EQ(m_rtc.unixTime(), unixTime(2099, 12, 31, 23, 59, 59));
}

TEST_F(SpbDevicesTest, AClockThatLostItsDataIsReconfiguredBySettingIt)
{
    ASSERT_TRUE(SPB_init());
    m_rtc.loseData();
    std::tm time{};
    EXPECT_EQ(SPB_getRtcStatus(), 2);
    EXPECT_EQ(SPB_getTime(&time), 2);
    EXPECT_THAT(m_lines,
                ElementsAre("VLF bit set, RTC data loss in RT Clock!", "VLF bit set, RTC data loss in RT Clock!"));

    const std::tm set = calendar(2025, 3, 14, 15, 9, 26);
    ASSERT_EQ(SPB_initRTClock(&set), 0);
    EXPECT_EQ(m_rtc.peek(RtcModelC::kFlags) & RtcModelC::kFlagVlf, 0);
    EXPECT_EQ(m_rtc.peek(RtcModelC::kExtension), 0xC0);
    EXPECT_EQ(m_rtc.peek(RtcModelC::kControl1), 0x14);
    EXPECT_EQ(m_rtc.peek(RtcModelC::kControl0), 0x00) << "the clock runs again";
    m_now += 60;
    ASSERT_EQ(SPB_getTime(&time), 0);
    EXPECT_EQ(time.tm_min, 10);
    EXPECT_EQ(time.tm_sec, 26);
    EXPECT_EQ(time.tm_mday, 14);
}

TEST_F(SpbDevicesTest, ABrokenClockAnswersFailure)
{
    ASSERT_TRUE(SPB_init());
    m_rtc.setBroken(true);
    std::tm time{};
    EXPECT_EQ(SPB_getRtcStatus(), 1);
    EXPECT_EQ(SPB_getTime(&time), 1);
    EXPECT_EQ(SPB_initRTClock(&time), 1);
    EXPECT_THAT(m_lines, Contains("Failed to read Flag Register in RT Clock!"));
    EXPECT_THAT(m_lines, Contains("Failed to write-read i2c device: 1117"));
}

TEST_F(SpbDevicesTest, TheEepromHoldsTheBoardIdentityAndStaysInItsBounds)
{
    ASSERT_TRUE(SPB_init());
    std::uint8_t content[48] = {};
    ASSERT_EQ(SPB_readBoardIdContent(content), 0u);
    EXPECT_EQ(std::memcmp(content, "VANT-SIM-BOARD", 14), 0);

    const std::uint8_t trace[6] = {1, 2, 3, 4, 5, 6};
    ASSERT_EQ(SPB_writeEEPROMData(250, trace, 6), 0u);
    std::uint8_t back[6] = {};
    ASSERT_EQ(SPB_readEEPROMData(250, 6, back), 0u);
    EXPECT_EQ(std::memcmp(back, trace, 6), 0);
    std::uint8_t tooMuch[10] = {};
    EXPECT_EQ(SPB_readEEPROMData(250, 10, tooMuch), 4u);

    // A board identity written from an odd offset across several pages lands whole.
    std::uint8_t identity[48];
    for (std::size_t i = 0; i < sizeof identity; ++i)
        identity[i] = static_cast<std::uint8_t>(0x40 + i);
    ASSERT_EQ(SPB_writeEEPROMData(101, identity, sizeof identity), 0u);
    std::uint8_t readBack[52] = {};
    ASSERT_EQ(SPB_readEEPROMData(100, sizeof readBack, readBack), 0u);
    EXPECT_EQ(readBack[0], 0xFF) << "the byte before is untouched";
    EXPECT_EQ(std::memcmp(readBack + 1, identity, sizeof identity), 0);
    EXPECT_EQ(readBack[49], 0xFF) << "the byte after is untouched";

    m_eeprom.setBroken(true);
    EXPECT_NE(SPB_readBoardIdContent(content), 0u);
    EXPECT_THAT(m_lines, Contains("Read EEPROM error: 1"));
}

TEST_F(SpbDevicesTest, AMissingDeviceClosesTheOnesAlreadyOpen)
{
    m_server.stop();
    sim::I2cDeviceServerC partial;
    partial.add("IOExpander", m_expander);
    partial.add("RTClock", m_rtc);
    std::string error;
    ASSERT_TRUE(partial.start(platform::sim::root(), error)) << error;
    EXPECT_FALSE(SPB_init());
    EXPECT_THAT(m_lines, ElementsAre("SPB_I2cDev: failed to open handle! (2)", "Failed to open EEPROM!"));
    m_lines.clear();
    EXPECT_FALSE(SPB_deinit());
    EXPECT_THAT(m_lines,
                ElementsAre("Failed to close RT Clock!", "Failed to close IO Expander!", "Failed to close EEPROM!"));
}

}  // namespace
}  // namespace halvern::test
