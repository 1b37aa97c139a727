// Time keeping: the battery-backed I2C RTC is the instrument's authoritative clock.
#include "app/Log.h"
#include "spb/SpbDevices.h"
#include "spb/SpbEnable.h"
#include "sysmanager/SysManagerC.h"

bool SysManagerC::GetI2cRtcTime(platform::SystemTime& rtcTime)
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
