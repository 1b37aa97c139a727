#pragma once
// The clock as the tests that try to set it compare it.
#include <cstdint>

#include "platform/Calendar.h"
#include "platform/Time.h"

namespace halvern::test {

// Two readings this close are the same time: the clock only ran on between them.
constexpr std::int64_t kClockSlackSeconds = 5;

inline std::int64_t secondsOf(const platform::SystemTime& time)
{
    return platform::daysFromCivil(time.year, time.month, time.day) * 86400 + time.hour * 3600 + time.minute * 60 +
           time.second;
}

// The UTC time a day from now: far enough that a set that got through cannot be mistaken for the clock running.
inline platform::SystemTime aDayAhead()
{
    platform::FileTime now = 0;
    platform::SystemTime ahead;
    platform::systemTimeToFileTime(platform::systemTime(), now);
    platform::fileTimeToSystemTime(now + 86400ULL * 10'000'000ULL, ahead);
    return ahead;
}

}  // namespace halvern::test
