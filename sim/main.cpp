// halvern-sim: the simulated instrument. It prepares a sim root, brings up the instrument's devices and
// its control socket, starts the host build of Halvern on it and forwards Ctrl-C (and SIGTERM) to Halvern
// as a close request, so Halvern ends through its own close path. Its exit code is Halvern's.
// `halvern-sim ctl WORDS...` sends one control command to a running instrument.
#include <pthread.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "platform/Text.h"
#include "platform/sim/SimRoot.h"
#include "sim/ControlServer.h"
#include "sim/HardwareSim.h"
#include "sim/SimBoot.h"
#include "sim/SimRootLayout.h"
#include "sim/WindowsControlCommands.h"
#include "sim/board/HmiControlCommands.h"
#include "sim/board/SensorBoardControlCommands.h"
#include "sim/efi/EfiControlCommands.h"
#include "sim/i2c/I2cControlCommands.h"
#include "sim/standin/StandInInstall.h"
#include "sim/wlan/DriverEventControlCommands.h"
#include "sim/wlan/HostedNetworkControlCommands.h"
#include "sim/wlan/RadioControlCommands.h"
#include "sim/windows/WindowsRun.h"

namespace {

volatile sig_atomic_t g_closeRequested = 0;

void onCloseSignal(int)
{
    g_closeRequested = 1;
}

std::string besideThisProgram(const char* name)
{
    char self[PATH_MAX] = {};
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    if (length <= 0) return name;
    std::string dir(self, static_cast<std::size_t>(length));
    return dir.substr(0, dir.find_last_of('/') + 1) + name;
}

// What a person watching the instrument saw at the end: the power LED's steps and whether Windows was
// shut down.
void reportPowerState(const std::string& root, halvern::sim::EfiControllerModelC& efiModel, bool rebooting)
{
    std::string steps;
    for (const auto& leds : efiModel.ledHistory())
        steps += " " + platform::narrow(leds).value_or("?");
    std::printf("halvern-sim: power LED steps:%s\n", steps.empty() ? " none" : steps.c_str());
    std::ifstream shutdown(root + "/sim/power/shutdown");
    std::string record;
    if (std::getline(shutdown, record))
        std::printf(rebooting ? "halvern-sim: rebooting (%s)\n" : "halvern-sim: the instrument is off (shutdown %s)\n",
                    record.c_str());
}

int runControlClient(std::string root, const std::vector<std::string>& words)
{
    if (root.empty()) {
        const char* fromEnvironment = std::getenv("HALVERN_ROOT");
        root = fromEnvironment != nullptr ? fromEnvironment : "";
    }
    if (root.empty()) {
        std::fprintf(stderr, "halvern-sim ctl: give --root DIR or set HALVERN_ROOT\n");
        return 2;
    }
    std::string line;
    for (const auto& word : words)
        line += (line.empty() ? "" : " ") + word;
    std::string reply;
    const bool answered = halvern::sim::sendControlCommand(root, line, reply);
    if (answered && line == "help" && reply.rfind("OK commands: ", 0) == 0) {
        std::string list = reply.substr(13);
        for (std::size_t at = 0; (at = list.find(", ", at)) != std::string::npos;)
            list.replace(at, 2, "\n  ");
        std::printf(
            "commands of the instrument (a command with wrong or missing words answers with its usage):\n"
            "  %s\n",
            list.c_str());
        return 0;
    }
    std::printf("%s\n", reply.c_str());
    return answered && reply.rfind("OK", 0) == 0 ? 0 : 1;
}

// Without Halvern the instrument runs until Ctrl-C or SIGTERM.
int runInstrumentOnly()
{
    sigset_t closeSignals;
    sigemptyset(&closeSignals);
    sigaddset(&closeSignals, SIGINT);
    sigaddset(&closeSignals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &closeSignals, nullptr);
    int signal = 0;
    sigwait(&closeSignals, &signal);
    std::printf("halvern-sim: instrument stopped\n");
    return 0;
}

// Runs Halvern once on the instrument, passing Ctrl-C (or SIGTERM) on as a close request; its exit code,
// or -1 when it could not be started or waited for.
int runHalvern(const std::string& root, std::string halvernPath, std::vector<std::string> halvernArguments)
{
    halvern::sim::forgetSepPorts(root);
    const pid_t child = fork();
    if (child < 0) {
        std::fprintf(stderr, "halvern-sim: cannot start Halvern: %s\n", std::strerror(errno));
        return -1;
    }
    if (child == 0) {
        // Its own process group: the terminal's Ctrl-C reaches only the simulator, which passes it on once.
        setpgid(0, 0);
        setenv("HALVERN_ROOT", root.c_str(), 1);
        std::vector<char*> childArgv{halvernPath.data()};
        for (auto& argument : halvernArguments)
            childArgv.push_back(argument.data());
        childArgv.push_back(nullptr);
        execv(halvernPath.c_str(), childArgv.data());
        std::fprintf(stderr, "halvern-sim: cannot run %s: %s\n", halvernPath.c_str(), std::strerror(errno));
        _exit(127);
    }
    setpgid(child, child);

    bool forwarded = false;
    int status = 0;
    for (;;) {
        const pid_t done = waitpid(child, &status, 0);
        if (done == child) break;
        if (done < 0 && errno != EINTR) {
            std::perror("halvern-sim: waitpid");
            return -1;
        }
        if (g_closeRequested && !forwarded) {
            std::printf("halvern-sim: asking Halvern to close\n");
            std::fflush(stdout);
            kill(child, SIGTERM);
            forwarded = true;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

int main(int argc, char** argv)
{
    // An output reader that has gone ("| head") must not take the instrument down under a running Halvern.
    signal(SIGPIPE, SIG_IGN);
    CLI::App app{"halvern-sim: the simulated instrument, with Halvern running on it"};
    std::string root;
    std::string halvernPath = besideThisProgram("halvern");
    std::vector<std::string> halvernArguments;
    bool withoutHalvern = false;
    app.add_option("--root", root, "sim root to use (created if missing); default: a new temporary folder");
    app.add_option("--halvern", halvernPath, "the host build of Halvern to start")->capture_default_str();
    app.add_flag("--no-halvern", withoutHalvern, "run the instrument only, until Ctrl-C");
    bool noReboot = false;
    app.add_flag("--no-reboot", noReboot, "end when Halvern reboots the instrument instead of starting it again");
    int boardBootDelayMs = halvern::sim::kDefaultBoardBootDelayMs;
    app.add_option("--board-boot-delay", boardBootDelayMs, "milliseconds from the sensor board's power-on to its login")
        ->capture_default_str()
        ->check(CLI::NonNegativeNumber);
    app.add_option("halvern-arguments", halvernArguments, "arguments for Halvern, after --");
    bool windows = false;
    std::string windowsBuild = besideThisProgram("../windows");
    app.add_flag("--windows", windows, "run the Windows build's Halvern.exe under Wine instead of the host build");
    app.add_option("--windows-build", windowsBuild, "the Windows build holding Halvern.exe")->capture_default_str();
    auto* ctl = app.add_subcommand("ctl", "send one command to a running instrument and print its reply");
    std::string ctlRoot;
    std::vector<std::string> ctlWords;
    ctl->add_option("--root", ctlRoot, "the instrument's sim root; default: $HALVERN_ROOT");
    ctl->add_option("words", ctlWords, "the command, e.g. efi power battery")->required();
    ctl->prefix_command();
    CLI11_PARSE(app, argc, argv);
    if (ctl->parsed()) return runControlClient(ctlRoot, ctlWords);

    std::string error;
    if (root.empty()) root = halvern::sim::makeTemporarySimRoot(error);
    if (root.empty() || !halvern::sim::createSimRootLayout(root, error)) {
        std::fprintf(stderr, "halvern-sim: %s\n", error.c_str());
        return 2;
    }
    if (!halvern::sim::installStandIns(root, besideThisProgram("halvern-standin"), error) ||
        !halvern::sim::provideDefaultRadioEnvironment(root, error)) {
        std::fprintf(stderr, "halvern-sim: %s\n", error.c_str());
        return 2;
    }
    platform::sim::setRoot(root);
    // The devices come up before Halvern, which talks to them from its first steps.
    halvern::sim::ControlCommandsC commands;
    halvern::sim::EfiControllerModelC efiModel;
    efiModel.recordCommandsTo(root + "/sim/efi/commands");
    halvern::sim::EfiServiceSimC efiService(efiModel);
    if (!efiService.start()) std::fprintf(stderr, "halvern-sim: the EFI service cannot serve its pipes\n");
    halvern::sim::addEfiControlCommands(commands, efiModel, efiService);
    halvern::sim::I2cInstrumentDevicesS i2cDevices;
    halvern::sim::I2cDeviceServerC i2cServer;
    i2cServer.add("IOExpander", i2cDevices.ioExpander);
    i2cServer.add("RTClock", i2cDevices.rtc);
    i2cServer.add("EEPROM", i2cDevices.eeprom);
    if (!i2cServer.start(root, error)) std::fprintf(stderr, "halvern-sim: %s\n", error.c_str());
    halvern::sim::addI2cControlCommands(commands, i2cDevices);
    halvern::sim::addWindowsControlCommands(commands);
    halvern::sim::addHardwareControlCommands(commands);
    halvern::sim::addRadioControlCommands(commands);
    halvern::sim::addHostedNetworkControlCommands(commands);
    halvern::sim::SensorBoardModelC board;
    board.setBootDelay(boardBootDelayMs);
    board.setPowerObserver([&efiModel](bool powered) { efiModel.setSensorBoardPowered(powered); });
    if (!board.start(root, error)) std::fprintf(stderr, "halvern-sim: sensor board: %s\n", error.c_str());
    halvern::sim::addSensorBoardControlCommands(commands, board);
    halvern::sim::HmiBoardModelC hmi;
    if (!hmi.start(root, error)) std::fprintf(stderr, "halvern-sim: HMI board: %s\n", error.c_str());
    halvern::sim::CalibrationMutexesC calibrationMutexes;
    halvern::sim::addHmiControlCommands(commands, hmi, calibrationMutexes);
    halvern::sim::NdisIndicationServerC ndisIndications;
    if (!ndisIndications.start(root, error)) std::fprintf(stderr, "halvern-sim: WLAN driver: %s\n", error.c_str());
    halvern::sim::addDriverEventControlCommands(commands, ndisIndications);
    halvern::sim::ControlServerC control(commands);
    if (!control.start(root, error)) {
        std::fprintf(stderr, "halvern-sim: %s\n", error.c_str());
        return 2;
    }
    std::printf("halvern-sim: sim root %s\n", root.c_str());
    std::printf("halvern-sim: control %s\n", halvern::sim::controlSocketPath(root).c_str());
    std::printf("halvern-sim: Halvern log %s\n", halvern::sim::logFilePath(root).c_str());
    std::fflush(stdout);
    if (withoutHalvern) return runInstrumentOnly();

    // Windows takes longer to come up than the sensor board's boot loader: Halvern's first line on the
    // board's console reaches the booting kernel (which keeps it for its login prompt), never U-Boot.
    for (int waited = 0; board.stage() == halvern::sim::SensorBoardModelC::StageE::UBoot && waited < 60000;
         waited += 10)
        usleep(10000);

    struct sigaction action {};
    action.sa_handler = onCloseSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);

    if (windows) {
        const int exitCode = halvern::sim::runHalvernUnderWine(
            {root, windowsBuild, besideThisProgram("halvern-standin"), besideThisProgram("wine-instrument"),
             halvernArguments},
            g_closeRequested);
        reportPowerState(root, efiModel, false);
        std::printf("halvern-sim: Halvern.exe exited with code %d; log %s\n", exitCode,
                    halvern::sim::logFilePath(root).c_str());
        return exitCode;
    }

    for (;;) {
        const int exitCode = runHalvern(root, halvernPath, halvernArguments);
        if (exitCode < 0) return 2;
        const bool rebooting = halvern::sim::windowsShutDown(root) && efiModel.takeRebootRequest();
        reportPowerState(root, efiModel, rebooting);
        const std::string reason = halvern::sim::earlyExitReason(root, halvern::sim::logFilePath(root), exitCode);
        if (!reason.empty()) std::fprintf(stderr, "halvern-sim: %s", reason.c_str());
        if (!g_closeRequested && rebooting && !noReboot) {
            if (!halvern::sim::bootAgain(root, error)) {
                std::fprintf(stderr, "halvern-sim: cannot reboot: %s\n", error.c_str());
                return 2;
            }
            std::printf("halvern-sim: Halvern starts again as after a boot\n");
            std::fflush(stdout);
            continue;
        }
        std::printf("halvern-sim: Halvern exited with code %d; log %s\n", exitCode,
                    halvern::sim::logFilePath(root).c_str());
        return exitCode;
    }
}
