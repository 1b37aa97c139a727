#include "sim/windows/WineRelayServerC.h"

#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>

#include "platform/NamedPipe.h"
#include "platform/Text.h"
#include "platform/sim/UniqueFd.h"
#include "sim/standin/StandInInstall.h"
#include "sim/windows/RelayWire.h"

namespace halvern::sim {

using platform::sim::UniqueFd;

namespace {

constexpr int kAcceptPollMs = 200;
// How long a stand-in that serves a pipe may take to make it.
constexpr int kPipeAppearsMs = 5000;

bool exists(const std::string& path)
{
    return ::access(path.c_str(), F_OK) == 0;
}

// What the Windows side must hold for a stand-in while it runs: the objects Halvern.exe looks for.
struct WindowsObjectsT {
    const char* role;
    RelayFrameE kind;
    const char* name;
};
const WindowsObjectsT kWindowsObjects[] = {
    {"diagnostics", RelayFrameE::ServePipe, "DiagnosticsServiceProcessManagement"},
    {"touch-calibration", RelayFrameE::HoldMutex, "Global\\TOUCHSCRAPP"},
    {"voltage-calibration", RelayFrameE::HoldMutex, "Global\\VLTGSCRAPP"},
};

}  // namespace

WineRelayServerC::~WineRelayServerC()
{
    stop();
}

bool WineRelayServerC::start(const std::string& root, const std::string& standInProgram, std::string& error)
{
    m_root = root;
    m_standInProgram = standInProgram;
    m_listener = platform::createTcpSocket();
    if (!m_listener || !platform::bindSocket(m_listener.get(), platform::kLoopbackAddress, 0) ||
        !platform::listenSocket(m_listener.get(), 16)) {
        error = "the Wine relay cannot listen on 127.0.0.1";
        return false;
    }
    m_port = platform::localPort(m_listener.get());
    m_stopping = false;
    m_acceptor = std::thread([this] { serve(); });
    return true;
}

void WineRelayServerC::stop()
{
    if (!m_acceptor.joinable()) return;
    m_stopping = true;
    m_acceptor.join();
    std::vector<std::thread> connections;
    {
        std::lock_guard<std::mutex> guard(m_lock);
        for (auto socket : m_open)
            platform::shutdownSocket(socket);
        connections.swap(m_connections);
    }
    for (auto& connection : connections)
        connection.join();
    m_listener.reset();
}

void WineRelayServerC::serve()
{
    while (!m_stopping) {
        std::vector<platform::SocketPollT> readable{{m_listener.get(), false}};
        if (platform::selectSockets(&readable, nullptr, nullptr, kAcceptPollMs) <= 0) continue;
        std::uint32_t peer = 0;
        platform::UniqueSocket accepted = platform::acceptSocket(m_listener.get(), peer);
        if (!accepted) continue;
        platform::setNoDelay(accepted.get());
        std::lock_guard<std::mutex> guard(m_lock);
        m_open.push_back(accepted.get());
        m_connections.emplace_back([this, socket = accepted.release()] {
            platform::UniqueSocket owned(socket);
            serveConnection(socket);
            std::lock_guard<std::mutex> guard(m_lock);
            m_open.erase(std::remove(m_open.begin(), m_open.end(), socket), m_open.end());
        });
    }
}

void WineRelayServerC::serveConnection(platform::SocketValue socket)
{
    RelayFrameE kind{};
    std::string payload;
    if (!receiveRelayFrame(socket, kind, payload)) return;
    if (kind == RelayFrameE::Pipe) relayPipe(socket, payload);
    if (kind == RelayFrameE::Served)
        sendRelayFrame(socket, RelayFrameE::Served, exists(m_root + "/pipe/" + payload) ? "1" : "0");
    if (kind == RelayFrameE::Run) runStandIn(socket, splitRunRequest(payload));
}

void WineRelayServerC::relayPipe(platform::SocketValue socket, const std::string& name)
{
    // No instrument pipe of that name (the service is stopped): the Windows client's pipe breaks at once.
    platform::UniqueHandle pipe = platform::openPipe(L"\\\\.\\pipe\\" + platform::widen(name));
    if (!pipe) return;
    relayPipeMessages(pipe.get(), socket, false);
}

void WineRelayServerC::runStandIn(platform::SocketValue socket, const std::vector<std::string>& request)
{
    const std::string role = standInRole(request[0]);
    if (role.empty()) {
        sendRelayFrame(socket, RelayFrameE::Output, "halvern-sim: no stand-in for " + request[0] + "\n");
        sendRelayFrame(socket, RelayFrameE::Exit, "9009");
        return;
    }
    int output[2] = {-1, -1};
    if (::pipe(output) != 0) return;
    UniqueFd reading(output[0]);
    UniqueFd writing(output[1]);
    const pid_t child = ::fork();
    if (child < 0) return;
    if (child == 0) {
        // Out of the terminal's process group: Ctrl-C is for halvern-sim, which closes Halvern.exe, which
        // ends its programs.
        ::setpgid(0, 0);
        ::dup2(writing.get(), STDOUT_FILENO);
        ::setenv("HALVERN_ROOT", m_root.c_str(), 1);
        std::vector<std::string> words{m_standInProgram, role};
        words.insert(words.end(), request.begin() + 1, request.end());
        std::vector<char*> argv;
        for (auto& word : words)
            argv.push_back(word.data());
        argv.push_back(nullptr);
        ::execv(m_standInProgram.c_str(), argv.data());
        ::_exit(127);
    }
    writing.reset();
    for (const auto& objects : kWindowsObjects) {
        if (role != objects.role) continue;
        if (objects.kind == RelayFrameE::ServePipe) {
            const std::string served = m_root + "/pipe/" + objects.name;
            for (int waited = 0; !exists(served) && waited < kPipeAppearsMs; waited += 10)
                ::usleep(10000);
        }
        sendRelayFrame(socket, objects.kind, objects.name);
    }
    // Until the stand-in ends (its output closes) or the Windows program goes (the relay closes).
    bool windowsProgramGone = false;
    for (;;) {
        pollfd watched[2] = {{reading.get(), POLLIN, 0}, {static_cast<int>(socket), POLLIN, 0}};
        if (::poll(watched, 2, kAcceptPollMs) < 0) continue;
        if (m_stopping || (watched[1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
            windowsProgramGone = true;
            break;
        }
        if ((watched[0].revents & (POLLIN | POLLHUP)) == 0) continue;
        char chunk[4096];
        const ssize_t got = ::read(reading.get(), chunk, sizeof chunk);
        if (got <= 0) break;
        sendRelayFrame(socket, RelayFrameE::Output, std::string(chunk, static_cast<std::size_t>(got)));
    }
    if (windowsProgramGone) ::kill(child, SIGKILL);
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    if (!windowsProgramGone) {
        const int code = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        sendRelayFrame(socket, RelayFrameE::Exit, std::to_string(code));
    }
}

}  // namespace halvern::sim
