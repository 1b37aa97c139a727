#include <strings.h>
#include <sys/stat.h>

#include <cstring>

#include "platform/DynamicLibrary.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWriteFilter.h"

namespace platform {

namespace {

struct SimModuleC {
    std::vector<sim::SimExportS> exports;
};

const struct {
    const char* name;
    std::vector<sim::SimExportS> (*exports)();
} kLibraries[] = {{"uwfcfgmgmt.dll", sim::uwfConfigLibraryExports}};

}  // namespace

void ModuleTraits::close(Value module) noexcept
{
    delete static_cast<SimModuleC*>(module);
}

UniqueModule loadLibrary(const std::wstring& name)
{
    const std::string fileName = narrow(name).value_or(std::string());
    for (const auto& library : kLibraries) {
        if (strcasecmp(fileName.c_str(), library.name) != 0) continue;
        // Installed only where the instrument's image carries the file.
        const std::string path = sim::resolveWindowsPath(std::string("C:\\Windows\\System32\\") + library.name);
        struct stat st {};
        if (path.empty() || ::stat(path.c_str(), &st) != 0) break;
        return UniqueModule(new SimModuleC{library.exports()});
    }
    setLastError(kErrorModNotFound);
    return UniqueModule();
}

ProcAddress getProcAddress(const UniqueModule& module, const char* name)
{
    auto* library = static_cast<SimModuleC*>(module.get());
    if (library == nullptr) {
        setLastError(kErrorInvalidHandle);
        return nullptr;
    }
    for (const auto& entry : library->exports)
        if (std::strcmp(entry.name, name) == 0) return entry.address;
    setLastError(kErrorProcNotFound);
    return nullptr;
}

}  // namespace platform
