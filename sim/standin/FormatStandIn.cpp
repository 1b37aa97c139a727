#include "sim/standin/FormatStandIn.h"

#include <cctype>
#include <filesystem>
#include <fstream>

namespace halvern::sim {

namespace {
constexpr int kExitBadArguments = 1;
constexpr int kExitFatal = 4;
}  // namespace

int runFormat(const std::string& root, const std::vector<std::string>& arguments)
{
    if (arguments.empty() || arguments[0].size() != 2 || arguments[0][1] != ':' ||
        !std::isalpha(static_cast<unsigned char>(arguments[0][0])))
        return kExitBadArguments;
    const std::string letter(1, static_cast<char>(std::toupper(static_cast<unsigned char>(arguments[0][0]))));
    const std::string volume = root + "/sim/volumes/" + letter;
    const std::string drive = root + "/" + letter;
    bool labelGiven = false;
    std::string label;
    std::string fileSystem;
    for (std::size_t i = 1; i < arguments.size(); ++i) {
        std::string upper = arguments[i];
        for (auto& c : upper)
            c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
        if (upper.compare(0, 3, "/V:") == 0) {
            labelGiven = true;
            label = arguments[i].substr(3);
        } else if (upper.compare(0, 4, "/FS:") == 0) {
            fileSystem = arguments[i].substr(4);
        } else if (upper != "/Q" && upper != "/X" && upper != "/Y") {
            return kExitBadArguments;
        }
    }
    std::error_code error;
    if (!std::filesystem::exists(volume, error) || !std::filesystem::is_directory(drive, error)) return kExitFatal;
    for (const auto& entry : std::filesystem::directory_iterator(drive, error)) {
        std::filesystem::remove_all(entry.path(), error);
        if (error) return kExitFatal;
    }
    if (error) return kExitFatal;
    std::string oldLabel, oldFileSystem;
    {
        std::ifstream in(volume);
        std::getline(in, oldLabel);
        std::getline(in, oldFileSystem);
    }
    std::ofstream out(volume, std::ios::trunc);
    out << (labelGiven ? label : oldLabel) << "\n";
    if (!fileSystem.empty() || !oldFileSystem.empty()) out << (fileSystem.empty() ? oldFileSystem : fileSystem) << "\n";
    if (!out) return kExitFatal;
    return 0;
}

}  // namespace halvern::sim
