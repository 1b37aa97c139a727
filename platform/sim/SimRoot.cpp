#include "platform/sim/SimRoot.h"

#include <dirent.h>
#include <fcntl.h>
#include <strings.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <sstream>

namespace platform::sim {

namespace {
// Never destroyed: a thread that still logs while the process exits must not resolve its paths through a
// destroyed text (its bytes would name a file wherever the process happens to run).
struct RootSettingT {
    std::mutex lock;
    std::string path;
    bool set = false;
};
RootSettingT& rootSetting()
{
    static auto* setting = new RootSettingT();
    return *setting;
}
}  // namespace

std::string root()
{
    RootSettingT& setting = rootSetting();
    std::lock_guard<std::mutex> guard(setting.lock);
    if (setting.set) return setting.path;
    const char* env = std::getenv("HALVERN_ROOT");
    return env != nullptr ? std::string(env) : std::string();
}

void setRoot(const std::string& rootPath)
{
    RootSettingT& setting = rootSetting();
    std::lock_guard<std::mutex> guard(setting.lock);
    setting.path = rootPath;
    setting.set = true;
}

std::vector<std::string> splitWindowsPath(const std::string& path)
{
    std::vector<std::string> parts;
    std::string current;
    for (char c : path) {
        if (c == '\\' || c == '/') {
            if (!current.empty()) parts.push_back(current);
            current.clear();
        } else {
            current.push_back(c);
        }
    }
    if (!current.empty()) parts.push_back(current);
    return parts;
}

std::string resolveBelow(const std::string& base, const std::vector<std::string>& components)
{
    // Windows takes ".." lexically and never above the drive's root; here that root is `base`, so no path a
    // client names reaches outside the simulated instrument.
    std::vector<std::string> chosenParts;
    const auto current = [&base, &chosenParts] {
        std::string path = base;
        for (const auto& part : chosenParts)
            path += "/" + part;
        return path;
    };
    bool parentExists = true;
    for (const auto& component : components) {
        if (component == ".") continue;
        if (component == "..") {
            if (!chosenParts.empty()) chosenParts.pop_back();
            struct stat st {};
            parentExists = stat(current().c_str(), &st) == 0 && S_ISDIR(st.st_mode);
            continue;
        }
        std::string chosen = component;
        if (parentExists) {
            bool exact = false;
            std::string match;
            if (DIR* dir = opendir(current().c_str())) {
                while (dirent* entry = readdir(dir)) {
                    if (component == entry->d_name) {
                        exact = true;
                        break;
                    }
                    if (match.empty() && strcasecmp(component.c_str(), entry->d_name) == 0) match = entry->d_name;
                }
                closedir(dir);
            }
            if (!exact && !match.empty()) chosen = match;
            parentExists = exact || !match.empty();
        }
        chosenParts.push_back(chosen);
    }
    return current();
}

std::string resolveWindowsPath(const std::string& windowsPath)
{
    const std::string base = root();
    if (base.empty()) return {};
    auto parts = splitWindowsPath(windowsPath);
    if (!parts.empty() && parts[0].size() == 2 && parts[0][1] == ':') {
        parts[0] = std::string(1, static_cast<char>(std::toupper(static_cast<unsigned char>(parts[0][0]))));
        // The drive folder itself is always spelled in upper case.
        std::vector<std::string> rest(parts.begin() + 1, parts.end());
        return resolveBelow(base + "/" + parts[0], rest);
    }
    // Paths without a drive are taken relative to C:\, where Windows would put a process started there.
    return resolveBelow(base + "/C", parts);
}

bool makeDirectories(const std::string& path)
{
    if (path.empty()) return false;
    std::string partial;
    for (std::size_t i = 0; i <= path.size(); ++i) {
        if (i == path.size() || (path[i] == '/' && i > 0)) {
            partial = path.substr(0, i);
            if (mkdir(partial.c_str(), 0755) != 0 && errno != EEXIST) return false;
        }
    }
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

UniqueFd lockFile(const std::string& path, int operation)
{
    UniqueFd fd(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
    if (!fd) return fd;
    while (::flock(fd.get(), operation) != 0) {
        if (errno != EINTR) return UniqueFd();
    }
    return fd;
}

bool updateSharedFile(const std::string& path, const std::function<std::string(const std::string&)>& change)
{
    const auto slash = path.rfind('/');
    if (slash == std::string::npos || !makeDirectories(path.substr(0, slash))) return false;
    // Every process of the instrument takes the same lock file, so no change is lost between a read and
    // the rename; the lock is held only for the read, the write and the rename.
    const UniqueFd lock = lockFile(path + ".lock", LOCK_EX);
    if (!lock) return false;
    std::string current;
    {
        std::ifstream in(path, std::ios::binary);
        std::ostringstream content;
        content << in.rdbuf();
        current = content.str();
    }
    const std::string next = change(current);
    const std::string temporary = path + ".new." + std::to_string(::getpid());
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << next;
        if (!out.flush()) {
            ::unlink(temporary.c_str());
            return false;
        }
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

}  // namespace platform::sim
