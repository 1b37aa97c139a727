#include "net/DriverPackageListing.h"

#include "app/Log.h"

namespace halvern::net {

namespace {

constexpr const char* kBlanks = " \t\r\n";

std::string trimmed(const std::string& text)
{
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string::npos) return std::string();
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

}  // namespace

std::vector<std::string> parseDriverPackages(const std::string& listing, const std::string& keyword)
{
    std::vector<std::string> packages;
    std::string current;
    std::size_t start = 0;
    while (start < listing.size()) {
        std::size_t end = listing.find('\n', start);
        if (end == std::string::npos) end = listing.size();
        const std::string line = listing.substr(start, end - start);
        start = end + 1;
        const std::size_t colon = line.find(':');
        if (colon == std::string::npos) {
            if (line.find(".inf") != std::string::npos) current = trimmed(line);
            continue;
        }
        // A provider line belongs to the package named last; one without a package before it names nothing.
        if (line.substr(0, colon).find("Provider") == std::string::npos ||
            line.find(keyword, colon + 1) == std::string::npos || current.empty())
            continue;
        WriteLog("Found matching driver: %s", current.c_str());
        packages.push_back(current);
        // The next provider line needs a package line of its own.
        current.clear();
    }
    return packages;
}

}  // namespace halvern::net
