#include "client/DateTimeText.h"

#include <cctype>
#include <cstdio>

namespace SEP {
namespace {

bool digitsAt(const std::string& text, std::size_t position, std::size_t count, int& value)
{
    if (position + count > text.size()) return false;
    value = 0;
    for (std::size_t i = position; i < position + count; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

int daysInMonth(int year, int month)
{
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    const bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
    return month == 2 && leap ? 29 : kDays[month - 1];
}

}  // namespace

bool parseDateTime(const std::string& text, DateTimeT& value)
{
    if (text.size() != 19 || text[4] != '-' || text[7] != '-' || (text[10] != ' ' && text[10] != 'T') ||
        text[13] != ':' || text[16] != ':')
        return false;
    DateTimeT parsed;
    if (!digitsAt(text, 0, 4, parsed.year) || !digitsAt(text, 5, 2, parsed.month) ||
        !digitsAt(text, 8, 2, parsed.day) || !digitsAt(text, 11, 2, parsed.hour) ||
        !digitsAt(text, 14, 2, parsed.minute) || !digitsAt(text, 17, 2, parsed.second))
        return false;
    if (parsed.year < 1900 || parsed.month < 1 || parsed.month > 12 || parsed.day < 1 ||
        parsed.day > daysInMonth(parsed.year, parsed.month) || parsed.hour > 23 || parsed.minute > 59 ||
        parsed.second > 59)
        return false;
    value = parsed;
    return true;
}

std::string formatDateTime(const DateTimeT& value)
{
    char text[64];
    std::snprintf(text, sizeof text, "%04d-%02d-%02d %02d:%02d:%02d", value.year, value.month, value.day, value.hour,
                  value.minute, value.second);
    return text;
}

}  // namespace SEP
