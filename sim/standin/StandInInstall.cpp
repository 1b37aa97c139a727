#include "sim/standin/StandInInstall.h"

#include <sys/stat.h>

#include <cerrno>
#include <cstring>
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

}  // namespace

bool installStandIns(const std::string& root, const std::string& standInProgram, std::string& error)
{
    for (const auto& standIn : kStandIns) {
        const std::string path = root + "/" + standIn.path;
        if (!platform::sim::makeDirectories(path.substr(0, path.rfind('/')))) {
            error = "cannot create the folder of " + path + ": " + std::strerror(errno);
            return false;
        }
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
