#include <chrono>
#include <ctime>

#include "platform/Time.h"

namespace platform {

SystemTime localTime()
{
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    std::tm local{};
    localtime_r(&seconds, &local);
    SystemTime time;
    time.year = static_cast<std::uint16_t>(local.tm_year + 1900);
    time.month = static_cast<std::uint16_t>(local.tm_mon + 1);
    time.dayOfWeek = static_cast<std::uint16_t>(local.tm_wday);
    time.day = static_cast<std::uint16_t>(local.tm_mday);
    time.hour = static_cast<std::uint16_t>(local.tm_hour);
    time.minute = static_cast<std::uint16_t>(local.tm_min);
    time.second = static_cast<std::uint16_t>(local.tm_sec);
    time.milliseconds = static_cast<std::uint16_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
    return time;
}

}  // namespace platform
