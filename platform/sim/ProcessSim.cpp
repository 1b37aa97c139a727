// Processes of the simulated instrument. Programs named by Windows paths are executables in the sim root
// (the stand-ins that halvern-sim installs); everything else about the session lives in files under
// $HALVERN_ROOT/sim/: "session/user" (the account this program runs as, "SYSTEM" when absent),
// "session/processes" (the system's own processes, "pid session exe" per line), "computer/name" and the
// pending names a rename leaves for the next boot, and "power/shutdown", where a shutdown request is
// recorded for the simulator.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "platform/Clock.h"
#include "platform/Process.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/sim/SimObject.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimSession.h"
#include "platform/sim/UniqueFd.h"

extern char** environ;

namespace platform {
namespace {

constexpr std::uint32_t kErrorNoMoreFiles = 18;
constexpr std::uint32_t kErrorNoSuchPrivilege = 1313;
constexpr std::uint32_t kErrorNoToken = 1008;
constexpr std::uint32_t kErrorInvalidComputerName = 1210;
constexpr std::uint32_t kPollSliceMs = 10;
constexpr std::uint32_t kErrorDirectory = 267;

std::string simFile(const std::string& relative)
{
    const std::string base = sim::root();
    return base.empty() ? std::string() : base + "/sim/" + relative;
}

std::string readFirstLine(const std::string& path, const std::string& fallback)
{
    std::ifstream in(path);
    std::string line;
    if (!in || !std::getline(in, line)) return fallback;
    return line;
}

bool writeFile(const std::string& path, const std::string& text)
{
    const auto slash = path.rfind('/');
    if (path.empty() || !sim::makeDirectories(path.substr(0, slash))) return false;
    std::ofstream out(path, std::ios::trunc);
    out << text;
    return static_cast<bool>(out);
}

// Children whose last handle was closed while they still ran. Windows forgets such a process once it
// ends; a POSIX parent has to collect it, or it stays a zombie for as long as this program runs.
class OrphanReaperC {
public:
    // Never destroyed: a handle closed during the program's exit may still hand it a child.
    static OrphanReaperC& instance()
    {
        static auto* reaper = new OrphanReaperC();
        return *reaper;
    }

    void adopt(pid_t pid)
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_orphans.push_back(pid);
        if (!m_running) {
            m_running = true;
            std::thread([this] { run(); }).detach();
        }
        m_wake.notify_one();
    }

private:
    OrphanReaperC() = default;

    void run()
    {
        std::unique_lock<std::mutex> lock(m_lock);
        for (;;) {
            m_orphans.erase(std::remove_if(m_orphans.begin(), m_orphans.end(),
                                           [](pid_t pid) {
                                               const pid_t done = ::waitpid(pid, nullptr, WNOHANG);
                                               return done == pid || (done < 0 && errno == ECHILD);
                                           }),
                            m_orphans.end());
            if (m_orphans.empty())
                m_wake.wait_for(lock, std::chrono::milliseconds(kIdleWaitMs), [this] { return !m_orphans.empty(); });
            else
                m_wake.wait_for(lock, std::chrono::milliseconds(kReapIntervalMs));
        }
    }

    static constexpr int kReapIntervalMs = 50;
    static constexpr int kIdleWaitMs = 1000;
    std::mutex m_lock;
    std::condition_variable m_wake;
    std::vector<pid_t> m_orphans;
    bool m_running = false;
};

// A child process of this program. Its exit is collected with waitpid when someone looks.
class ProcessObjectC final : public sim::SimObjectC {
public:
    explicit ProcessObjectC(pid_t pid) : m_pid(pid) {}
    // Closing the handle leaves the program running, as on Windows; it is collected once it ends.
    ~ProcessObjectC() override
    {
        reap(false);
        if (!m_exited) OrphanReaperC::instance().adopt(m_pid);
    }

    bool exitCode(std::uint32_t& code)
    {
        std::lock_guard<std::mutex> guard(m_lock);
        reap(false);
        code = m_exited ? m_exitCode : kStillActive;
        return true;
    }

    bool terminate(std::uint32_t code)
    {
        std::lock_guard<std::mutex> guard(m_lock);
        reap(false);
        if (m_exited) {
            setLastError(kErrorAccessDenied);
            return false;
        }
        ::kill(m_pid, SIGKILL);
        reap(true);
        m_exitCode = code;
        return true;
    }

    std::uint32_t wait(std::uint32_t milliseconds) override
    {
        const auto exited = [this] {
            std::lock_guard<std::mutex> guard(m_lock);
            reap(false);
            return m_exited;
        };
        return sim::pollWithClock(milliseconds, kPollSliceMs, exited,
                                  [](std::chrono::milliseconds pause) { std::this_thread::sleep_for(pause); })
                   ? kWaitObject0
                   : kWaitTimeout;
    }

private:
    void reap(bool block)
    {
        if (m_exited) return;
        int status = 0;
        const pid_t done = ::waitpid(m_pid, &status, block ? 0 : WNOHANG);
        if (done != m_pid) return;
        m_exited = true;
        m_exitCode = WIFEXITED(status) ? static_cast<std::uint32_t>(WEXITSTATUS(status)) : 1;
    }

    std::mutex m_lock;
    const pid_t m_pid;
    bool m_exited = false;
    std::uint32_t m_exitCode = kStillActive;
};

// The primary thread of a started program: as in Windows, signalled when the process ends.
class ThreadObjectC final : public sim::SimObjectC {
public:
    explicit ThreadObjectC(HandleValue process) : m_process(process) {}
    std::uint32_t wait(std::uint32_t milliseconds) override
    {
        sim::SimObjectC* process = sim::lookupObject(m_process);
        return process != nullptr ? process->wait(milliseconds) : kWaitObject0;
    }

private:
    HandleValue m_process;
};

struct TokenObjectC final : sim::SimObjectC {
    std::uint32_t sessionId = 0;
};

ProcessObjectC* processObject(HandleValue handle)
{
    auto* object = dynamic_cast<ProcessObjectC*>(sim::lookupObject(handle));
    if (object == nullptr) setLastError(kErrorInvalidHandle);
    return object;
}

TokenObjectC* tokenObject(HandleValue handle)
{
    auto* object = dynamic_cast<TokenObjectC*>(sim::lookupObject(handle));
    if (object == nullptr) setLastError(kErrorInvalidHandle);
    return object;
}

UniqueHandle newToken(std::uint32_t sessionId)
{
    auto token = std::make_unique<TokenObjectC>();
    token->sessionId = sessionId;
    return UniqueHandle(sim::registerObject(std::move(token)));
}

// Command line words as the C runtime of a Windows program splits them: blanks separate, double quotes
// group.
std::vector<std::string> splitCommandLine(const std::string& line)
{
    std::vector<std::string> words;
    std::string word;
    bool quoted = false;
    bool inWord = false;
    for (char c : line) {
        if (c == '"') {
            quoted = !quoted;
            inWord = true;
        } else if ((c == ' ' || c == '\t') && !quoted) {
            if (inWord) words.push_back(word);
            word.clear();
            inWord = false;
        } else {
            word += c;
            inWord = true;
        }
    }
    if (inWord) words.push_back(word);
    return words;
}

bool isExecutable(const std::string& path)
{
    struct stat st {};
    return !path.empty() && ::stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

// A program found through the search path of the simulated system, ".exe" added when missing.
std::string searchProgram(std::string name)
{
    std::string lower = name;
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    if (lower.size() < 4 || lower.compare(lower.size() - 4, 4, ".exe") != 0) name += ".exe";
    for (const char* folder : {"C:\\Windows\\System32\\", "C:\\Windows\\", "C:\\Python\\"}) {
        const std::string path = sim::resolveWindowsPath(folder + name);
        if (isExecutable(path)) return path;
    }
    return {};
}

// One end of an anonymous pipe.
class PipeEndObjectC final : public sim::SimObjectC {
public:
    explicit PipeEndObjectC(int fd) : m_fd(fd) {}
    int fd() const { return m_fd.get(); }

private:
    const sim::UniqueFd m_fd;
};

PipeEndObjectC* pipeEnd(HandleValue handle)
{
    auto* object = dynamic_cast<PipeEndObjectC*>(sim::lookupObject(handle));
    if (object == nullptr) setLastError(kErrorInvalidHandle);
    return object;
}

// What a child gets besides its command line: standard handles and a working directory.
struct ChildSetupT {
    int stdOutput = -1;
    int stdError = -1;
    std::string directory;
};

bool spawn(const std::wstring& application, const std::wstring& commandLine, ProcessInformationT& started,
           const ChildSetupT& setup = ChildSetupT())
{
    const std::string line = narrow(commandLine).value_or(std::string());
    std::vector<std::string> words = splitCommandLine(line);
    std::string program;
    if (!application.empty()) {
        program = sim::resolveWindowsPath(narrow(application).value_or(std::string()));
    } else if (!words.empty()) {
        const std::string& first = words.front();
        program = first.find('\\') != std::string::npos || first.find(':') != std::string::npos
                      ? sim::resolveWindowsPath(first)
                      : searchProgram(first);
        words.erase(words.begin());
    }
    struct stat st {};
    if (program.empty() || ::stat(program.c_str(), &st) != 0) {
        setLastError(kErrorFileNotFound);
        return false;
    }
    if (!isExecutable(program)) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    std::vector<char*> argv;
    argv.push_back(program.data());
    for (auto& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    // The child finds the same simulated instrument, also when this process was given its root in-process.
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry)
        if (std::string(*entry).rfind("HALVERN_ROOT=", 0) != 0) environment.emplace_back(*entry);
    environment.push_back("HALVERN_ROOT=" + sim::root());
    std::vector<char*> envp;
    for (auto& entry : environment)
        envp.push_back(entry.data());
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    if (setup.stdOutput >= 0 || setup.stdError >= 0)
        ::posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    if (setup.stdOutput >= 0) ::posix_spawn_file_actions_adddup2(&actions, setup.stdOutput, 1);
    if (setup.stdError >= 0) ::posix_spawn_file_actions_adddup2(&actions, setup.stdError, 2);
    if (!setup.directory.empty()) ::posix_spawn_file_actions_addchdir_np(&actions, setup.directory.c_str());
    pid_t pid = 0;
    // A new process starts with no signal blocked and default handlers, whatever the spawning thread had
    // (Halvern's threads block the signals its main thread waits for).
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    sigset_t all;
    sigemptyset(&none);
    sigfillset(&all);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setsigdefault(&attributes, &all);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    const int spawned = ::posix_spawn(&pid, program.c_str(), &actions, &attributes, argv.data(), envp.data());
    ::posix_spawnattr_destroy(&attributes);
    ::posix_spawn_file_actions_destroy(&actions);
    if (spawned != 0) {
        setLastError(spawned == ENOENT ? kErrorPathNotFound : kErrorAccessDenied);
        return false;
    }
    HandleValue process = sim::registerObject(std::make_unique<ProcessObjectC>(pid));
    started.process.reset(process);
    started.thread.reset(sim::registerObject(std::make_unique<ThreadObjectC>(process)));
    started.processId = static_cast<std::uint32_t>(pid);
    started.threadId = static_cast<std::uint32_t>(pid);
    return true;
}

std::vector<ProcessEntryT> systemProcesses()
{
    std::vector<ProcessEntryT> processes;
    std::ifstream in(simFile("session/processes"));
    if (!in) return {{4, L"System", 0}, {612, L"winlogon.exe", 1}};
    std::string line;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        ProcessEntryT entry;
        std::string exe;
        if (fields >> entry.processId >> entry.sessionId >> exe) {
            entry.exeFile = widen(exe);
            processes.push_back(entry);
        }
    }
    return processes;
}

// True when `pid` runs with this sim root: a stand-in of the simulated instrument, never a host program.
bool isStandInOfThisRoot(std::uint32_t pid)
{
    std::ifstream in("/proc/" + std::to_string(pid) + "/environ", std::ios::binary);
    const std::string wanted = "HALVERN_ROOT=" + sim::root();
    for (std::string entry; std::getline(in, entry, '\0');)
        if (entry == wanted) return true;
    return false;
}

bool validComputerName(const std::wstring& name, std::size_t limit)
{
    if (name.empty() || name.size() > limit || name.front() == L'-' || name.back() == L'-') return false;
    bool letter = false;
    for (wchar_t c : name) {
        const bool digit = c >= L'0' && c <= L'9';
        const bool alpha = (c >= L'A' && c <= L'Z') || (c >= L'a' && c <= L'z');
        if (!digit && !alpha && c != L'-') return false;
        letter = letter || alpha || c == L'-';
    }
    return letter;
}

}  // namespace

bool createProcess(const std::wstring& application, const std::wstring& commandLine, std::uint32_t, const StartupInfoT&,
                   ProcessInformationT& started)
{
    return spawn(application, commandLine, started);
}

bool shellExecuteElevated(const std::wstring& file, const std::wstring& parameters, UniqueHandle& process)
{
    ProcessInformationT started;
    if (!spawn(L"", L"\"" + file + L"\" " + parameters, started)) return false;
    process = std::move(started.process);
    return true;
}

bool createProcessInheriting(const std::wstring& commandLine, std::uint32_t, const std::wstring& currentDirectory,
                             const StartupInfoT& startup, ProcessInformationT& started)
{
    ChildSetupT setup;
    if (startup.useStdHandles) {
        PipeEndObjectC* output = startup.stdOutput != nullptr ? pipeEnd(startup.stdOutput) : nullptr;
        PipeEndObjectC* error = startup.stdError != nullptr ? pipeEnd(startup.stdError) : nullptr;
        if ((startup.stdOutput != nullptr && output == nullptr) || (startup.stdError != nullptr && error == nullptr))
            return false;
        setup.stdOutput = output != nullptr ? output->fd() : -1;
        setup.stdError = error != nullptr ? error->fd() : -1;
    }
    if (!currentDirectory.empty()) {
        setup.directory = sim::resolveWindowsPath(narrow(currentDirectory).value_or(std::string()));
        struct stat st {};
        if (setup.directory.empty() || ::stat(setup.directory.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
            setLastError(kErrorDirectory);
            return false;
        }
    }
    return spawn(std::wstring(), commandLine, started, setup);
}

bool createAnonymousPipe(UniqueHandle& readEnd, UniqueHandle& writeEnd, std::uint32_t bufferBytes)
{
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        setLastError(kErrorNotEnoughMemory);
        return false;
    }
    // Linux rounds the size up to a page; a child that writes more than that blocks, as on Windows.
    ::fcntl(ends[1], F_SETPIPE_SZ, static_cast<int>(bufferBytes));
    readEnd.reset(sim::registerObject(std::make_unique<PipeEndObjectC>(ends[0])));
    writeEnd.reset(sim::registerObject(std::make_unique<PipeEndObjectC>(ends[1])));
    return true;
}

bool setPipeNoWait(HandleValue pipe)
{
    PipeEndObjectC* end = pipeEnd(pipe);
    if (end == nullptr) return false;
    const int flags = ::fcntl(end->fd(), F_GETFL);
    return flags >= 0 && ::fcntl(end->fd(), F_SETFL, flags | O_NONBLOCK) == 0;
}

bool readFile(HandleValue file, void* buffer, std::uint32_t bytes, std::uint32_t& bytesRead)
{
    PipeEndObjectC* end = pipeEnd(file);
    if (end == nullptr) return false;
    const ssize_t got = ::read(end->fd(), buffer, bytes);
    if (got < 0) {
        setLastError(errno == EAGAIN ? kErrorNoData : kErrorBrokenPipe);
        return false;
    }
    bytesRead = static_cast<std::uint32_t>(got);
    return true;
}

bool getExitCodeProcess(HandleValue process, std::uint32_t& exitCode)
{
    ProcessObjectC* object = processObject(process);
    return object != nullptr && object->exitCode(exitCode);
}

bool terminateProcess(HandleValue process, std::uint32_t exitCode)
{
    ProcessObjectC* object = processObject(process);
    return object != nullptr && object->terminate(exitCode);
}

SnapshotResultE snapshotProcesses(std::vector<ProcessEntryT>& processes)
{
    processes.clear();
    if (sim::root().empty()) {
        setLastError(kErrorPathNotFound);
        return SnapshotResultE::SnapshotFailed;
    }
    processes = systemProcesses();
    if (processes.empty()) {
        setLastError(kErrorNoMoreFiles);
        return SnapshotResultE::FirstFailed;
    }
    return SnapshotResultE::Ok;
}

bool terminateProcessById(std::uint32_t processId, std::uint32_t)
{
    const std::string listPath = simFile("session/processes");
    const std::vector<ProcessEntryT> processes = systemProcesses();
    if (std::none_of(processes.begin(), processes.end(),
                     [processId](const ProcessEntryT& process) { return process.processId == processId; })) {
        setLastError(kErrorInvalidParameter);
        return false;
    }
    if (!isStandInOfThisRoot(processId)) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    const pid_t pid = static_cast<pid_t>(processId);
    if (::kill(pid, SIGKILL) != 0) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    // Collected here when it is this program's child (no one else waits for it); ECHILD otherwise.
    ::waitpid(pid, nullptr, 0);
    // The list is shared with the stand-ins that add themselves to it.
    sim::updateSharedFile(listPath, [processId](const std::string& list) {
        std::istringstream lines(list);
        std::string kept;
        for (std::string line; std::getline(lines, line);) {
            std::istringstream fields(line);
            std::uint32_t pid = 0;
            if (fields >> pid && pid == processId) continue;
            kept += line + "\n";
        }
        return kept;
    });
    return true;
}

bool getUserName(std::wstring& name)
{
    if (sim::root().empty()) {
        setLastError(kErrorPathNotFound);
        return false;
    }
    name = widen(readFirstLine(simFile("session/user"), "SYSTEM"));
    return true;
}

namespace sim {

std::optional<std::uint32_t> tokenSession(HandleValue token)
{
    auto* object = dynamic_cast<TokenObjectC*>(lookupObject(token));
    if (object == nullptr) return std::nullopt;
    return object->sessionId;
}

std::string loggedOnUser()
{
    return readFirstLine(simFile("session/logged-on-user"), "Operator");
}

}  // namespace sim

bool queryUserToken(std::uint32_t sessionId, UniqueHandle& token)
{
    // A user is logged on in a session where Winlogon runs.
    for (const auto& process : systemProcesses()) {
        if (process.sessionId == sessionId && process.exeFile == L"winlogon.exe") {
            token = newToken(sessionId);
            return true;
        }
    }
    setLastError(kErrorNoToken);
    return false;
}

bool openProcessTokenForSession(std::uint32_t processId, UniqueHandle& token)
{
    for (const auto& process : systemProcesses()) {
        if (process.processId == processId) {
            token = newToken(process.sessionId);
            return true;
        }
    }
    setLastError(kErrorInvalidParameter);
    return false;
}

bool lookupPrivilege(const std::wstring& name, std::uint64_t& luid)
{
    static const std::pair<const wchar_t*, std::uint64_t> kKnown[] = {{L"SeSystemtimePrivilege", 12},
                                                                      {L"SeShutdownPrivilege", 19},
                                                                      {L"SeDebugPrivilege", 20},
                                                                      {L"SeTimeZonePrivilege", 34}};
    for (const auto& known : kKnown) {
        if (name == known.first) {
            luid = known.second;
            return true;
        }
    }
    setLastError(kErrorNoSuchPrivilege);
    return false;
}

bool duplicatePrimaryToken(HandleValue token, UniqueHandle& duplicate)
{
    TokenObjectC* object = tokenObject(token);
    if (object == nullptr) return false;
    duplicate = newToken(object->sessionId);
    return true;
}

bool setTokenSessionId(HandleValue token, std::uint32_t sessionId)
{
    TokenObjectC* object = tokenObject(token);
    if (object == nullptr) return false;
    object->sessionId = sessionId;
    return true;
}

bool enableTokenPrivilege(HandleValue token, std::uint64_t)
{
    if (tokenObject(token) == nullptr) return false;
    // The simulated system grants its tokens every privilege.
    setLastError(kErrorSuccess);
    return true;
}

bool openOwnProcessToken(UniqueHandle& token)
{
    token = newToken(0);
    return true;
}

void EnvironmentBlockTraits::close(Value block) noexcept
{
    delete static_cast<char*>(block);
}

bool EnvironmentBlockC::create(HandleValue token, bool)
{
    m_block.reset();
    if (tokenObject(token) == nullptr) return false;
    // The children of the simulated system inherit this process's environment; the block only marks that
    // one was made.
    m_block.reset(new char('\0'));
    return true;
}

bool createProcessAsUser(HandleValue token, const std::wstring& application, const std::wstring& commandLine,
                         std::uint32_t, const EnvironmentBlockC&, const StartupInfoT&, ProcessInformationT& started)
{
    if (tokenObject(token) == nullptr) return false;
    return spawn(application, commandLine, started);
}

bool getComputerName(ComputerNameE format, std::wstring& name)
{
    if (sim::root().empty()) {
        setLastError(kErrorPathNotFound);
        return false;
    }
    std::wstring current = widen(readFirstLine(simFile("computer/name"), "ZENTOR-1000001"));
    if (format == ComputerNameE::NetBios || format == ComputerNameE::PhysicalNetBios) {
        current = current.substr(0, 15);
        std::transform(current.begin(), current.end(), current.begin(),
                       [](wchar_t c) { return c >= L'a' && c <= L'z' ? static_cast<wchar_t>(c - 32) : c; });
    }
    name = current;
    return true;
}

bool setComputerName(ComputerNameE format, const std::wstring& name)
{
    const bool netBios = format == ComputerNameE::PhysicalNetBios;
    if (format != ComputerNameE::PhysicalNetBios && format != ComputerNameE::PhysicalDnsHostname) {
        setLastError(kErrorInvalidParameter);
        return false;
    }
    if (!validComputerName(name, netBios ? 15 : 63)) {
        setLastError(netBios ? kErrorInvalidComputerName : kErrorInvalidParameter);
        return false;
    }
    // Like Windows, the new name is the one of the next boot.
    if (!writeFile(simFile(netBios ? "computer/pending-netbios" : "computer/pending-dns"),
                   narrow(name).value_or(std::string()) + "\n")) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    return true;
}

bool initiateSystemShutdown(std::uint32_t timeoutSeconds, bool forceAppsClosed, bool reboot, std::uint32_t reason)
{
    char record[128];
    std::snprintf(record, sizeof record, "force=%d timeout=%u reboot=%d reason=0x%08X\n", forceAppsClosed ? 1 : 0,
                  timeoutSeconds, reboot ? 1 : 0, reason);
    if (!writeFile(simFile("power/shutdown"), record)) {
        setLastError(kErrorAccessDenied);
        return false;
    }
    return true;
}

}  // namespace platform
