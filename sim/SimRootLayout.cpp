#include "sim/SimRootLayout.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "platform/sim/SimRoot.h"

namespace halvern::sim {

namespace {
const char* const kFolders[] = {
    "C/vexarBatches/Halvern",
    "C/vexarBatches/Unprotected",
    "C/Program Files",
    "D/logs",
    "registry/HKCU/SOFTWARE/Vexar/Halvern",
    "registry/HKLM/SOFTWARE",
    "registry/HKLM/SYSTEM/CurrentControlSet/Services",
    "kernel/Global",
    "kernel/Local",
    "pipe",
    "dev",
};
}  // namespace

bool createSimRootLayout(const std::string& root, std::string& error)
{
    for (const char* folder : kFolders) {
        const std::string path = root + "/" + folder;
        if (!platform::sim::makeDirectories(path)) {
            error = "cannot create " + path + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

std::string makeTemporarySimRoot(std::string& error)
{
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp != nullptr && *tmp != '\0' ? tmp : "/tmp") + "/halvern-sim.XXXXXX";
    if (mkdtemp(pattern.data()) == nullptr) {
        error = "cannot create a temporary sim root: " + std::string(std::strerror(errno));
        return {};
    }
    return pattern;
}

std::string logFilePath(const std::string& root)
{
    return root + "/D/logs/Halvern.log";
}

}  // namespace halvern::sim
