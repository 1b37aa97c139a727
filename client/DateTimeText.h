#pragma once
// Dates and times as technicians type and read them: "2026-11-23 10:00:00".
#include <string>

namespace SEP {

struct DateTimeT {
    int year = 0;
    int month = 0;  // 1..12
    int day = 0;
    int hour = 0;
    int minute = 0;
    int second = 0;
};

// "YYYY-MM-DD HH:MM:SS" (or with "T" between date and time) naming a real calendar day; false otherwise.
bool parseDateTime(const std::string& text, DateTimeT& value);
std::string formatDateTime(const DateTimeT& value);

}  // namespace SEP
