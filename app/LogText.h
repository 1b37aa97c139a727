#pragma once
// The text of one log line: the caller's format filled with its arguments, where every control character
// that an argument brings (a client's string, a board's or a program's output) is written escaped, so
// that only the format itself can start a new line, and the whole text has a maximum length.
#include <cstdarg>
#include <cstddef>
#include <string>

namespace halvern {

// A log line, time stamp and line end included, is at most this long.
constexpr std::size_t kLogLineMax = 4096;
// "YYYY-MM-DD hh:mm:ss" and the tab.
constexpr std::size_t kLogStampLength = 20;
// What a line keeps of the caller's text: the rest of kLogLineMax after time stamp and line end.
constexpr std::size_t kLogTextMax = kLogLineMax - kLogStampLength - 1;

// "\n" as the two characters \n (also \r), any other control character but the tab as \xNN.
void appendEscaped(std::string& out, const char* text, std::size_t length);
// Formats `format` printf-style (with the Windows spellings %ws and %I64d) into at most `maxLength`
// characters; a longer text is cut and ends in " [cut N bytes]". Arguments' control characters are
// escaped, the format's own are kept.
std::string formatLogText(const char* format, va_list args, std::size_t maxLength = kLogTextMax);

}  // namespace halvern
