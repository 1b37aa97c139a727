#pragma once
// Proleptic Gregorian calendar arithmetic on days since 1970-01-01, for code that must not depend on the
// C runtime's time zone (the RTC keeps UTC; the simulated devices count on their own).
#include <cstdint>

namespace platform {

std::int64_t daysFromCivil(std::int64_t year, unsigned month, unsigned day);
void civilFromDays(std::int64_t days, std::int64_t& year, unsigned& month, unsigned& day);
// 0 Sunday .. 6 Saturday.
unsigned weekdayFromDays(std::int64_t days);

}  // namespace platform
