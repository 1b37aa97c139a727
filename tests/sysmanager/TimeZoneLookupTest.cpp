// Zone lookup in the registry's "Time Zones" key. Under Wine this reads Wine's own tree, written by nobody
// on this project: the instrument's default zone must be found there as on the instrument.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

using ::testing::Contains;

class TimeZoneLookupTest : public InstrumentTest {
protected:
    void TearDown() override
    {
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }
};

TEST_F(TimeZoneLookupTest, TheDefaultZoneIsFoundWithItsNamesAndRules)
{
    TimeZoneDescription zone;
    ASSERT_TRUE(SysManagerC::Instance()->GetTzDisplayWndKeyAndStdName(L"W. Europe Standard Time", zone));
    EXPECT_EQ(zone.keyName, "W. Europe Standard Time");
    EXPECT_EQ(zone.standardName, "W. Europe Standard Time");
    EXPECT_EQ(zone.daylightName, "W. Europe Daylight Time");
    EXPECT_EQ(zone.displayName.rfind("(UTC+01:00) ", 0), 0u) << zone.displayName;
    // One hour east of UTC, one more in summer: from the last Sunday of March at 02:00 to the last Sunday of
    // October at 03:00.
    EXPECT_EQ(zone.tzi.bias, -60);
    EXPECT_EQ(zone.tzi.standardBias, 0);
    EXPECT_EQ(zone.tzi.daylightBias, -60);
    EXPECT_EQ(zone.tzi.daylightDate.month, 3);
    EXPECT_EQ(zone.tzi.daylightDate.day, 5);
    EXPECT_EQ(zone.tzi.daylightDate.hour, 2);
    EXPECT_EQ(zone.tzi.standardDate.month, 10);
    EXPECT_EQ(zone.tzi.standardDate.day, 5);
    EXPECT_EQ(zone.tzi.standardDate.hour, 3);
}

TEST_F(TimeZoneLookupTest, ZonesAreMatchedByTheirStandardNameOnly)
{
    TimeZoneDescription zone;
    // A zone of the other hemisphere, found among the others in enumeration order.
    ASSERT_TRUE(SysManagerC::Instance()->GetTzDisplayWndKeyAndStdName(L"AUS Eastern Standard Time", zone));
    EXPECT_EQ(zone.tzi.bias, -600);
    EXPECT_GT(zone.tzi.standardDate.month, 0);
    EXPECT_LT(zone.tzi.standardDate.month, zone.tzi.daylightDate.month) << "summer spans the turn of the year";

    EXPECT_FALSE(SysManagerC::Instance()->GetTzDisplayWndKeyAndStdName(L"W. Europe Daylight Time", zone));
    EXPECT_FALSE(SysManagerC::Instance()->GetTzDisplayWndKeyAndStdName(L"w. europe standard time", zone));
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::GetTzDisplayWndKeyAndStdName] [ERROR]: Cannot find the "
                                        "standard name of the requested time zone. ERROR(259)"));
}

}  // namespace
}  // namespace halvern::test
