#include "sim/standin/StandInInstall.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "platform/sim/SimRoot.h"

namespace halvern::sim {

namespace {

struct StandInT {
    const char* path;  // below the sim root
    const char* role;
};

const StandInT kStandIns[] = {
    {"C/Windows/System32/cmd.exe", "console"},
    {"D/ZentorBackend/DiagnosticsService.exe", "diagnostics"},
    {"C/Python/python.exe", "backend"},
    {"D/ZentorFrontend/ZentorFrontend.exe", "frontend"},
    {"C/Program Files/OpenSSH/ssh.exe", "ssh"},
    {"D/ZentorTools/TouchCalibrationApp.exe", "touch-calibration"},
    {"D/ZentorTools/ScreenVoltageCalibrationApp.exe", "voltage-calibration"},
    {"C/vexarBatches/FirmwareUpdater/devcon.exe", "devcon"},
    {"C/vexarBatches/FirmwareUpdater/FirmwareUpgrader.exe", "firmware-updater"},
    {"C/Windows/System32/route.exe", "route"},
    {"C/Windows/System32/ipconfig.exe", "ipconfig"},
    {"C/Windows/System32/pnputil.exe", "pnputil"},
    {"C/Windows/System32/uwfmgr.exe", "uwfmgr"},
    {"C/Windows/System32/netsh.exe", "netsh"},
    {"C/Windows/explorer.exe", "explorer"},
    {"C/Windows/System32/format.com", "format"},
    {"C/Windows/System32/reg.exe", "reg"},
};

bool makeFolderOf(const std::string& path, std::string& error)
{
    if (platform::sim::makeDirectories(path.substr(0, path.rfind('/')))) return true;
    error = "cannot create the folder of " + path + ": " + std::strerror(errno);
    return false;
}

std::string lower(std::string text)
{
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::tolower(c); });
    return text;
}

}  // namespace

bool installWindowsStandIns(const std::string& root, const std::string& windowsProgram, std::string& error)
{
    for (const auto& standIn : kStandIns) {
        // Under Wine the shell is Wine's own explorer.exe, its desktop process, which must stay.
        if (std::strcmp(standIn.role, "explorer") == 0) continue;
        const std::string path = root + "/" + standIn.path;
        if (!makeFolderOf(path, error)) return false;
        std::error_code failure;
        std::filesystem::remove(path, failure);
        std::filesystem::copy_file(windowsProgram, path, failure);
        if (failure) {
            error = "cannot copy " + windowsProgram + " to " + path + ": " + failure.message();
            return false;
        }
    }
    return true;
}

std::string standInRole(const std::string& windowsPath)
{
    // "C:\a\b" -> "c/a/b", the form of the table.
    std::string path = lower(windowsPath);
    if (path.size() < 3 || path[1] != ':') return {};
    path.erase(1, 1);
    std::replace(path.begin(), path.end(), '\\', '/');
    for (const auto& standIn : kStandIns)
        if (lower(standIn.path) == path) return standIn.role;
    return {};
}

bool installStandIns(const std::string& root, const std::string& standInProgram, std::string& error)
{
    for (const auto& standIn : kStandIns) {
        const std::string path = root + "/" + standIn.path;
        if (!makeFolderOf(path, error)) return false;
        std::ofstream out(path, std::ios::trunc);
        out << "#!/bin/sh\nexec '" << standInProgram << "' " << standIn.role << " \"$@\"\n";
        out.close();
        if (!out || chmod(path.c_str(), 0755) != 0) {
            error = "cannot write " + path + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

}  // namespace halvern::sim
