#include "sim/board/BoardTelnetServerC.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>

namespace halvern::sim {

namespace {

constexpr unsigned char kIac = 255;
constexpr unsigned char kDont = 254;
constexpr unsigned char kDo = 253;
constexpr unsigned char kWont = 252;
constexpr unsigned char kWill = 251;
constexpr unsigned char kSb = 250;
constexpr unsigned char kSe = 240;
constexpr unsigned char kOptionEcho = 1;
constexpr unsigned char kOptionSuppressGoAhead = 3;

// A shell takes this long to come up behind a new connection; a client reads the negotiation before the
// prompt arrives.
constexpr auto kShellStartUp = std::chrono::milliseconds(60);

bool sendAll(int socket, const std::string& bytes)
{
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t sent = ::send(socket, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

// The client's side of the byte stream: telnet commands answered, text cut into lines.
class TelnetInputC {
public:
    // Feeds received bytes; complete lines go to `lines`, answers to the client's options to `answers`.
    void feed(const std::string& bytes, std::vector<std::string>& lines, std::string& answers)
    {
        for (char byte : bytes) {
            const auto c = static_cast<unsigned char>(byte);
            switch (m_state) {
                case StateE::Data:
                    if (c == kIac)
                        m_state = StateE::Command;
                    else
                        text(byte, lines);
                    break;
                case StateE::Command:
                    if (c == kIac) {
                        text(byte, lines);
                        m_state = StateE::Data;
                    } else if (c == kWill || c == kWont || c == kDo || c == kDont) {
                        m_verb = c;
                        m_state = StateE::Option;
                    } else {
                        m_state = c == kSb ? StateE::Sub : StateE::Data;
                    }
                    break;
                case StateE::Option:
                    answers += answer(m_verb, c);
                    m_state = StateE::Data;
                    break;
                case StateE::Sub:
                    if (c == kIac) m_state = StateE::SubIac;
                    break;
                case StateE::SubIac:
                    m_state = c == kSe ? StateE::Data : StateE::Sub;
                    break;
            }
        }
    }

private:
    enum class StateE { Data, Command, Option, Sub, SubIac };

    void text(char c, std::vector<std::string>& lines)
    {
        // CR LF and CR NUL end a line as CR does; a bare LF does too.
        const bool afterCr = m_afterCr;
        m_afterCr = c == '\r';
        if (afterCr && (c == '\n' || c == '\0')) return;
        if (c == '\r' || c == '\n') {
            lines.push_back(m_line);
            m_line.clear();
        } else if (c == '\b' || c == 0x7F) {
            if (!m_line.empty()) m_line.pop_back();
        } else if (c != '\0') {
            m_line += c;
        }
    }

    // Each option is answered once, so two sides that disagree do not loop.
    std::string answer(unsigned char verb, unsigned char option)
    {
        if (!m_answered.insert((static_cast<unsigned>(verb) << 8) | option).second) return {};
        const bool ours = option == kOptionEcho || option == kOptionSuppressGoAhead;
        unsigned char reply = 0;
        if (verb == kWill) reply = option == kOptionSuppressGoAhead ? kDo : kDont;  // the server echoes itself
        if (verb == kDo && !ours) reply = kWont;
        if (reply == 0) return {};
        return std::string{static_cast<char>(kIac), static_cast<char>(reply), static_cast<char>(option)};
    }

    StateE m_state = StateE::Data;
    unsigned char m_verb = 0;
    bool m_afterCr = false;
    std::string m_line;
    std::set<unsigned> m_answered;
};

}  // namespace

bool BoardTelnetServerC::start(std::string& error)
{
    stop();
    m_stopping = false;
    m_wake.reset(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!m_wake) {
        error = std::string("cannot make the telnet server's wake-up: ") + std::strerror(errno);
        return false;
    }
    m_port = 0;
    if (!listen()) {
        error = std::string("cannot listen on 127.0.0.1 for the sensor board's telnet: ") + std::strerror(errno);
        return false;
    }
    m_listener.reset();
    m_thread = std::thread([this] { serve(); });
    return true;
}

void BoardTelnetServerC::stop()
{
    if (m_thread.joinable()) {
        m_stopping = true;
        wake();
        m_thread.join();
    }
    m_listener.reset();
    dropSessions();
    reapSessions(true);
}

void BoardTelnetServerC::setReachable(bool reachable)
{
    if (m_reachable.exchange(reachable) == reachable) return;
    wake();
    // Whoever changes the link sees the change in force when this returns: a board just stopped refuses.
    std::unique_lock<std::mutex> guard(m_stateLock);
    m_stateChanged.wait_for(guard, std::chrono::seconds(1),
                            [&] { return !m_thread.joinable() || m_listening == reachable; });
}

int BoardTelnetServerC::sessions()
{
    std::lock_guard<std::mutex> guard(m_sessionsLock);
    int open = 0;
    for (const auto& session : m_sessions)
        open += session->done ? 0 : 1;
    return open;
}

void BoardTelnetServerC::wake()
{
    const std::uint64_t one = 1;
    [[maybe_unused]] const ssize_t written = ::write(m_wake.get(), &one, sizeof one);
}

bool BoardTelnetServerC::listen()
{
    UniqueFd listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!listener) return false;
    const int on = 1;
    ::setsockopt(listener.get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    address.sin_port = htons(m_port);
    if (::bind(listener.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(listener.get(), 8) != 0)
        return false;
    socklen_t length = sizeof address;
    if (::getsockname(listener.get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) return false;
    m_port = ntohs(address.sin_port);
    m_listener = std::move(listener);
    return true;
}

void BoardTelnetServerC::dropSessions()
{
    std::lock_guard<std::mutex> guard(m_sessionsLock);
    for (auto& session : m_sessions)
        ::shutdown(session->socket.get(), SHUT_RDWR);
}

void BoardTelnetServerC::reapSessions(bool all)
{
    std::list<std::unique_ptr<SessionT>> ended;
    {
        std::lock_guard<std::mutex> guard(m_sessionsLock);
        for (auto it = m_sessions.begin(); it != m_sessions.end();) {
            if (all || (*it)->done) {
                ended.push_back(std::move(*it));
                it = m_sessions.erase(it);
            } else {
                ++it;
            }
        }
    }
    for (auto& session : ended)
        if (session->thread.joinable()) session->thread.join();
}

void BoardTelnetServerC::serve()
{
    while (!m_stopping) {
        const bool reachable = m_reachable;
        // A port taken for a moment by someone else is tried again on the next pass.
        if (reachable && !m_listener) listen();
        if (!reachable && m_listener) {
            m_listener.reset();
            dropSessions();
        }
        {
            std::lock_guard<std::mutex> guard(m_stateLock);
            m_listening = static_cast<bool>(m_listener);
        }
        m_stateChanged.notify_all();
        pollfd watched[2] = {{m_wake.get(), POLLIN, 0}, {m_listener.get(), POLLIN, 0}};
        ::poll(watched, m_listener ? 2 : 1, 100);
        if ((watched[0].revents & POLLIN) != 0) {
            std::uint64_t count = 0;
            [[maybe_unused]] const ssize_t got = ::read(m_wake.get(), &count, sizeof count);
        }
        reapSessions(false);
        if (!m_listener || (watched[1].revents & POLLIN) == 0 || !m_reachable) continue;
        UniqueFd accepted(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!accepted) continue;
        auto session = std::make_unique<SessionT>();
        session->socket = std::move(accepted);
        SessionT* serving = session.get();
        std::lock_guard<std::mutex> guard(m_sessionsLock);
        session->thread = std::thread([this, serving] { serveSession(*serving); });
        m_sessions.push_back(std::move(session));
    }
}

void BoardTelnetServerC::serveSession(SessionT& session)
{
    const int socket = session.socket.get();
    std::unique_ptr<BoardShellC> shell = m_makeShell();
    TelnetInputC input;
    std::vector<std::string> lines;
    std::string answers;
    const std::string negotiation{static_cast<char>(kIac),        static_cast<char>(kWill),
                                  static_cast<char>(kOptionEcho), static_cast<char>(kIac),
                                  static_cast<char>(kWill),       static_cast<char>(kOptionSuppressGoAhead)};
    bool open = sendAll(socket, negotiation);
    // What the client says in the meantime (its own options) is answered together with the prompt.
    const auto promptAt = std::chrono::steady_clock::now() + kShellStartUp;
    char buffer[1024];
    while (open) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(promptAt - std::chrono::steady_clock::now());
        if (left.count() <= 0) break;
        pollfd readable = {socket, POLLIN, 0};
        if (::poll(&readable, 1, static_cast<int>(left.count())) <= 0) continue;
        const ssize_t got = ::recv(socket, buffer, sizeof buffer, 0);
        if (got <= 0)
            open = false;
        else
            input.feed(std::string(buffer, static_cast<std::size_t>(got)), lines, answers);
    }
    open = open && sendAll(socket, answers + shell->prompt());
    answers.clear();
    while (open && !shell->exitRequested()) {
        for (const auto& line : lines) {
            std::string shown = line + "\r\n" + terminalText(shell->run(line));
            if (shell->exitRequested()) {
                sendAll(socket, shown);
                open = false;
                break;
            }
            open = sendAll(socket, shown + shell->prompt());
            if (!open) break;
        }
        lines.clear();
        if (!open) break;
        const ssize_t got = ::recv(socket, buffer, sizeof buffer, 0);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) break;
        input.feed(std::string(buffer, static_cast<std::size_t>(got)), lines, answers);
        if (!answers.empty() && !sendAll(socket, answers)) break;
        answers.clear();
    }
    ::shutdown(socket, SHUT_RDWR);
    session.done = true;
    wake();
}

}  // namespace halvern::sim
