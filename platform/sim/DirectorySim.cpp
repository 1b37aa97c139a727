// Folder listings in the sim root.
#include <dirent.h>
#include <sys/stat.h>

#include <cerrno>
#include <memory>

#include "platform/FileSystem.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimRoot.h"

namespace platform {

bool listFiles(const std::wstring& folder, std::vector<std::wstring>& names)
{
    names.clear();
    const std::string path = sim::resolveWindowsPath(narrow(folder).value_or(std::string()));
    const std::unique_ptr<DIR, int (*)(DIR*)> directory(path.empty() ? nullptr : ::opendir(path.c_str()), ::closedir);
    if (!directory) {
        setLastError(path.empty() || errno == ENOENT || errno == ENOTDIR ? kErrorPathNotFound : kErrorAccessDenied);
        return false;
    }
    while (const dirent* entry = ::readdir(directory.get())) {
        struct stat st {};
        const std::string full = path + "/" + entry->d_name;
        if (::stat(full.c_str(), &st) != 0 || S_ISDIR(st.st_mode)) continue;
        names.push_back(widen(entry->d_name));
    }
    return true;
}

}  // namespace platform
