// halvern-standin: the Windows programs that Halvern starts, as the simulated instrument has them. The sim
// root holds one small launcher per program path that runs this program with the program's role:
//
//   console, backend      run until ended
//   diagnostics           serves "\\.\pipe\DiagnosticsServiceProcessManagement" and ends after a request
//   frontend              listens to SEP; answers the shutdown notification with command 1055 as told
//   touch-calibration,
//   voltage-calibration   end at once
//   ssh                   halts the simulated sensor board (never a network connection)
//   devcon                the device tool: enables and disables the sensor board's Ethernet adapter;
//                         lists, updates and restarts the WLAN card's driver
//   pnputil               the driver store: lists, adds and deletes driver packages
//   route, ipconfig       the route table and the leases of the simulated network
//   firmware-updater      ends, fails, keeps running or asks Halvern to end, as told (runFirmwareUpdater)
//   uwfmgr, netsh         the write filter's next-boot state and the port proxy table (ModeStandIns.h)
//   explorer              the shell: listed in the session's processes, runs until ended
//   reg                   answers the query of the computer name of the next start
//   format                empties a simulated drive and sets its label; with "exit-code" it fails without
//                         touching the drive, with "exit-after-ms=never" it never ends
//
// The calibration applications hold their running mutexes ("Global\TOUCHSCRAPP", "Global\VLTGSCRAPP")
// for as long as they run.
//
// What a role does is set in $HALVERN_ROOT/sim/apps/<role> ("key=value" lines): "exit-after-ms" (after the
// start, or for the frontend after the shutdown notification; "never" to run until ended) and, for the
// frontend, "shutdown-answer" ("none", "not-started", "started"; by default it answers "started" and ends
// 300 ms after the notification). Every start and end is appended to
// $HALVERN_ROOT/sim/apps/log.
#include <sys/prctl.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "client/SepClientC.h"
#include "platform/NamedPipe.h"
#include "platform/Sync.h"
#include "platform/sim/SimRoot.h"
#include "sim/standin/DevconStandIn.h"
#include "sim/standin/ModeStandIns.h"
#include "sim/standin/FormatStandIn.h"
#include "sim/standin/NetworkStandIns.h"
#include "sim/standin/WlanDeviceModel.h"

namespace {

std::string g_role;

std::map<std::string, std::string> readSettings(const std::string& role)
{
    std::map<std::string, std::string> settings;
    std::ifstream in(platform::sim::root() + "/sim/apps/" + role);
    std::string line;
    while (std::getline(in, line)) {
        const auto equals = line.find('=');
        if (equals != std::string::npos) settings[line.substr(0, equals)] = line.substr(equals + 1);
    }
    return settings;
}

void record(const std::string& text)
{
    platform::sim::makeDirectories(platform::sim::root() + "/sim/apps");
    std::ofstream out(platform::sim::root() + "/sim/apps/log", std::ios::app);
    out << g_role << " " << text << "\n";
}

// -1: never.
long exitAfterMs(const std::map<std::string, std::string>& settings, long fallback)
{
    auto it = settings.find("exit-after-ms");
    if (it == settings.end()) return fallback;
    if (it->second == "never") return -1;
    return std::strtol(it->second.c_str(), nullptr, 10);
}

int finish(int code)
{
    record("exited " + std::to_string(code));
    return code;
}

int runUntil(long milliseconds)
{
    if (milliseconds < 0) {
        for (;;)
            pause();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
    return finish(0);
}

int runDiagnostics()
{
    platform::UniqueHandle pipe = platform::createPipeServer(L"\\\\.\\pipe\\DiagnosticsServiceProcessManagement");
    if (!pipe || !platform::connectPipeClient(pipe.get())) return finish(1);
    unsigned char request[64] = {};
    std::uint32_t received = 0;
    if (platform::readPipe(pipe.get(), request, sizeof request, received)) {
        record("shutdown requested");
        const char reply[] = "OK";
        platform::writePipe(pipe.get(), reply, sizeof reply);
    }
    return finish(0);
}

std::uint16_t sepPort()
{
    std::ifstream in(platform::sim::root() + "/sim/sep/55557");
    unsigned port = 55557;
    in >> port;
    return static_cast<std::uint16_t>(port);
}

int runFrontend(const std::map<std::string, std::string>& settings)
{
    // By default it behaves as the real frontend does: it starts its own shutdown and ends soon after.
    const std::string answer = settings.count("shutdown-answer") ? settings.at("shutdown-answer") : "started";
    const long exitAfter = exitAfterMs(settings, 300);
    SEP::SepClientC client;
    for (int attempt = 0; attempt < 100 && !client.connect("127.0.0.1", sepPort()); ++attempt)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    for (;;) {
        std::vector<std::uint8_t> frame;
        if (!client.receiveFrame(frame, 1000)) {
            if (client.closed()) return runUntil(-1);
            continue;
        }
        SEP::DecodedFrameT event;
        if (!SEP::decodeFrame(frame, event) || event.kind != SEP::MESSAGE_KIND_EVENT || event.messageId != 1003)
            continue;
        record("shutdown notified");
        if (answer == "not-started" || answer == "started") {
            const bool start = answer == "started";
            client.sendBytes(SEP::encodeFrame(SEP::CodingE::Binary, 1055, SEP::MESSAGE_KIND_COMMAND, {}, {},
                                              [start](SEP::DataWriterI& w) { return w.writeBool(start); }));
            record(std::string("answered ") + answer);
        }
        return runUntil(exitAfter);
    }
}

int runSsh(int argc, char** argv, const std::map<std::string, std::string>& settings)
{
    std::string arguments;
    for (int i = 2; i < argc; ++i)
        arguments += std::string(i > 2 ? " " : "") + argv[i];
    record("arguments " + arguments);
    if (exitAfterMs(settings, 0) < 0) return runUntil(-1);
    platform::sim::makeDirectories(platform::sim::root() + "/sim/sensorboard");
    std::ofstream(platform::sim::root() + "/sim/sensorboard/halted") << arguments << "\n";
    return runUntil(exitAfterMs(settings, 0));
}

// The firmware updater: records its arguments and its process id ("sim/apps/firmware-updater.pid", so a
// test can end one that keeps running), signals "Global\HalvernShutdownRequest" when told
// ("shutdown-request=yes"), then ends with "exit-code" (default 0) after "exit-after-ms" (default: at once,
// or never after a shutdown request, as the real one waits for Halvern to go).
int runFirmwareUpdater(int argc, char** argv, const std::map<std::string, std::string>& settings)
{
    std::string arguments;
    for (int i = 2; i < argc; ++i)
        arguments += std::string(i > 2 ? " " : "") + argv[i];
    record("arguments " + arguments);
    std::ofstream(platform::sim::root() + "/sim/apps/firmware-updater.pid") << ::getpid() << "\n";
    const bool shutdownRequest = settings.count("shutdown-request") && settings.at("shutdown-request") == "yes";
    platform::UniqueHandle event;
    if (shutdownRequest) {
        event = platform::createEvent(nullptr, true, false, L"Global\\HalvernShutdownRequest");
        if (event && platform::setEvent(event.get())) record("requested shutdown");
    }
    const long exitAfter = exitAfterMs(settings, shutdownRequest ? -1 : 0);
    if (exitAfter < 0) runUntil(-1);
    std::this_thread::sleep_for(std::chrono::milliseconds(exitAfter));
    const auto code = settings.find("exit-code");
    return finish(code == settings.end() ? 0 : std::atoi(code->second.c_str()));
}

// The registry tool, for the one value a client asks of it: the computer name of the next start, which a
// rename leaves in "sim/computer/pending-netbios" until the instrument boots again.
int runReg(int argc, char** argv)
{
    std::string arguments;
    for (int i = 2; i < argc; ++i)
        arguments += std::string(i > 2 ? " " : "") + argv[i];
    record("arguments " + arguments);
    std::string lower = arguments;
    std::transform(lower.begin(), lower.end(), lower.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    if (lower.rfind("query ", 0) != 0 ||
        lower.find("control\\computername\\computername") == std::string::npos ||
        lower.find("/v computername") == std::string::npos) {
        std::printf("ERROR: The system was unable to find the specified registry key or value.\n");
        return finish(1);
    }
    const std::string folder = platform::sim::root() + "/sim/computer/";
    std::string name;
    std::getline(std::ifstream(folder + "pending-netbios"), name);
    if (name.empty()) {
        std::getline(std::ifstream(folder + "name"), name);
        if (name.empty()) name = "ZENTOR-1000001";
        name = name.substr(0, 15);
        std::transform(name.begin(), name.end(), name.begin(),
                       [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    }
    std::printf("\r\nHKEY_LOCAL_MACHINE\\SYSTEM\\CurrentControlSet\\Control\\ComputerName\\ComputerName\r\n"
                "    ComputerName    REG_SZ    %s\r\n\r\n",
                name.c_str());
    return finish(0);
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc < 2 || platform::sim::root().empty()) return 2;
    // A stand-in never outlives the program that started it, so no test or demo leaves one behind.
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    g_role = argv[1];
    const auto settings = readSettings(g_role);
    record("started");
    if (g_role == "diagnostics") return runDiagnostics();
    if (g_role == "frontend") return runFrontend(settings);
    if (g_role == "ssh") return runSsh(argc, argv, settings);
    if (g_role == "firmware-updater") return runFirmwareUpdater(argc, argv, settings);
    if (g_role == "reg") return runReg(argc, argv);
    if (g_role == "console" || g_role == "backend") return runUntil(exitAfterMs(settings, -1));
    if (g_role == "explorer") return halvern::sim::runExplorer(platform::sim::root());
    if (g_role == "devcon" || g_role == "route" || g_role == "ipconfig" || g_role == "pnputil" || g_role == "uwfmgr" ||
        g_role == "netsh" || g_role == "format") {
        const std::vector<std::string> arguments(argv + 2, argv + argc);
        std::string line;
        for (const auto& argument : arguments)
            line += (line.empty() ? "" : " ") + argument;
        record("arguments " + line);
        const std::string root = platform::sim::root();
        if (g_role == "route") return finish(halvern::sim::runRoute(root, arguments));
        if (g_role == "ipconfig") return finish(halvern::sim::runIpconfig(root, arguments));
        if (g_role == "pnputil") return finish(halvern::sim::runPnputil(root, arguments));
        if (g_role == "uwfmgr") return finish(halvern::sim::runUwfmgr(arguments));
        if (g_role == "netsh") {
            const auto failure = settings.find("exit-code");
            return finish(halvern::sim::runNetsh(root, arguments,
                                                 failure == settings.end() ? 0 : std::atoi(failure->second.c_str())));
        }
        if (g_role == "format") {
            if (exitAfterMs(settings, 0) < 0) return runUntil(-1);
            const auto code = settings.find("exit-code");
            if (code != settings.end()) return finish(std::atoi(code->second.c_str()));
            return finish(halvern::sim::runFormat(root, arguments));
        }
        return finish(halvern::sim::runDevcon(root, arguments));
    }
    platform::UniqueHandle running;
    if (g_role == "touch-calibration") running = platform::createMutex(nullptr, false, L"Global\\TOUCHSCRAPP");
    if (g_role == "voltage-calibration") running = platform::createMutex(nullptr, false, L"Global\\VLTGSCRAPP");
    return runUntil(exitAfterMs(settings, 0));
}
