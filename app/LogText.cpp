#include "app/LogText.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <cwchar>

namespace halvern {
namespace {

// A tab stays: it cannot start a line, and the program's own texts use it between a name and its value.
bool needsEscape(unsigned char byte)
{
    return (byte < 0x20 && byte != '\t') || byte == 0x7F;
}

// Builds the text up to the limit and only counts what lies beyond it, so that a 10 MB argument costs
// neither 10 MB of copies nor a 10 MB line.
class BoundedTextC {
public:
    explicit BoundedTextC(std::size_t limit) : m_limit(limit) {}

    void literal(const char* text, std::size_t length)
    {
        const std::size_t room = m_limit > m_text.size() ? m_limit - m_text.size() : 0;
        m_text.append(text, length < room ? length : room);
        m_total += length;
    }
    void escaped(const char* text, std::size_t length)
    {
        for (std::size_t i = 0; i < length; ++i) {
            const auto byte = static_cast<unsigned char>(text[i]);
            if (!needsEscape(byte)) {
                // Runs of plain characters go in one piece.
                std::size_t end = i + 1;
                while (end < length && !needsEscape(static_cast<unsigned char>(text[end])))
                    ++end;
                literal(text + i, end - i);
                i = end - 1;
                continue;
            }
            std::string escape;
            appendEscaped(escape, text + i, 1);
            literal(escape.data(), escape.size());
        }
    }
    std::string finish()
    {
        if (m_total <= m_limit) return std::move(m_text);
        // The mark takes the place of the text's end, so the whole stays within the limit.
        std::string mark;
        for (int pass = 0; pass < 2; ++pass) {
            const std::size_t kept = m_limit > mark.size() ? m_limit - mark.size() : 0;
            mark = " [cut " + std::to_string(m_total - kept) + " bytes]";
        }
        const std::size_t kept = m_limit > mark.size() ? m_limit - mark.size() : 0;
        m_text.resize(kept);
        return m_text + mark;
    }

private:
    std::size_t m_limit;
    std::size_t m_total = 0;
    std::string m_text;
};

enum class LengthE { None, Char, Short, Long, LongLong, SizeT, IntMax, PtrDiff, LongDouble };

// `escape` is an int: the last named parameter before the variable ones must not be promoted.
void appendFormatted(BoundedTextC& out, const std::string& spec, int escape, ...)
{
    va_list args;
    va_start(args, escape);
    va_list again;
    va_copy(again, args);
    char small[256];
    const int length = std::vsnprintf(small, sizeof small, spec.c_str(), args);
    va_end(args);
    if (length < 0) {
        va_end(again);
        return;
    }
    if (static_cast<std::size_t>(length) < sizeof small) {
        escape ? out.escaped(small, static_cast<std::size_t>(length))
               : out.literal(small, static_cast<std::size_t>(length));
    } else {
        std::string large(static_cast<std::size_t>(length) + 1, '\0');
        std::vsnprintf(large.data(), large.size(), spec.c_str(), again);
        escape ? out.escaped(large.data(), static_cast<std::size_t>(length))
               : out.literal(large.data(), static_cast<std::size_t>(length));
    }
    va_end(again);
}

// A narrow string argument: only as much of it as the line can show is formatted; precision and width
// are honoured.
void appendString(BoundedTextC& out, const char* text, bool leftAlign, int width, int precision)
{
    if (text == nullptr) text = "(null)";
    std::size_t length = 0;
    if (precision < 0)
        length = std::strlen(text);
    else
        while (length < static_cast<std::size_t>(precision) && text[length] != '\0')
            ++length;
    const std::string pad = width > 0 && static_cast<std::size_t>(width) > length
                                ? std::string(static_cast<std::size_t>(width) - length, ' ')
                                : std::string();
    if (!leftAlign) out.literal(pad.data(), pad.size());
    out.escaped(text, length);
    if (leftAlign) out.literal(pad.data(), pad.size());
}

}  // namespace

void appendEscaped(std::string& out, const char* text, std::size_t length)
{
    static const char kHex[] = "0123456789ABCDEF";
    for (std::size_t i = 0; i < length; ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        switch (byte) {
            case '\n':
                out += "\\n";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (needsEscape(byte)) {
                    out += "\\x";
                    out.push_back(kHex[byte >> 4]);
                    out.push_back(kHex[byte & 0x0F]);
                } else {
                    out.push_back(text[i]);
                }
        }
    }
}

std::string formatLogText(const char* format, va_list args, std::size_t maxLength)
{
    BoundedTextC out(maxLength);
    const char* p = format;
    while (*p != '\0') {
        const char* percent = std::strchr(p, '%');
        if (percent == nullptr) {
            out.literal(p, std::strlen(p));
            break;
        }
        out.literal(p, static_cast<std::size_t>(percent - p));
        p = percent + 1;
        if (*p == '%') {
            out.literal("%", 1);
            ++p;
            continue;
        }
        std::string spec = "%";
        bool leftAlign = false;
        while (*p != '\0' && std::strchr("-+ #0'", *p) != nullptr) {
            leftAlign = leftAlign || *p == '-';
            spec.push_back(*p++);
        }
        int width = -1;
        if (*p == '*') {
            width = va_arg(args, int);
            if (width < 0) {
                leftAlign = true;
                width = -width;
            }
            spec += std::to_string(width);
            ++p;
        } else {
            const char* start = p;
            while (*p >= '0' && *p <= '9')
                ++p;
            if (p != start) width = std::atoi(std::string(start, p).c_str());
            spec.append(start, p);
        }
        int precision = -1;
        if (*p == '.') {
            ++p;
            if (*p == '*') {
                precision = va_arg(args, int);
                ++p;
            } else {
                const char* start = p;
                while (*p >= '0' && *p <= '9')
                    ++p;
                precision = std::atoi(std::string(start, p).c_str());
            }
            if (precision >= 0) spec += "." + std::to_string(precision);
        }
        LengthE length = LengthE::None;
        bool wide = false;
        if (std::strncmp(p, "I64", 3) == 0) {
            length = LengthE::LongLong;
            p += 3;
        } else if (*p == 'h') {
            length = p[1] == 'h' ? LengthE::Char : LengthE::Short;
            p += p[1] == 'h' ? 2 : 1;
        } else if (*p == 'l') {
            length = p[1] == 'l' ? LengthE::LongLong : LengthE::Long;
            p += p[1] == 'l' ? 2 : 1;
        } else if (*p == 'w') {
            wide = true;
            ++p;
        } else if (*p == 'z' || *p == 'j' || *p == 't' || *p == 'L') {
            length = *p == 'z'   ? LengthE::SizeT
                     : *p == 'j' ? LengthE::IntMax
                     : *p == 't' ? LengthE::PtrDiff
                                 : LengthE::LongDouble;
            ++p;
        }
        const char conversion = *p;
        if (conversion == '\0') break;
        ++p;
        switch (conversion) {
            case 'd':
            case 'i':
            case 'u':
            case 'o':
            case 'x':
            case 'X': {
                const bool isSigned = conversion == 'd' || conversion == 'i';
                switch (length) {
                    case LengthE::Long:
                        spec += "l";
                        break;
                    case LengthE::LongLong:
                        spec += "ll";
                        break;
                    case LengthE::SizeT:
                        spec += "z";
                        break;
                    case LengthE::IntMax:
                        spec += "j";
                        break;
                    case LengthE::PtrDiff:
                        spec += "t";
                        break;
                    default:
                        break;
                }
                spec.push_back(conversion);
                if (length == LengthE::Long)
                    isSigned ? appendFormatted(out, spec, 0, va_arg(args, long))
                             : appendFormatted(out, spec, 0, va_arg(args, unsigned long));
                else if (length == LengthE::LongLong)
                    isSigned ? appendFormatted(out, spec, 0, va_arg(args, long long))
                             : appendFormatted(out, spec, 0, va_arg(args, unsigned long long));
                else if (length == LengthE::SizeT)
                    appendFormatted(out, spec, 0, va_arg(args, std::size_t));
                else if (length == LengthE::IntMax)
                    isSigned ? appendFormatted(out, spec, 0, va_arg(args, std::intmax_t))
                             : appendFormatted(out, spec, 0, va_arg(args, std::uintmax_t));
                else if (length == LengthE::PtrDiff)
                    appendFormatted(out, spec, 0, va_arg(args, std::ptrdiff_t));
                else if (isSigned)
                    appendFormatted(out, spec, 0,
                                    length == LengthE::Char    ? static_cast<signed char>(va_arg(args, int))
                                    : length == LengthE::Short ? static_cast<short>(va_arg(args, int))
                                                               : va_arg(args, int));
                else
                    appendFormatted(out, spec, 0,
                                    length == LengthE::Char    ? static_cast<unsigned char>(va_arg(args, unsigned))
                                    : length == LengthE::Short ? static_cast<unsigned short>(va_arg(args, unsigned))
                                                               : va_arg(args, unsigned));
                break;
            }
            case 'e':
            case 'E':
            case 'f':
            case 'F':
            case 'g':
            case 'G':
            case 'a':
            case 'A':
                if (length == LengthE::LongDouble) {
                    spec += "L";
                    spec.push_back(conversion);
                    appendFormatted(out, spec, 0, va_arg(args, long double));
                } else {
                    spec.push_back(conversion);
                    appendFormatted(out, spec, 0, va_arg(args, double));
                }
                break;
            case 'c':
                if (length == LengthE::Long || wide) {
                    spec += "lc";
                    // A wide character arrives promoted; wint_t is narrower than int on Windows.
                    appendFormatted(out, spec, 1, static_cast<std::wint_t>(va_arg(args, unsigned int)));
                } else {
                    const char c = static_cast<char>(va_arg(args, int));
                    out.escaped(&c, 1);
                }
                break;
            case 'S':
            case 's':
                // "%S" in a narrow format is a wide string, as in the Windows C runtime.
                if (length == LengthE::Long || wide || conversion == 'S') {
                    spec += "ls";
                    appendFormatted(out, spec, 1, va_arg(args, const wchar_t*));
                } else {
                    appendString(out, va_arg(args, const char*), leftAlign, width, precision);
                }
                break;
            case 'p':
                spec.push_back('p');
                appendFormatted(out, spec, 0, va_arg(args, void*));
                break;
            case 'n':
                // Writing back through an argument has no place in a log line.
                (void)va_arg(args, void*);
                break;
            default:
                // An unknown conversion is shown as written.
                out.literal(spec.data(), spec.size());
                out.literal(&conversion, 1);
                break;
        }
    }
    return out.finish();
}

}  // namespace halvern
