// Time keeping: the battery-backed I2C RTC is the instrument's authoritative clock. A time or zone that the
// user chose is kept as its difference to the RTC in the user time offset file, and applied again at every
// start on top of the RTC's time.
#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <stdexcept>

#include "app/Log.h"
#include "platform/Clock.h"
#include "platform/FileSystem.h"
#include "platform/Service.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "spb/SpbDevices.h"
#include "spb/SpbEnable.h"
#include "sysmanager/TimeKeepingC.h"
#include "sysmanager/TimeKeepingInternal.h"
#include "sysmanager/WriteFilterC.h"

namespace {

constexpr const char* kDefaultTimeZone = "W. Europe Standard Time";
// Polls of the time service after its start, each after this wait.
constexpr int kServiceStartPolls = 10;
constexpr std::uint32_t kServicePollMs = 200;

int lastErrorCode()
{
    return static_cast<int>(platform::lastError());
}

std::string readWholeFile(std::FILE* file)
{
    std::string content;
    char buffer[512];
    std::size_t read = 0;
    while ((read = std::fread(buffer, 1, sizeof buffer, file)) > 0)
        content.append(buffer, read);
    return content;
}

}  // namespace

TimeKeepingC::TimeKeepingC(WriteFilterC& writeFilter) : m_writeFilter(writeFilter) {}

bool TimeKeepingC::GetI2cRtcTime(platform::SystemTime& rtcTime)
{
    const char* const function = "SysManagerC::GetI2cRtcTime";
    if (!halvern::enableSpbDevices()) {
        WriteLog("[%s] [ERROR]: initSpbLibrary Failed", function);
        return false;
    }
    std::tm time{};
    int result = 0;
    {
        std::lock_guard<std::mutex> guard(halvern::spb::spbMutex());
        result = halvern::spb::getTime(time);
    }
    if (result != halvern::spb::kRtcOk) {
        WriteLog("[%s] [ERROR]: SPB_getTime Failed: %d", function, result);
        if (result == halvern::spb::kRtcDataLost)
            WriteLog(
                "[ERROR]: It's not possible to read the RTC time! RTC was never set! Set Default system time: "
                "2018-01-01 00:00:00");
        else
            WriteLog(
                "[ERROR]: It's not possible to read the RTC time! I2C communication problem to read the RTC. "
                "Set system time: 2018-01-01 00:00:00");
        m_rtcValid = false;
        time = std::tm{};
        time.tm_year = 118;
        time.tm_mday = 1;
    } else {
        m_rtcValid = true;
    }
    rtcTime = platform::SystemTime{};
    rtcTime.year = static_cast<std::uint16_t>(time.tm_year + 1900);
    rtcTime.month = static_cast<std::uint16_t>(time.tm_mon + 1);
    rtcTime.day = static_cast<std::uint16_t>(time.tm_mday);
    rtcTime.hour = static_cast<std::uint16_t>(time.tm_hour);
    rtcTime.minute = static_cast<std::uint16_t>(time.tm_min);
    rtcTime.second = static_cast<std::uint16_t>(time.tm_sec);
    WriteLog("Get I2C RTC Time: %d-%02d-%02d %02d:%02d:%02d", rtcTime.year, rtcTime.month, rtcTime.day, rtcTime.hour,
             rtcTime.minute, rtcTime.second);
    return true;
}

bool TimeKeepingC::startW32TimeService()
{
    const char* const function = "SysManagerC::startW32TimeService";
    const platform::UniqueServiceHandle manager = platform::openServiceManager();
    if (!manager) return false;
    const platform::UniqueServiceHandle service = platform::openService(manager, L"W32Time");
    if (!service) return false;
    std::uint32_t state = platform::kServiceStopped;
    if (!platform::queryServiceState(service, state)) {
        WriteLog("[%s] [ERROR]: Failed to query Service status ERROR(%d)", function, lastErrorCode());
        state = platform::kServiceStopped;
    }
    if (state == platform::kServiceRunning) {
        WriteLog("W32Time Service is running.");
        return true;
    }
    if (!platform::startService(service)) {
        WriteLog("[%s] [ERROR]: Service failed to start.", function);
        return false;
    }
    for (int poll = 0; poll < kServiceStartPolls; ++poll) {
        platform::sleepMs(kServicePollMs);
        if (!platform::queryServiceState(service, state)) break;
        if (state == platform::kServiceRunning) {
            // Give the service a moment to take its first requests.
            platform::sleepMs(kServicePollMs);
            break;
        }
    }
    WriteLog("W32Time Service started.");
    return true;
}

bool TimeKeepingC::GetRtcSystemTime()
{
    const char* const function = "SysManagerC::GetRtcSystemTime";
    platform::SystemTime rtcTime;
    if (!GetI2cRtcTime(rtcTime)) {
        WriteLog("[%s] [ERROR] Halvern: Cannot retrieve the I2C vexar/license RTC time!, ERROR(%d)", function,
                 lastErrorCode());
        return false;
    }
    std::int64_t offset = 0;
    std::string standardName;
    bool daylightSaving = false;
    if (!GetCalcOffsetTzStdNameDlght(offset, standardName, daylightSaving)) {
        WindowsTimeInfo defaults;
        if (!halvern::time::copyTimeZoneId(kDefaultTimeZone, defaults.timeZoneId))
            WriteLog("[%s] [ERROR]: Cannot initialize 'timeZoneId'! Error(%d)\n", function, halvern::time::kCopyError);
        if (!SetWindowsTimeZoneInfo(defaults))
            WriteLog("[%s] [ERROR]: Failed to set the default time zone and daylight saving status. Error:%d", function,
                     lastErrorCode());
        const bool set = halvern::time::setSystemClock(rtcTime);
        WriteLog("[%s] Halvern: The offset failed to be retrieved from the corresponding file.", function);
        WriteLog(
            "The UTC time is set according to the I2C RTC time, the time zone and daylight saving status are set "
            "to the default ones: 'W. Europe Standard Time' and 'true', respectively.");
        return set;
    }

    platform::SystemTime corrected = rtcTime;
    if (!AddCalculatedOffsetToCurTimeDate(rtcTime, offset, corrected))
        WriteLog("[%s] [ERROR] Halvern: The offset failed to be added!, ERROR(%d)", function, lastErrorCode());
    WriteLog("Corrected date and time according to the calculated offset: %d-%02d-%02d %02d:%02d:%02d", corrected.year,
             corrected.month, corrected.day, corrected.hour, corrected.minute, corrected.second);
    WriteLog("Time zone name according to the offset file: %s", standardName.c_str());
    WriteLog("Daylight saving status according to the offset file: %s", daylightSaving ? "true" : "false");

    WindowsTimeInfo info = halvern::time::timeInfoFrom(corrected);
    if (!halvern::time::copyTimeZoneId(standardName, info.timeZoneId))
        WriteLog("[%s] [ERROR]: Cannot initialize 'timeZoneId'! Error(%d)\n", function, halvern::time::kCopyError);
    info.daylightSavingDisabled = !daylightSaving;
    if (!SetWindowsTimeZoneInfo(info))
        WriteLog("[%s] [ERROR]: Failed to set time zone and daylight saving status. Error:%d", function,
                 lastErrorCode());
    if (!SetWindowsDateTime(info, false)) {
        WriteLog("[%s] [ERROR]: Failed to set windows UTC time and date. Error:%d", function, lastErrorCode());
        return false;
    }
    return true;
}

bool TimeKeepingC::AddCalculatedOffsetToCurTimeDate(const platform::SystemTime& rtcTime, std::int64_t offset,
                                                    platform::SystemTime& corrected)
{
    const char* const function = "SysManagerC::AddCalculatedOffsetToCurTimeDate";
    corrected = rtcTime;
    platform::FileTime fileTime = 0;
    if (!platform::systemTimeToFileTime(rtcTime, fileTime)) {
        WriteLog("[%s] [ERROR]: Cannot convert system to file time., ERROR(%d)", function, lastErrorCode());
        return false;
    }
    // Two's complement addition: a negative offset moves the time back.
    fileTime += static_cast<platform::FileTime>(offset);
    if (!platform::fileTimeToSystemTime(fileTime, corrected)) {
        WriteLog("[%s] [ERROR]: Cannot convert file to system time., ERROR(%d)", function, lastErrorCode());
        corrected = rtcTime;
        return false;
    }
    WriteLog("Get Modified time for the calculation of the offset: %02d-%02d-%d %02d:%02d:%02d\n", corrected.day,
             corrected.month, corrected.year, corrected.hour, corrected.minute, corrected.second);
    return true;
}

bool TimeKeepingC::GetCalcOffsetTzStdNameDlght(std::int64_t& offset, std::string& standardName, bool& daylightSaving)
{
    const char* const function = "SysManagerC::GetCalcOffsetTzStdNameDlght";
    std::string content;
    {
        int error = 0;
        const platform::UniqueFile file = platform::openFile(halvern::time::kOffsetFilePath, "r", error);
        if (file) content = readWholeFile(file.get());
    }
    if (content.empty()) {
        WriteLog("[%s] Halvern:The file with the stored offset is not present!", function);
        return false;
    }

    if (!halvern::time::parseOffsetFile(content, offset, standardName, daylightSaving)) return false;
    WriteLogWindows("Get time offset from file: %I64d\n", static_cast<long long>(offset));
    return true;
}

bool TimeKeepingC::CalculateAndSaveOffsetTzStdDlght()
{
    const char* const function = "SysManagerC::CalculateAndSaveOffsetTzStdDlght";
    const platform::SystemTime utc = platform::systemTime();
    WriteLog("Get Windows UTC time for the calculation of the offset: %02d:%02d:%02d  %02d-%02d-%d", utc.hour,
             utc.minute, utc.second, utc.day, utc.month, utc.year);
    platform::SystemTime rtc;
    if (!GetI2cRtcTime(rtc)) {
        WriteLog("[%s] [ERROR] Halvern: Cannot retrieve the I2C vexar/license RTC time!, ERROR(%d)", function,
                 lastErrorCode());
        return false;
    }
    WriteLog("Get RTC time for the calculation of the offset: %02d:%02d:%02d %02d-%02d-%d ", rtc.hour, rtc.minute,
             rtc.second, rtc.day, rtc.month, rtc.year);

    platform::FileTime utcFileTime = 0;
    platform::FileTime rtcFileTime = 0;
    if (!platform::systemTimeToFileTime(utc, utcFileTime)) {
        WriteLog("[%s] [ERROR]: Failed to convert windows UTC time from SYSTEMTIME to FILETIME. Error:%d", function,
                 lastErrorCode());
        return false;
    }
    if (!platform::systemTimeToFileTime(rtc, rtcFileTime)) {
        WriteLog("[%s] [ERROR]: Failed to convert RTC time from SYSTEMTIME to FILETIME. Error:%d", function,
                 lastErrorCode());
        return false;
    }
    const auto offset = static_cast<std::int64_t>(utcFileTime - rtcFileTime);
    WriteLog("Calculated time offset: %" PRId64, offset);

    const std::wstring path = platform::widen(halvern::time::kOffsetFilePath);
    if (!platform::createFile(path, platform::kFileAppendData, platform::kFileShareRead | platform::kFileShareWrite,
                              true, platform::kOpenAlways, platform::kFileAttributeNormal)) {
        WriteLog("[ERROR]: %d: A file to keep the time offset cannot be created.", lastErrorCode());
        return false;
    }

    platform::DynamicTimeZoneInformation zone;
    if (platform::getDynamicTimeZoneInformation(zone) == platform::kTimeZoneIdInvalid) {
        WriteLog("[%s] [ERROR]: GetDynamicTimeZoneInformation failed! Error(%d)\n", function, lastErrorCode());
        return false;
    }
    const auto standardName = platform::narrow(zone.standardName);
    if (!standardName) {
        WriteLog("[%s] [ERROR]: Failed to get time zone information to save it to the file. Error:%d", function,
                 static_cast<int>(platform::kErrorInvalidData));
        return false;
    }

    {
        int error = 0;
        const platform::UniqueFile file = platform::openFile(halvern::time::kOffsetFilePath, "w", error);
        if (!file || std::fprintf(file.get(), "%" PRId64 "\n%s\n%s\n", offset, standardName->c_str(),
                                  zone.dynamicDaylightTimeDisabled ? "false" : "true") < 0) {
            WriteLog("[ERROR]: %d: A file to keep the time offset cannot be created.", error);
            return false;
        }
    }

    bool uwfActive = true;
    if (!m_writeFilter.GetUWFilter(uwfActive)) {
        WriteLog("[%s] [ERROR]: Get UWF status failed.", function);
        return false;
    }
    if (!uwfActive) return true;
    const halvern::time::UwfCommitT commit = halvern::time::loadUwfCommit("UwfCfgCommitFile");
    if (!commit.function) {
        WriteLog("[%s] [ERROR]: Failed to load uwf library or to retrieve the UwfCfgCommitFile function.(ERROR: %d)",
                 function, static_cast<int>(commit.error));
        return false;
    }
    const std::int32_t result = commit.function(L"C:", halvern::time::kOffsetFileOnVolume);
    if (result != 0) {
        WriteLog("[%s] [ERROR]: The UWF is activated and the offset file wasn't commited successfully. (ERROR: %d)",
                 function, result);
        return false;
    }
    return true;
}

bool TimeKeepingC::SetWindowsTimeInformation(const WindowsTimeInfo& info)
{
    const char* const function = "SysManagerC::SetWindowsTimeInformation";
    if (!SetWindowsTimeZoneInfo(info)) {
        WriteLog("[%s] [ERROR]: Failed to set time zone and daylight saving status. Error:%d", function,
                 lastErrorCode());
        return false;
    }
    if (!SetWindowsDateTime(info, true)) {
        WriteLog("[%s] [ERROR]: Failed to set windows date and time. Error:%d", function, lastErrorCode());
        return false;
    }
    if (!CalculateAndSaveOffsetTzStdDlght()) {
        WriteLog("[%s] [ERROR]: Failed to calculate the time offset. Error:%d", function, lastErrorCode());
        return false;
    }
    return true;
}

bool TimeKeepingC::deleteTimeOffsetFile()
{
    const char* const function = "SysManagerC::deleteTimeOffsetFile";
    WriteLog("deleteTimeOffsetFile");
    {
        int error = 0;
        if (!platform::openFile(halvern::time::kOffsetFilePath, "r", error)) {
            WriteLog("no time offset file found.");
            return true;
        }
    }
    bool uwfActive = true;
    if (!m_writeFilter.GetUWFilter(uwfActive)) {
        WriteLog("[ERROR]: GetUWFilter FAILED");
        return false;
    }
    if (uwfActive) {
        WriteLog("UWF is enabled");
        const halvern::time::UwfCommitT commit = halvern::time::loadUwfCommit("UwfCfgCommitFileDeletion");
        if (!commit.library) {
            WriteLog("[%s] [ERROR]: Failed to load uwf library.(ERROR: %d)", function, static_cast<int>(commit.error));
            return false;
        }
        if (!commit.function) {
            WriteLog("[%s] [ERROR]: Failed to retrieve the UwfCfgCommitFile function.(ERROR: %d)", function,
                     static_cast<int>(commit.error));
            return false;
        }
        const std::int32_t result = commit.function(L"C:", halvern::time::kOffsetFileOnVolume);
        if (result != 0) {
            WriteLog("[%s] [ERROR]: The UWF is activated and the offset file wasn't commited successfully. (ERROR: %d)",
                     function, result);
            return false;
        }
        return true;
    }
    WriteLog("UWF is not active");
    if (platform::deleteFile(platform::widen(halvern::time::kOffsetFilePath))) {
        WriteLog("time offset file successfully deleted.");
        return true;
    }
    if (platform::lastError() == platform::kErrorFileNotFound) {
        WriteLog("no time offset file found.");
        return true;
    }
    WriteLog("[ERROR] DeleteTimeOffsetFile FAILED: ERROR(%d) !", lastErrorCode());
    return false;
}
