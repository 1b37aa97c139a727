// The simulated instrument's Windows clock and zone: kept in the sim root, local time by the zone's
// daylight-saving rule, the privilege a zone change needs, and the log's time stamps on the instrument's
// clock.
#include <gtest/gtest.h>

#include "app/Log.h"
#include "platform/Privilege.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "sysmanager/SysManagerC.h"
#include "sysmanager/sim/TimeTestSupport.h"

namespace halvern::test {
namespace {

platform::FileTime fileTimeOf(std::int64_t unixTime)
{
    return static_cast<platform::FileTime>((unixTime + 11644473600LL) * 10'000'000LL);
}

std::int64_t unixTimeOf(platform::FileTime fileTime)
{
    return static_cast<std::int64_t>(fileTime / 10'000'000ULL) - 11644473600LL;
}

class SimClockTest : public InstrumentTest {
protected:
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
    // The zone as the registry describes it, ready to be set.
    static platform::DynamicTimeZoneInformation zoneNamed(const wchar_t* standardName)
    {
        TimeZoneDescription description;
        EXPECT_TRUE(SysManagerC::Instance()->GetTzDisplayWndKeyAndStdName(standardName, description));
        platform::DynamicTimeZoneInformation zone;
        zone.bias = description.tzi.bias;
        zone.standardBias = description.tzi.standardBias;
        zone.daylightBias = description.tzi.daylightBias;
        zone.standardDate = description.tzi.standardDate;
        zone.daylightDate = description.tzi.daylightDate;
        const std::wstring key = platform::widen(description.keyName);
        std::copy(key.begin(), key.end(), zone.timeZoneKeyName);
        return zone;
    }
    static std::int64_t localOf(const platform::DynamicTimeZoneInformation& zone, std::int64_t utc)
    {
        return unixTimeOf(platform::sim::utcToLocal(zone, fileTimeOf(utc)));
    }
};

TEST_F(SimClockTest, CalendarTimesConvertAsWindowsConvertsThem)
{
    platform::SystemTime time{2024, 2, 0, 29, 23, 59, 58, 999};
    platform::FileTime fileTime = 0;
    ASSERT_TRUE(platform::systemTimeToFileTime(time, fileTime));
    EXPECT_EQ(fileTime, fileTimeOf(unixSeconds(2024, 2, 29, 23, 59, 58)) + 9'990'000);
    platform::SystemTime back;
    ASSERT_TRUE(platform::fileTimeToSystemTime(fileTime, back));
    EXPECT_EQ(back.day, 29);
    EXPECT_EQ(back.dayOfWeek, 4) << "a Thursday";
    EXPECT_EQ(back.milliseconds, 999);

    for (const platform::SystemTime invalid :
         {platform::SystemTime{2023, 2, 0, 29, 0, 0, 0, 0}, platform::SystemTime{1600, 12, 0, 31, 0, 0, 0, 0},
          platform::SystemTime{2024, 13, 0, 1, 0, 0, 0, 0}, platform::SystemTime{2024, 1, 0, 1, 24, 0, 0, 0}}) {
        platform::setLastError(0);
        EXPECT_FALSE(platform::systemTimeToFileTime(invalid, fileTime)) << invalid.year << "-" << invalid.month;
        EXPECT_EQ(platform::lastError(), platform::kErrorInvalidParameter);
    }
    EXPECT_FALSE(platform::fileTimeToSystemTime(0x8000000000000000ULL, back));
}

TEST_F(SimClockTest, DaylightTimeStartsAndEndsOnTheZonesRule)
{
    const auto berlin = zoneNamed(L"W. Europe Standard Time");
    // 2025: summer time from 30 March 02:00 (01:00 UTC) to 26 October 03:00 (01:00 UTC).
    EXPECT_EQ(localOf(berlin, unixSeconds(2025, 3, 30, 0, 59, 59)), unixSeconds(2025, 3, 30, 1, 59, 59));
    EXPECT_EQ(localOf(berlin, unixSeconds(2025, 3, 30, 1, 0, 0)), unixSeconds(2025, 3, 30, 3, 0, 0));
    EXPECT_EQ(localOf(berlin, unixSeconds(2025, 10, 26, 0, 59, 59)), unixSeconds(2025, 10, 26, 2, 59, 59));
    EXPECT_EQ(localOf(berlin, unixSeconds(2025, 10, 26, 1, 0, 0)), unixSeconds(2025, 10, 26, 2, 0, 0));

    // Sydney's summer spans the turn of the year.
    const auto sydney = zoneNamed(L"AUS Eastern Standard Time");
    EXPECT_EQ(localOf(sydney, unixSeconds(2025, 1, 15, 0, 0, 0)), unixSeconds(2025, 1, 15, 11, 0, 0));
    EXPECT_EQ(localOf(sydney, unixSeconds(2025, 7, 15, 0, 0, 0)), unixSeconds(2025, 7, 15, 10, 0, 0));

    auto fixed = berlin;
    fixed.dynamicDaylightTimeDisabled = true;
    EXPECT_EQ(localOf(fixed, unixSeconds(2025, 7, 1, 10, 0, 0)), unixSeconds(2025, 7, 1, 11, 0, 0));
    // Local times convert back, in summer as in winter.
    for (std::int64_t utc : {unixSeconds(2025, 7, 1, 10, 0, 0), unixSeconds(2025, 12, 1, 10, 0, 0)})
        EXPECT_EQ(unixTimeOf(platform::sim::localToUtc(berlin, platform::sim::utcToLocal(berlin, fileTimeOf(utc)))),
                  utc);
}

TEST_F(SimClockTest, TheZoneChangesOnlyWithThePrivilegeAndNeverMovesUtc)
{
    const auto tokyo = zoneNamed(L"Tokyo Standard Time");
    platform::setLastError(0);
    EXPECT_FALSE(platform::setDynamicTimeZoneInformation(tokyo));
    EXPECT_EQ(platform::lastError(), platform::kErrorPrivilegeNotHeld);

    const platform::SystemTime before = platform::systemTime();
    {
        const platform::PrivilegeScopeC privilege(platform::kSeTimeZonePrivilege);
        ASSERT_TRUE(privilege.enabled());
        ASSERT_TRUE(platform::setDynamicTimeZoneInformation(tokyo));
    }
    EXPECT_FALSE(platform::privilegeEnabled(platform::kSeTimeZonePrivilege));
    EXPECT_NEAR(unixSeconds(platform::systemTime()), unixSeconds(before), kSameTimeSeconds);
    EXPECT_NEAR(unixSeconds(platform::localTime()), unixSeconds(before) + 9 * 3600, kSameTimeSeconds);
    platform::DynamicTimeZoneInformation current;
    EXPECT_EQ(platform::getDynamicTimeZoneInformation(current), platform::kTimeZoneIdUnknown) << "no summer time";
    EXPECT_EQ(std::wstring(current.timeZoneKeyName), L"Tokyo Standard Time");

    EXPECT_FALSE(platform::PrivilegeScopeC(L"SeTakeOverTheWorldPrivilege").enabled());
}

TEST_F(SimClockTest, TheLogIsStampedWithTheInstrumentsLocalTime)
{
    {
        const platform::PrivilegeScopeC privilege(platform::kSeTimeZonePrivilege);
        ASSERT_TRUE(platform::setDynamicTimeZoneInformation(zoneNamed(L"W. Europe Standard Time")));
    }
    {
        const platform::PrivilegeScopeC privilege(platform::kSeSystemtimePrivilege);
        ASSERT_TRUE(platform::setSystemTime(platform::SystemTime{2031, 6, 0, 15, 12, 0, 0, 0}));
    }
    WriteLog("stamped");
    const std::string log = readWholeFile(halvern::kLogFilePath);
    EXPECT_NE(log.find("2031-06-15 14:0"), std::string::npos) << log;
}

}  // namespace
}  // namespace halvern::test
