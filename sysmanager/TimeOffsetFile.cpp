#include <cmath>
#include <stdexcept>

#include "app/Log.h"
#include "sysmanager/TimeKeepingInternal.h"

namespace {

// The first line of the offset file with the C++ library's stod: leading blanks skipped, trailing text
// ignored. The texts are those the instrument's runtime gives these failures.
std::int64_t offsetFromLine(const std::string& line)
{
    double value = 0;
    try {
        value = std::stod(line);
    } catch (const std::invalid_argument&) {
        throw std::invalid_argument("invalid stod argument");
    } catch (const std::out_of_range&) {
        throw std::out_of_range("stod argument out of range");
    }
    // A value that no 64-bit offset can hold is out of range too, not a number to wrap around.
    if (!std::isfinite(value) || value >= 9.2233720368547758e18 || value <= -9.2233720368547758e18)
        throw std::out_of_range("stod argument out of range");
    return static_cast<std::int64_t>(value);
}

}  // namespace

bool halvern::time::parseOffsetFile(const std::string& content, std::int64_t& offset, std::string& standardName,
                                    bool& daylightSaving)
{
    const char* const function = "SysManagerC::GetCalcOffsetTzStdNameDlght";
    offset = 0;
    bool read = true;
    int number = 0;
    std::size_t position = 0;
    bool endOfFile = false;
    // Line by line as a stream reads them: a final line end leaves one more, empty line before the end.
    while (!endOfFile) {
        const std::size_t lineEnd = content.find('\n', position);
        std::string line;
        if (lineEnd == std::string::npos) {
            line = content.substr(position);
            position = content.size();
            endOfFile = true;
        } else {
            line = content.substr(position, lineEnd - position);
            position = lineEnd + 1;
        }
        ++number;
        if (line.empty()) {
            if (number <= 3) {
                WriteLog("Empty mandatory line:%d found in offset file!\n", number);
                read = false;
            } else {
                WriteLog("Empty additional line:%d found in offset file!\n", number);
            }
            break;
        }
        if (number == 1) {
            try {
                offset = offsetFromLine(line);
            } catch (const std::exception& failure) {
                WriteLog("[%s] [ERROR]: %s", function, failure.what());
                read = false;
                break;
            }
        } else if (number == 2) {
            standardName = line;
        } else if (number == 3) {
            daylightSaving = line == "true";
        }
    }
    // A file cut short before its third line has no zone to apply.
    if (read && number < 3) read = false;

    if (!read) {
        WriteLog("No time offset found in file!\n");
        return false;
    }
    return true;
}
