#include "sim/windows/WindowsRun.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "platform/sim/SimRoot.h"
#include "platform/sim/SimUsbBus.h"
#include "sim/SimRootLayout.h"
#include "sim/standin/StandInInstall.h"
#include "sim/windows/RelayWire.h"
#include "sim/windows/WineRegistryExport.h"
#include "sim/windows/WineRelayServerC.h"

namespace halvern::sim {

namespace {

using Clock = std::chrono::steady_clock;

// The simulated instrument's own files on the system drive, as both sides name them.
const char* const kSimFolder = "C/ProgramData/HalvernSim";
const char* const kSimFolderWindows = "C:\\ProgramData\\HalvernSim\\";
// Wine's own programs of these names would stand where the instrument's tools are expected.
const char* const kDllOverrides = "mscoree,mshtml=;cmd.exe,netsh.exe,route.exe,ipconfig.exe,pnputil.exe=n";
constexpr int kPrefixSetupSeconds = 900;
constexpr int kEfiServiceReadySeconds = 60;
constexpr int kCloseAttempts = 5;
constexpr int kCloseGraceSeconds = 60;
constexpr int kWineserverEndSeconds = 15;
constexpr int kDeviceChangeSeconds = 30;
constexpr int kDeviceChangeAttempts = 3;

bool exists(const std::string& path)
{
    struct stat st {};
    return ::stat(path.c_str(), &st) == 0;
}

void setWineEnvironment(const WindowsRunT& run, std::uint16_t relayPort)
{
    ::setenv("WINEPREFIX", (run.root + "/wine").c_str(), 1);
    // Wine's own messages only when asked for (WINEDEBUG=+serial ... to look into a Wine run).
    ::setenv("WINEDEBUG", "-all", 0);
    ::setenv("WINEDLLOVERRIDES", kDllOverrides, 1);
    ::setenv("HALVERN_SIM_RELAY_PORT", std::to_string(relayPort).c_str(), 1);
    // The backend is found through the search path, which has Python's folder on the instrument.
    ::setenv("WINEPATH", "C:\\Python", 1);
    ::unsetenv("DISPLAY");
    ::unsetenv("WAYLAND_DISPLAY");
    // A Windows build listens on every interface unless its ports were moved: keep it on loopback.
    for (const char* name : {"HALVERN_SEP_PORT_55557", "HALVERN_SEP_PORT_55558"}) {
        const char* value = std::getenv(name);
        if (value == nullptr || *value == '\0') ::setenv(name, name + std::strlen(name) - 5, 1);
    }
}

pid_t spawn(const std::vector<std::string>& words, bool ownProcessGroup, const std::string& folder = {})
{
    const pid_t child = ::fork();
    if (child != 0) {
        if (child > 0 && ownProcessGroup) ::setpgid(child, child);
        return child;
    }
    // Its own process group: the terminal's Ctrl-C reaches only the simulator, which asks Halvern.exe to
    // close the Windows way.
    if (ownProcessGroup) ::setpgid(0, 0);
    if (!folder.empty() && ::chdir(folder.c_str()) != 0) ::_exit(127);
    std::vector<std::string> copy = words;
    std::vector<char*> argv;
    for (auto& word : copy)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    ::execvp(argv[0], argv.data());
    std::fprintf(stderr, "halvern-sim: cannot run %s: %s\n", argv[0], std::strerror(errno));
    ::_exit(127);
}

// The exit code of `child`, waiting at most `seconds`; -1 when it is still running then.
int waitFor(pid_t child, int seconds)
{
    const auto deadline = Clock::now() + std::chrono::seconds(seconds);
    for (;;) {
        int status = 0;
        const pid_t done = ::waitpid(child, &status, WNOHANG);
        if (done == child) return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        if (done < 0 && errno != EINTR) return -1;
        if (Clock::now() >= deadline) return -1;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

int runBounded(const std::vector<std::string>& words, int seconds, const std::string& folder = {})
{
    const pid_t child = spawn(words, false, folder);
    if (child < 0) return -1;
    const int code = waitFor(child, seconds);
    if (code >= 0) return code;
    ::kill(child, SIGKILL);
    waitFor(child, 5);
    return -1;
}

std::string windowsProgram(const WindowsRunT& run, const char* name)
{
    return run.windowsBuild + "/" + name;
}

// The bus changes of "halvern-sim ctl usb ..." reach Halvern.exe's window the way Windows delivers them: the
// relay registers with the simulated bus as a window would, and hands each arrival or removal to
// post_device_change.exe in the prefix, which sends WM_DEVICECHANGE to Halvern's main window.
class UsbChangeRelayC {
    static constexpr int kSliceMs = 500;

public:
    explicit UsbChangeRelayC(const std::string& root) : m_root(root)
    {
        using BindE = platform::sim::UsbNotifyEndpointC::BindE;
        const BindE bound = m_endpoint.bind(root, "wine-relay");
        if (bound == BindE::NoSocket)
            std::fprintf(stderr, "halvern-sim: USB device changes cannot reach Halvern.exe (%s)\n",
                         std::strerror(errno));
        if (bound != BindE::Bound) return;
        m_thread = std::thread([this] { relay(); });
    }
    ~UsbChangeRelayC()
    {
        m_stop = true;
        if (m_thread.joinable()) m_thread.join();
    }
    UsbChangeRelayC(const UsbChangeRelayC&) = delete;
    UsbChangeRelayC& operator=(const UsbChangeRelayC&) = delete;

private:
    void relay()
    {
        while (!m_stop) {
            pollfd readable{m_endpoint.socket(), POLLIN, 0};
            if (::poll(&readable, 1, kSliceMs) <= 0) continue;
            char word[16] = {};
            if (::recv(m_endpoint.socket(), word, sizeof word - 1, 0) <= 0) continue;
            if (std::strcmp(word, platform::sim::kUsbArrivalWord) != 0 &&
                std::strcmp(word, platform::sim::kUsbRemovalWord) != 0)
                continue;
            bool told = false;
            for (int attempt = 0; attempt < kDeviceChangeAttempts && !told && !m_stop; ++attempt) {
                told = runBounded({"wine", "W:\\post_device_change.exe", word}, kDeviceChangeSeconds,
                                  m_root + "/C") == 0;
                if (!told) std::this_thread::sleep_for(std::chrono::seconds(1));
            }
            if (!told) std::fprintf(stderr, "halvern-sim: no Halvern.exe window took the USB %s\n", word);
        }
    }

    std::string m_root;
    platform::sim::UsbNotifyEndpointC m_endpoint;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

// Watches Halvern's log for the SEP servers' ports and records them where the host build does, first
// line 55557, second 55558 (the order Halvern starts them in).
class SepPortAnnouncerC {
public:
    explicit SepPortAnnouncerC(const std::string& root) : m_root(root)
    {
        std::ifstream log(logFilePath(root), std::ios::ate);
        if (log) m_offset = log.tellg();
        m_thread = std::thread([this] { watch(); });
    }
    ~SepPortAnnouncerC()
    {
        m_stop = true;
        m_thread.join();
    }

private:
    void watch()
    {
        int announced = 0;
        std::string pending;
        while (!m_stop && announced < 2) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            std::ifstream log(logFilePath(m_root), std::ios::binary);
            if (!log) continue;
            log.seekg(m_offset);
            std::string chunk((std::istreambuf_iterator<char>(log)), std::istreambuf_iterator<char>());
            m_offset += static_cast<std::streamoff>(chunk.size());
            pending += chunk;
            std::size_t end = 0;
            while (announced < 2 && (end = pending.find('\n')) != std::string::npos) {
                const std::string line = pending.substr(0, end);
                pending.erase(0, end + 1);
                static const std::string kStarted = "Started SEP server on port ";
                const auto at = line.find(kStarted);
                if (at == std::string::npos) continue;
                const int port = std::atoi(line.c_str() + at + kStarted.size());
                platform::sim::makeDirectories(m_root + "/sim/sep");
                std::ofstream(m_root + "/sim/sep/" + (announced == 0 ? "55557" : "55558")) << port << "\n";
                ++announced;
            }
        }
    }

    std::string m_root;
    std::streamoff m_offset = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

bool prepareDrives(const WindowsRunT& run)
{
    std::string error;
    const std::string simFolder = run.root + "/" + kSimFolder;
    if (!platform::sim::makeDirectories(simFolder)) {
        std::fprintf(stderr, "halvern-sim: cannot create %s\n", simFolder.c_str());
        return false;
    }
    std::ofstream(simFolder + "/instrument.reg", std::ios::trunc) << wineRegistryText(run.root);
    std::printf("halvern-sim: preparing the Wine prefix %s/wine\n", run.root.c_str());
    std::fflush(stdout);
    const int prepared = runBounded({"sh", run.prefixScript, "prepare", run.root, run.windowsBuild,
                                     std::string(kSimFolderWindows) + "instrument.reg"},
                                    kPrefixSetupSeconds);
    if (prepared != 0) {
        std::fprintf(stderr, "halvern-sim: the Wine prefix could not be prepared (%d)\n", prepared);
        return false;
    }
    // Without the write filter's configuration library, as on a Windows without the filter.
    std::remove((run.root + "/C/Windows/System32/uwfcfgmgmt.dll").c_str());
    if (!installWindowsStandIns(run.root, windowsProgram(run, "halvern-standin.exe"), error)) {
        std::fprintf(stderr, "halvern-sim: %s\n", error.c_str());
        return false;
    }
    return true;
}

}  // namespace

int runHalvernUnderWine(const WindowsRunT& given, const volatile std::sig_atomic_t& closeRequested)
{
    // Wine takes absolute folders only.
    WindowsRunT run = given;
    std::error_code failure;
    for (std::string* folder : {&run.root, &run.windowsBuild}) {
        const auto absolute = std::filesystem::weakly_canonical(*folder, failure);
        if (!failure) *folder = absolute.string();
    }
    for (const char* name :
         {"Halvern.exe", "efi-service-sim.exe", "halvern-standin.exe", "post_close.exe", "post_device_change.exe"}) {
        if (!exists(windowsProgram(run, name))) {
            std::fprintf(stderr, "halvern-sim: no %s in %s (build the windows preset)\n", name,
                         run.windowsBuild.c_str());
            return 2;
        }
    }
    // The ports of an earlier run must not lead a client to a port nobody listens on any more.
    for (const char* port : {"55557", "55558"})
        std::remove((run.root + "/sim/sep/" + port).c_str());
    WineRelayServerC relay;
    std::string error;
    if (!relay.start(run.root, run.hostStandIn, error)) {
        std::fprintf(stderr, "halvern-sim: %s\n", error.c_str());
        return 2;
    }
    setWineEnvironment(run, relay.port());
    if (!prepareDrives(run)) return 2;
    std::ofstream(run.root + "/" + kSimFolder + "/relay-port", std::ios::trunc) << relay.port() << "\n";

    const std::string ready = run.root + "/" + kSimFolder + "/efi-ready";
    const std::string stop = run.root + "/" + kSimFolder + "/efi-stop";
    std::remove(ready.c_str());
    std::remove(stop.c_str());
    const pid_t efiService =
        spawn({"wine", "W:\\efi-service-sim.exe", "--relay", std::to_string(relay.port()), "--ready",
               std::string(kSimFolderWindows) + "efi-ready", "--stop", std::string(kSimFolderWindows) + "efi-stop"},
              true, run.root + "/C");
    const auto readyBy = Clock::now() + std::chrono::seconds(kEfiServiceReadySeconds);
    while (efiService > 0 && !exists(ready) && Clock::now() < readyBy)
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    if (!exists(ready)) std::fprintf(stderr, "halvern-sim: the EFI service's pipes did not come up under Wine\n");

    int exitCode = 2;
    {
        SepPortAnnouncerC announcer(run.root);
        UsbChangeRelayC usbChanges(run.root);
        std::vector<std::string> words{"wine", "W:\\Halvern.exe"};
        words.insert(words.end(), run.halvernArguments.begin(), run.halvernArguments.end());
        const pid_t halvern = spawn(words, true, run.root + "/C");
        bool closing = false;
        auto closeDeadline = Clock::time_point::max();
        while (halvern > 0) {
            const int code = waitFor(halvern, 0);
            if (code >= 0) {
                exitCode = code;
                break;
            }
            if (closeRequested && !closing) {
                closing = true;
                std::printf("halvern-sim: asking Halvern.exe to close\n");
                std::fflush(stdout);
                for (int attempt = 0; attempt < kCloseAttempts; ++attempt) {
                    if (runBounded({"wine", "W:\\post_close.exe"}, 30, run.root + "/C") == 0) break;
                    std::this_thread::sleep_for(std::chrono::seconds(1));
                }
                closeDeadline = Clock::now() + std::chrono::seconds(kCloseGraceSeconds);
            }
            if (Clock::now() > closeDeadline) {
                std::fprintf(stderr, "halvern-sim: Halvern.exe did not close within %d s, ending it\n",
                             kCloseGraceSeconds);
                ::kill(-halvern, SIGKILL);
                closeDeadline = Clock::time_point::max();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
        }
    }

    std::ofstream(stop.c_str()) << "stop\n";
    if (efiService > 0 && waitFor(efiService, 10) < 0) {
        ::kill(-efiService, SIGKILL);
        waitFor(efiService, 5);
    }
    relay.stop();
    // What Halvern.exe left running in this prefix (stand-ins that outlive it) ends with the prefix's
    // wineserver; only this sim root's prefix is touched.
    if (runBounded({"wineserver", "-w"}, kWineserverEndSeconds) != 0) runBounded({"wineserver", "-k"}, 30);
    return exitCode;
}

}  // namespace halvern::sim
