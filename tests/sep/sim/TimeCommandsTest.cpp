// The time commands as a frontend sees them: the RTC read and set (which makes the user's offset
// meaningless), and the Windows time information read and set on the simulated instrument.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>

#include "platform/FileSystem.h"
#include "sep/RecordCoding.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "spb/SpbEnable.h"
#include "sysmanager/sim/TimeTestSupport.h"

namespace halvern::test {
namespace {

namespace REC = Varda::SEP::HALVERN;
using ::testing::Contains;

class TimeCommandsTest : public SimulatedClockTest {
protected:
    void SetUp() override
    {
        SimulatedClockTest::SetUp();
        // Start-up opens the devices before the server takes clients.
        ASSERT_TRUE(enableSpbDevices());
        port = std::make_unique<SepCommandPort>();
    }
    void TearDown() override
    {
        port.reset();
        SimulatedClockTest::TearDown();
    }
    static REC::TimeSpec timeSpec(int year, int month, int day, int hour, int minute, int second)
    {
        REC::TimeSpec spec;
        spec.year = year;
        spec.month = month;
        spec.day = day;
        spec.hour = hour;
        spec.minute = minute;
        spec.second = second;
        return spec;
    }
    static REC::WindowsOsTimeInfo timeInfo(const std::int32_t (&fields)[6], const char* zone)
    {
        REC::WindowsOsTimeInfo info;
        std::copy(std::begin(fields), std::end(fields), info.fields);
        std::snprintf(info.timeZone, sizeof info.timeZone, "%s", zone);
        return info;
    }
    static bool offsetFileExists() { return std::filesystem::exists(platform::nativePath(kOffsetFilePath)); }

    std::unique_ptr<SepCommandPort> port;
};

TEST_F(TimeCommandsTest, TheRtcIsReadAsACalendarDate)
{
    auto reply = port->ask(1018);
    ASSERT_TRUE(reply.received);
    ASSERT_EQ(reply.returnCode, 1097);
    REC::TimeSpec spec;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, spec), SEP::DecodeResultE::Ok);
    EXPECT_EQ(spec.year, 2024);
    EXPECT_EQ(spec.month, 2);
    EXPECT_EQ(spec.day, 29);
    EXPECT_EQ(spec.hour, 7);
    EXPECT_EQ(spec.minute, 5);
    EXPECT_EQ(spec.second, 9);

    m_rtc.loseData();
    reply = port->ask(1018);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "Failed to access RTCerror code: 2");
}

TEST_F(TimeCommandsTest, SettingTheRtcSetsItAndDeletesTheOffsetFile)
{
    ASSERT_TRUE(writeWholeFile(kOffsetFilePath, "36000000000\nUTC\ntrue\n"));
    m_rtc.loseData();
    REC::TimeSpec spec = timeSpec(2026, 11, 23, 5, 4, 3);
    auto reply = port->askRecord(1019, spec);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_EQ(m_rtc.unixTime(), unixSeconds(2026, 11, 23, 5, 4, 3));
    EXPECT_FALSE(offsetFileExists());
    EXPECT_THAT(logMessages(), Contains("Got request to set RTC: 2026-11-23 5:4:3"));

    // The clock holds 2000 to 2099 only: the date is refused and the offset stays meaningful.
    ASSERT_TRUE(writeWholeFile(kOffsetFilePath, "36000000000\nUTC\ntrue\n"));
    spec = timeSpec(2100, 1, 1, 0, 0, 0);
    reply = port->askRecord(1019, spec);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "Failed to access RTCerror code: 3");
    EXPECT_EQ(m_rtc.unixTime(), unixSeconds(2026, 11, 23, 5, 4, 3));
    EXPECT_TRUE(offsetFileExists());
}

TEST_F(TimeCommandsTest, SettingAnotherZoneLeavesUtcAndKeepsTheChoice)
{
    const std::int64_t utc = unixSeconds(2025, 7, 1, 10, 0, 0);
    setUtc(utc);
    // What a frontend sends when the user only picks Tokyo: the same moment on Tokyo's clock.
    REC::WindowsOsTimeInfo request;
    const std::int32_t tokyo[6] = {0, 0, 19, 1, 6, 125};
    std::copy(std::begin(tokyo), std::end(tokyo), request.fields);
    std::strcpy(request.timeZone, "Tokyo Standard Time");
    auto reply = port->askRecord(1054, request);
    ASSERT_TRUE(reply.received);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_NEAR(utcNow(), utc, kSameTimeSeconds);
    EXPECT_THAT(logMessages(), Contains("Got request to set Windows Os Time Information : 19:0:0 01-07-2025 , "
                                        "Daylight Saving: 0, Time Zone: Tokyo Standard Time"));
    const std::string file = readWholeFile(kOffsetFilePath);
    EXPECT_NE(file.find("\nTokyo Standard Time\ntrue\n"), std::string::npos) << file;

    reply = port->ask(1053);
    ASSERT_TRUE(reply.received);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::WindowsOsTimeInfo info;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, info), SEP::DecodeResultE::Ok);
    EXPECT_STREQ(info.timeZone, "Tokyo Standard Time");
    EXPECT_EQ(info.fields[2], 19);
    EXPECT_EQ(info.fields[4], 6) << "months count from 0";
    EXPECT_EQ(info.fields[5], 125) << "years count from 1900";
    EXPECT_FALSE(info.daylightSaving) << "the user left the adjustment on";

    // The RTC set afterwards makes the kept offset meaningless.
    REC::TimeSpec spec = timeSpec(2025, 7, 1, 10, 0, 0);
    reply = port->askRecord(1019, spec);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_FALSE(offsetFileExists());
}

TEST_F(TimeCommandsTest, SummerTimeAndItsSwitchAreReportedForTheZone)
{
    setUtc(unixSeconds(2025, 7, 1, 10, 0, 0));
    REC::WindowsOsTimeInfo request;
    const std::int32_t berlin[6] = {0, 0, 12, 1, 6, 125};
    std::copy(std::begin(berlin), std::end(berlin), request.fields);
    std::strcpy(request.timeZone, "W. Europe Standard Time");
    ASSERT_EQ(port->askRecord(1054, request).returnCode, 1097);
    auto reply = port->ask(1053);
    REC::WindowsOsTimeInfo info;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, info), SEP::DecodeResultE::Ok);
    EXPECT_EQ(info.fields[2], 12);
    EXPECT_FALSE(info.daylightSaving);

    request.daylightSaving = true;  // the user turns the adjustment off: the clock stays on standard time
    const std::int32_t standard[6] = {0, 0, 11, 1, 6, 125};
    std::copy(std::begin(standard), std::end(standard), request.fields);
    ASSERT_EQ(port->askRecord(1054, request).returnCode, 1097);
    reply = port->ask(1053);
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, info), SEP::DecodeResultE::Ok);
    EXPECT_EQ(info.fields[2], 11);
    EXPECT_TRUE(info.daylightSaving);
    EXPECT_NEAR(utcNow(), unixSeconds(2025, 7, 1, 10, 0, 0), kSameTimeSeconds);
}

// Getting reports a zone's key name; for UTC that is not its standard name ("Coordinated Universal Time"), and
// a client that hands back what it was given must not be refused.
TEST_F(TimeCommandsTest, TheZoneGettingReportsCanBeSetBackAlsoUtc)
{
    const std::int64_t utc = unixSeconds(2025, 7, 1, 10, 0, 0);
    setUtc(utc);
    REC::WindowsOsTimeInfo request = timeInfo({0, 0, 19, 1, 6, 125}, "Tokyo Standard Time");
    ASSERT_EQ(port->askRecord(1054, request).returnCode, 1097);

    request = timeInfo({0, 0, 10, 1, 6, 125}, "UTC");
    auto reply = port->askRecord(1054, request);
    ASSERT_TRUE(reply.received);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    EXPECT_NEAR(utcNow(), utc, kSameTimeSeconds);

    reply = port->ask(1053);
    ASSERT_EQ(reply.returnCode, 1097) << reply.errorText;
    REC::WindowsOsTimeInfo info;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, info), SEP::DecodeResultE::Ok);
    EXPECT_STREQ(info.timeZone, "UTC");
    EXPECT_EQ(info.fields[2], 10);

    // The record as it came, sent straight back.
    reply = port->askRecord(1054, info);
    EXPECT_EQ(reply.returnCode, 1097) << reply.errorText;
}

TEST_F(TimeCommandsTest, AZoneThisWindowsDoesNotKnowIsRefused)
{
    REC::WindowsOsTimeInfo request;
    const std::int32_t fields[6] = {0, 0, 12, 1, 6, 125};
    std::copy(std::begin(fields), std::end(fields), request.fields);
    std::strcpy(request.timeZone, "Atlantis Standard Time");
    const auto reply = port->askRecord(1054, request);
    ASSERT_TRUE(reply.received);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to set Windows Time information.)");
    EXPECT_FALSE(offsetFileExists());
}

}  // namespace
}  // namespace halvern::test
