#pragma once
// An instrument with its I2C devices whose RTC stands still at a chosen time, and the instrument's Windows
// clock and zone as a test reads them.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>

#include "platform/Calendar.h"
#include "platform/Privilege.h"
#include "platform/Text.h"
#include "platform/Time.h"
#include "platform/sim/SimClock.h"
#include "platform/sim/SimRoot.h"
#include "sim/i2c/I2cDeviceServer.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {

constexpr const char* kOffsetFilePath = "C:\\vexarBatches\\Halvern\\user_time_offs.bin";
// 100-ns units of an hour, the unit of the offset file.
constexpr std::int64_t kHourUnits = 36'000'000'000;

inline std::int64_t unixSeconds(int year, unsigned month, unsigned day, int hour, int minute, int second)
{
    return platform::daysFromCivil(year, month, day) * 86400 + hour * 3600 + minute * 60 + second;
}

inline std::int64_t unixSeconds(const platform::SystemTime& time)
{
    return unixSeconds(time.year, time.month, time.day, time.hour, time.minute, time.second);
}

// The instrument's clock keeps running while a test works: two readings a test compares may lie this far
// apart and still be the same time.
constexpr std::int64_t kSameTimeSeconds = 60;

class SimulatedClockTest : public InstrumentTest {
protected:
    // The RTC shows 2024-02-29 07:05:09 and does not move.
    static constexpr std::int64_t kRtcTime = 1709190309;

    void SetUp() override
    {
        InstrumentTest::SetUp();
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

    static std::int64_t utcNow() { return unixSeconds(platform::systemTime()); }
    static std::int64_t localNow() { return unixSeconds(platform::localTime()); }
    static platform::DynamicTimeZoneInformation zone() { return platform::sim::loadTimeZone(platform::sim::root()); }
    static std::string zoneKey() { return platform::narrow(zone().timeZoneKeyName).value_or(""); }
    static void setUtc(std::int64_t unixTime)
    {
        std::int64_t year = 0;
        unsigned month = 0;
        unsigned day = 0;
        platform::civilFromDays(unixTime / 86400, year, month, day);
        platform::SystemTime time;
        time.year = static_cast<std::uint16_t>(year);
        time.month = static_cast<std::uint16_t>(month);
        time.day = static_cast<std::uint16_t>(day);
        time.hour = static_cast<std::uint16_t>(unixTime % 86400 / 3600);
        time.minute = static_cast<std::uint16_t>(unixTime % 3600 / 60);
        time.second = static_cast<std::uint16_t>(unixTime % 60);
        const platform::PrivilegeScopeC privilege(platform::kSeSystemtimePrivilege);
        ASSERT_TRUE(platform::setSystemTime(time));
    }

    std::atomic<std::int64_t> m_now{0};
    sim::IoExpanderModelC m_expander;
    sim::RtcModelC m_rtc{[this] { return m_now.load(); }, kRtcTime};
    sim::EepromModelC m_eeprom;
    sim::I2cDeviceServerC m_server;
};

}  // namespace halvern::test
