#pragma once
// The sensor board's telnet server on the simulated Ethernet link: a loopback port (never any other
// address) where each connection gets the option negotiation of a telnetd, a prompt and a shell of its
// own. The link state decides whether it listens: an unreachable board refuses connections and drops the
// sessions it had.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "platform/sim/UniqueFd.h"
#include "sim/board/BoardShellC.h"

namespace halvern::sim {

using platform::sim::UniqueFd;

class BoardTelnetServerC {
public:
    using ShellFactory = std::function<std::unique_ptr<BoardShellC>()>;

    explicit BoardTelnetServerC(ShellFactory makeShell) : m_makeShell(std::move(makeShell)) {}
    ~BoardTelnetServerC() { stop(); }
    BoardTelnetServerC(const BoardTelnetServerC&) = delete;
    BoardTelnetServerC& operator=(const BoardTelnetServerC&) = delete;

    // Takes a free loopback port, kept for the server's life, and starts serving; not reachable yet.
    bool start(std::string& error);
    void stop();
    void setReachable(bool reachable);
    std::uint16_t port() const { return m_port; }
    int sessions();

private:
    struct SessionT {
        UniqueFd socket;
        std::thread thread;
        std::atomic<bool> done{false};
    };

    void serve();
    bool listen();
    void dropSessions();
    void reapSessions(bool all);
    void serveSession(SessionT& session);
    void wake();

    ShellFactory m_makeShell;
    UniqueFd m_listener;
    UniqueFd m_wake;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_reachable{false};
    std::atomic<bool> m_stopping{false};
    std::mutex m_stateLock;
    std::condition_variable m_stateChanged;
    bool m_listening = false;
    std::mutex m_sessionsLock;
    std::list<std::unique_ptr<SessionT>> m_sessions;
    std::thread m_thread;
};

}  // namespace halvern::sim
