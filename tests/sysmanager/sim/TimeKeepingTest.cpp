// Time keeping on the simulated instrument: the start sets the instrument's Windows clock and zone from the
// RTC and the user's offset file; a user's time and zone are kept as an offset and survive the next start;
// the write filter commits what must survive a reboot; the time service is started and waited for.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cinttypes>
#include <filesystem>
#include <fstream>
#include <map>

#include "app/StartUpSteps.h"
#include "platform/FileSystem.h"
#include "platform/Privilege.h"
#include "platform/Registry.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimWriteFilter.h"
#include "sysmanager/TimeZoneNames.h"
#include "sysmanager/sim/TimeTestSupport.h"

namespace halvern::test {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::Not;
using ::testing::StartsWith;

const char* const kCommitLine = "UwfCfgCommitFile C: \\vexarBatches\\Halvern\\user_time_offs.bin";
const char* const kDeletionLine = "UwfCfgCommitFileDeletion C: \\vexarBatches\\Halvern\\user_time_offs.bin";

class TimeKeepingTest : public SimulatedClockTest {
protected:
    // The time service's start is waited for in steps of 200 ms: here they pass at once.
    void SetUp() override
    {
        SimulatedClockTest::SetUp();
        platform::setClock(&m_waits);
    }
    static void writeOffsetFile(const std::string& content) { ASSERT_TRUE(writeWholeFile(kOffsetFilePath, content)); }
    static bool offsetFileExists() { return std::filesystem::exists(platform::nativePath(kOffsetFilePath)); }
    static void setFilterState(const char* state)
    {
        ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine,
                                              "SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status", "FilterState",
                                              {platform::kRegDword, state}));
    }
    static WindowsTimeInfo localTimeInfo(int year, int month, int day, int hour, int minute, const char* zoneName,
                                         bool daylightSavingDisabled)
    {
        WindowsTimeInfo info;
        info.tm_year = year - 1900;
        info.tm_mon = month - 1;
        info.tm_mday = day;
        info.tm_hour = hour;
        info.tm_min = minute;
        std::snprintf(info.timeZoneId, sizeof info.timeZoneId, "%s", zoneName);
        info.daylightSavingDisabled = daylightSavingDisabled;
        return info;
    }
    SysManagerC& manager() { return *SysManagerC::Instance(); }

    platform::ManualClockC m_waits;
};

TEST_F(TimeKeepingTest, AStartWithoutOffsetFileTakesTheRtcAsUtcInTheDefaultZone)
{
    setUtc(unixSeconds(2031, 5, 5, 5, 5, 5));
    const unsigned refusedBefore = platform::sim::clockSetsRefusedForPrivilege();
    HwRelatedInit();
    EXPECT_EQ(platform::sim::clockSetsRefusedForPrivilege(), refusedBefore)
        << "SeSystemtimePrivilege held for the call";
    EXPECT_FALSE(platform::privilegeEnabled(platform::kSeSystemtimePrivilege)) << "and only for it";
    EXPECT_NEAR(utcNow(), kRtcTime, kSameTimeSeconds);
    EXPECT_EQ(zoneKey(), "W. Europe Standard Time");
    EXPECT_FALSE(zone().dynamicDaylightTimeDisabled);
    EXPECT_NEAR(localNow(), kRtcTime + 3600, kSameTimeSeconds) << "winter time, one hour east of UTC";
    const auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(
        messages,
        {"enableSpbDevices done!", "W32Time Service started.", "Get I2C RTC Time: 2024-02-29 07:05:09",
         "[SysManagerC::GetCalcOffsetTzStdNameDlght] Halvern:The file with the stored offset is not present!",
         "The time zone (standard) name was set successfully.", "Set Daylight Time Saving status : enabled",
         "[SysManagerC::GetRtcSystemTime] Halvern: The offset failed to be retrieved from the corresponding file.",
         "The UTC time is set according to the I2C RTC time, the time zone and daylight saving status are set to "
         "the default ones: 'W. Europe Standard Time' and 'true', respectively."}))
        << ::testing::PrintToString(messages);
    EXPECT_THAT(messages, Not(Contains("Halvern [HwRelatedInit] [ERROR]: SetRtcSystemTime Failed")));
}

TEST_F(TimeKeepingTest, AnOffsetFileOfThreeLinesAppliesOffsetZoneAndDaylightFlag)
{
    writeOffsetFile("-36000000000\nTokyo Standard Time\nfalse\n");
    HwRelatedInit();
    EXPECT_NEAR(utcNow(), kRtcTime - 3600, kSameTimeSeconds);
    EXPECT_EQ(zoneKey(), "Tokyo Standard Time");
    EXPECT_TRUE(zone().dynamicDaylightTimeDisabled);
    EXPECT_NEAR(localNow(), kRtcTime - 3600 + 9 * 3600, kSameTimeSeconds);
    EXPECT_TRUE(containsInOrder(
        logMessages(),
        {"Empty additional line:4 found in offset file!", "Get time offset from file: -36000000000",
         "Get Modified time for the calculation of the offset: 29-02-2024 "
         "06:05:09",
         "Corrected date and time according to the calculated offset: "
         "2024-02-29 06:05:09",
         "Time zone name according to the offset file: Tokyo Standard Time",
         "Daylight saving status according to the offset file: false", "Set Daylight Time Saving status : disabled",
         "Set UTC Windows date: 29/02/2024", "Set UTC Windows time: 06:05:09"}))
        << ::testing::PrintToString(logMessages());
}

TEST_F(TimeKeepingTest, ADamagedFileOrAnUnknownZoneFallsBackToTheDefaultZone)
{
    for (const char* damaged : {"3600\n\ntrue\n", "an hour\nTokyo Standard Time\ntrue\n"}) {
        writeOffsetFile(damaged);
        ASSERT_TRUE(manager().GetRtcSystemTime()) << damaged;
        EXPECT_NEAR(utcNow(), kRtcTime, kSameTimeSeconds) << damaged;
        EXPECT_EQ(zoneKey(), "W. Europe Standard Time") << damaged;
    }
    // A zone this Windows does not know leaves the zone as it was; the offset still counts.
    writeOffsetFile("36000000000\nAtlantis Standard Time\ntrue\n");
    EXPECT_TRUE(manager().GetRtcSystemTime());
    EXPECT_NEAR(utcNow(), kRtcTime + 3600, kSameTimeSeconds);
    EXPECT_EQ(zoneKey(), "W. Europe Standard Time");
    EXPECT_THAT(logMessages(), Contains(StartsWith("[SysManagerC::GetRtcSystemTime] [ERROR]: Failed to set time "
                                                   "zone and daylight saving status. Error:")));
}

TEST_F(TimeKeepingTest, AClockThatLostItsDataGivesTheDefaultTimePlusTheOffset)
{
    m_rtc.loseData();
    writeOffsetFile("36000000000\nW. Europe Standard Time\ntrue\n");
    HwRelatedInit();
    EXPECT_FALSE(manager().IsRtcValid());
    EXPECT_NEAR(utcNow(), unixSeconds(2018, 1, 1, 1, 0, 0), kSameTimeSeconds);
    EXPECT_THAT(logMessages(), Contains("[ERROR]: It's not possible to read the RTC time! RTC was never set! Set "
                                        "Default system time: 2018-01-01 00:00:00"));
}

TEST_F(TimeKeepingTest, WithoutTheRtcTheClockIsLeftAlone)
{
    m_server.stop();
    setUtc(unixSeconds(2031, 5, 5, 5, 5, 5));
    HwRelatedInit();
    EXPECT_NEAR(utcNow(), unixSeconds(2031, 5, 5, 5, 5, 5), kSameTimeSeconds);
    EXPECT_THAT(logMessages(), Contains("Halvern [HwRelatedInit] [ERROR]: SetRtcSystemTime Failed"));
}

TEST_F(TimeKeepingTest, ChangingTheZoneLeavesUtcWhereItWas)
{
    const std::int64_t utc = unixSeconds(2025, 7, 1, 10, 0, 0);
    setUtc(utc);
    const unsigned refusedBefore = platform::sim::clockSetsRefusedForPrivilege();
    ASSERT_TRUE(manager().SetWindowsTimeZoneInfo(localTimeInfo(1900, 1, 1, 0, 0, "AUS Eastern Standard Time", false)));
    EXPECT_EQ(platform::sim::clockSetsRefusedForPrivilege(), refusedBefore)
        << "the UTC time is put back with SeSystemtimePrivilege held";
    EXPECT_THAT(logMessages(), Not(Contains(StartsWith("[SysManagerC::SetWindowsTimeZoneInfo] [ERROR]: Failed to put "
                                                       "the UTC time back"))));
    EXPECT_FALSE(platform::privilegeEnabled(platform::kSeSystemtimePrivilege));
    EXPECT_NEAR(utcNow(), utc, kSameTimeSeconds);
    EXPECT_NEAR(localNow(), utc + 10 * 3600, kSameTimeSeconds) << "July is winter in Sydney";
    EXPECT_FALSE(platform::privilegeEnabled(platform::kSeTimeZonePrivilege)) << "enabled only for the call";

    EXPECT_FALSE(manager().SetWindowsTimeZoneInfo(localTimeInfo(1900, 1, 1, 0, 0, "Atlantis Standard Time", false)));
    EXPECT_EQ(zoneKey(), "AUS Eastern Standard Time");
    EXPECT_THAT(logMessages(), Contains(StartsWith("[SysManagerC::SetWindowsTimeZoneInfo] [ERROR]: Cannot get the "
                                                   "display name of this time zone! Error(")));
}

TEST_F(TimeKeepingTest, AUsersTimeIsKeptAsAnOffsetAndSurvivesTheNextStart)
{
    // Noon in Berlin in summer is 10:00 UTC.
    ASSERT_TRUE(
        manager().SetWindowsTimeInformation(localTimeInfo(2025, 7, 1, 12, 0, "W. Europe Standard Time", false)));
    const std::int64_t utc = unixSeconds(2025, 7, 1, 10, 0, 0);
    EXPECT_NEAR(utcNow(), utc, kSameTimeSeconds);
    EXPECT_EQ(m_rtc.unixTime(), kRtcTime) << "the RTC is never written here";
    EXPECT_THAT(logMessages(), Contains("Set local Windows date: 01/07/2025"));
    EXPECT_THAT(logMessages(), Contains("Get RTC time for the calculation of the offset: 07:05:09 29-02-2024 "));

    const std::string file = readWholeFile(kOffsetFilePath);
    std::int64_t offset = 0;
    char name[64] = {};
    char flag[8] = {};
    ASSERT_EQ(std::sscanf(file.c_str(), "%" SCNd64 "\n%63[^\n]\n%7s", &offset, name, flag), 3) << file;
    EXPECT_NEAR(static_cast<double>(offset) / 1e7, static_cast<double>(utc - kRtcTime), kSameTimeSeconds);
    EXPECT_STREQ(name, "W. Europe Standard Time");
    EXPECT_STREQ(flag, "true");
    EXPECT_EQ(std::count(file.begin(), file.end(), '\n'), 3);

    // The next start: the clock goes wrong in between, the RTC does not.
    setUtc(unixSeconds(2001, 1, 1, 0, 0, 0));
    ASSERT_TRUE(manager().GetRtcSystemTime());
    EXPECT_NEAR(utcNow(), utc, kSameTimeSeconds);
    EXPECT_EQ(zoneKey(), "W. Europe Standard Time");
}

TEST_F(TimeKeepingTest, ASetStopsAtTheFirstStepThatFails)
{
    EXPECT_FALSE(manager().SetWindowsTimeInformation(localTimeInfo(2025, 2, 30, 12, 0, "UTC-11", false)));
    EXPECT_FALSE(offsetFileExists());
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::SetWindowsDateTime] [ERROR]: Failed to set windows time and "
                                        "date. Error:87"));
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::SetWindowsTimeInformation] [ERROR]: Failed to set windows "
                                        "date and time. Error:87"));
    m_server.stop();
    EXPECT_FALSE(manager().SetWindowsTimeInformation(localTimeInfo(2025, 2, 3, 12, 0, "UTC-11", false)));
    EXPECT_THAT(logMessages(), Contains(StartsWith("[SysManagerC::SetWindowsTimeInformation] [ERROR]: Failed to "
                                                   "calculate the time offset. Error:")));
}

TEST_F(TimeKeepingTest, WithTheWriteFilterOnTheOffsetFileIsCommittedAndItsDeletionToo)
{
    setFilterState("1");
    ASSERT_TRUE(manager().SetWindowsTimeInformation(localTimeInfo(2025, 7, 1, 12, 0, "UTC-11", false)));
    EXPECT_THAT(platform::sim::uwfCommits(platform::sim::root()), ElementsAre(kCommitLine));
    ASSERT_TRUE(manager().deleteTimeOffsetFile());
    EXPECT_FALSE(offsetFileExists());
    EXPECT_THAT(platform::sim::uwfCommits(platform::sim::root()), ElementsAre(kCommitLine, kDeletionLine));
    EXPECT_TRUE(containsInOrder(logMessages(),
                                {"deleteTimeOffsetFile", "Get UWF Filter Configuration Status",
                                 "Current status configuration of the UWF Filter: activated", "UWF is enabled"}));

    // An image without the filter's library cannot commit: the change would not survive, so it fails.
    std::filesystem::remove(platform::nativePath("C:\\Windows\\System32\\uwfcfgmgmt.dll"));
    EXPECT_FALSE(manager().SetWindowsTimeInformation(localTimeInfo(2025, 7, 1, 12, 0, "UTC-11", false)));
    EXPECT_FALSE(manager().deleteTimeOffsetFile());
    EXPECT_TRUE(offsetFileExists());
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::CalculateAndSaveOffsetTzStdDlght] [ERROR]: Failed to load uwf "
                                        "library or to retrieve the UwfCfgCommitFile function.(ERROR: 126)"));
    EXPECT_THAT(logMessages(),
                Contains("[SysManagerC::deleteTimeOffsetFile] [ERROR]: Failed to load uwf library.(ERROR: 126)"));
}

TEST_F(TimeKeepingTest, WithTheWriteFilterOffTheFileIsDeletedDirectly)
{
    writeOffsetFile("0\nUTC\ntrue\n");
    ASSERT_TRUE(manager().deleteTimeOffsetFile());
    EXPECT_FALSE(offsetFileExists());
    EXPECT_TRUE(platform::sim::uwfCommits(platform::sim::root()).empty());
    EXPECT_TRUE(containsInOrder(logMessages(), {"Current status configuration of the UWF Filter: deactivated",
                                                "UWF is not active", "time offset file successfully deleted."}));

    writeOffsetFile("0\nUTC\ntrue\n");
    ASSERT_TRUE(platform::setFileAttributes(platform::widen(kOffsetFilePath), platform::kFileAttributeReadOnly));
    EXPECT_FALSE(manager().deleteTimeOffsetFile());
    EXPECT_THAT(logMessages(), Contains("[ERROR] DeleteTimeOffsetFile FAILED: ERROR(5) !"));
}

TEST_F(TimeKeepingTest, TheFilterStateFallsBackToTheFiltersOwnSettings)
{
    std::filesystem::remove_all(
        platform::sim::keyFolder(platform::RegHive::LocalMachine, "SYSTEM\\ControlSet001\\Services\\HalvernHelper"));
    bool active = false;
    EXPECT_FALSE(manager().GetUWFilter(active));
    EXPECT_TRUE(active) << "a state that cannot be read counts as protected";
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::GetUWFilter][ERROR]: Failed to get the current UWF status "
                                        "configuration. : 2"));

    const std::string settings = "SYSTEM\\ControlSet001\\Services\\uwfvol\\Parameters\\Static";
    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine, settings, "CurrentSettings",
                                          {platform::kRegDword, "1"}));
    EXPECT_FALSE(manager().GetUWFilter(active));
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::GetUWFilter][ERROR]: Failed to open the registry path. : 2"));
    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine, settings + "\\Copy1", "UwfEnabled",
                                          {platform::kRegDword, "0"}));
    EXPECT_TRUE(manager().GetUWFilter(active));
    EXPECT_FALSE(active);
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::GetUWFilter][ERROR]: Failed to get FilterState from "
                                        "HalvernHelper registry. : 2"));
}

TEST_F(TimeKeepingTest, TheTimeServiceIsStartedAndWaitedFor)
{
    ScriptedClockC clock;
    platform::setClock(&clock);
    ASSERT_TRUE(manager().startW32TimeService());
    EXPECT_GT(clock.sleeps(), 0) << "the start is waited for";
    const int sleepsForStart = clock.sleeps();
    ASSERT_TRUE(manager().startW32TimeService());
    EXPECT_EQ(clock.sleeps(), sleepsForStart) << "a running service needs no wait";
    EXPECT_THAT(logMessages(), ElementsAre("W32Time Service started.", "W32Time Service is running."));

    const std::string key = "SYSTEM\\CurrentControlSet\\Services\\W32Time";
    std::ofstream(platform::sim::root() + "/services/W32Time") << "STOPPED\n";
    ASSERT_TRUE(platform::sim::writeValue(platform::RegHive::LocalMachine, key, "Start", {platform::kRegDword, "4"}));
    EXPECT_FALSE(manager().startW32TimeService());
    EXPECT_THAT(logMessages(), Contains("[SysManagerC::startW32TimeService] [ERROR]: Service failed to start."));

    std::filesystem::remove_all(platform::sim::keyFolder(platform::RegHive::LocalMachine, key));
    const auto before = logMessages().size();
    EXPECT_FALSE(manager().startW32TimeService());
    EXPECT_EQ(logMessages().size(), before) << "a missing service is the caller's to report";
}

TEST_F(TimeKeepingTest, TheInstrumentsRegistryCarriesEveryZoneOfTheReferenceList)
{
    std::map<std::wstring, std::wstring> standardNames;
    platform::UniqueRegKey zones;
    ASSERT_EQ(platform::regOpenKeyRead(platform::RegHive::LocalMachine,
                                       L"SOFTWARE\\Microsoft\\Windows NT\\CurrentVersion\\Time Zones", zones),
              0);
    std::wstring keyName;
    for (std::uint32_t index = 0; platform::regEnumKey(zones, index, keyName) == 0; ++index) {
        platform::UniqueRegKey zone;
        ASSERT_EQ(platform::regOpenKeyRead(zones, keyName, zone), 0);
        ASSERT_EQ(platform::regQueryString(zone, L"Std", standardNames[keyName]), 0);
    }
    for (const auto& record : kTimeZoneReferenceNames) {
        const std::wstring name(record, record + std::char_traits<char16_t>::length(record));
        ASSERT_EQ(standardNames.count(name), 1u) << platform::narrow(name).value_or("?");
        // Windows names this one zone's standard time differently from its key.
        EXPECT_EQ(standardNames[name], name == L"UTC" ? L"Coordinated Universal Time" : name);
    }
    TimeZoneDescription last;
    EXPECT_TRUE(manager().GetTzDisplayWndKeyAndStdName(L"Tonga Standard Time", last));
    EXPECT_EQ(last.displayName, "(UTC+13:00) Nuku'alofa");
}

}  // namespace
}  // namespace halvern::test
