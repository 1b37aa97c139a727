#pragma once
// Time keeping: the battery-backed I2C RTC is the instrument's authoritative clock. A time or zone that the
// user chose is kept as its difference to the RTC in the user time offset file, and applied again at every
// start on top of the RTC's time. Windows time zones come from the registry's "Time Zones" key.
#include <atomic>
#include <cstdint>
#include <string>

#include "platform/Time.h"

class WriteFilterC;

// Windows time information as the command server exchanges it with time keeping: the first six fields of
// a C tm, a zone name and whether automatic daylight-saving adjustment is off.
struct WindowsTimeInfo {
    std::int32_t tm_sec = 0;
    std::int32_t tm_min = 0;
    std::int32_t tm_hour = 0;
    std::int32_t tm_mday = 0;
    std::int32_t tm_mon = 0;   // 0..11
    std::int32_t tm_year = 0;  // years since 1900
    // Setting matches it against the zones' "Std" values; getting answers the zone's registry key name.
    char timeZoneId[256] = {};
    bool daylightSavingDisabled = false;
};

// A zone as the registry's "Time Zones" key describes it.
struct TimeZoneDescription {
    std::string displayName;
    std::string standardName;
    std::string keyName;
    std::string daylightName;
    platform::RegTziFormat tzi;
};

class TimeKeepingC {
public:
    // The offset file is committed through the write filter when the filter protects the system.
    explicit TimeKeepingC(WriteFilterC& writeFilter);

    // The I2C RTC's time, or 2018-01-01 00:00:00 when the clock cannot be read (then the RTC valid flag is
    // cleared). False only when the SPB devices cannot be enabled.
    bool GetI2cRtcTime(platform::SystemTime& rtcTime);
    bool IsRtcValid() const { return m_rtcValid; }

    // True when the Windows time service runs or was started.
    bool startW32TimeService();
    // At start: Windows UTC time from the RTC plus the user's offset, and the user's zone; without a usable
    // offset file the RTC time and "W. Europe Standard Time" with daylight saving. False only when the RTC
    // cannot be reached at all.
    bool GetRtcSystemTime();
    bool GetWindowsTimeInformation(WindowsTimeInfo& info);
    // Sets zone and local time, then keeps their difference to the RTC in the offset file; the RTC itself
    // is never written here.
    bool SetWindowsTimeInformation(const WindowsTimeInfo& info);
    // After the RTC was set the offset means nothing: true when the file is gone (or its deletion was
    // committed through the write filter).
    bool deleteTimeOffsetFile();
    bool CalculateAndSaveOffsetTzStdDlght();
    // True when the three mandatory lines of the offset file were read.
    bool GetCalcOffsetTzStdNameDlght(std::int64_t& offset, std::string& standardName, bool& daylightSaving);
    bool AddCalculatedOffsetToCurTimeDate(const platform::SystemTime& rtcTime, std::int64_t offset,
                                          platform::SystemTime& corrected);
    // The first zone of the registry's "Time Zones" key whose "Std" value is `standardName`.
    bool GetTzDisplayWndKeyAndStdName(const std::wstring& standardName, TimeZoneDescription& zone);
    bool SetWindowsTimeZoneInfo(const WindowsTimeInfo& info);
    bool SetWindowsDateTime(const WindowsTimeInfo& info, bool local);

private:
    WriteFilterC& m_writeFilter;
    std::atomic<bool> m_rtcValid{false};
};
