#pragma once
// Calendar time as the Windows API gives it (SYSTEMTIME). On the simulation platform the instrument's
// clock and zone live in the sim root; the host's clock is only read, never set.
#include <cstdint>

namespace platform {

struct SystemTime {
    std::uint16_t year = 0;
    std::uint16_t month = 0;
    std::uint16_t dayOfWeek = 0;
    std::uint16_t day = 0;
    std::uint16_t hour = 0;
    std::uint16_t minute = 0;
    std::uint16_t second = 0;
    std::uint16_t milliseconds = 0;
};

// GetLocalTime.
SystemTime localTime();

}  // namespace platform
