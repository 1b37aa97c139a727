#include "sim/ControlServer.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "platform/sim/SimRoot.h"

namespace halvern::sim {

namespace {

bool makeAddress(const std::string& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return false;
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

// Reads up to the first line feed; false when the peer closed before sending one.
bool readLine(int fd, std::string& line)
{
    line.clear();
    char c = 0;
    for (;;) {
        const ssize_t got = ::read(fd, &c, 1);
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return !line.empty();
        if (c == '\n') return true;
        line.push_back(c);
    }
}

bool writeAll(int fd, const std::string& text)
{
    std::size_t done = 0;
    while (done < text.size()) {
        const ssize_t sent = ::send(fd, text.data() + done, text.size() - done, MSG_NOSIGNAL);
        if (sent < 0 && errno == EINTR) continue;
        if (sent <= 0) return false;
        done += static_cast<std::size_t>(sent);
    }
    return true;
}

}  // namespace

std::string controlSocketPath(const std::string& root)
{
    return root + "/sim/control";
}

ControlServerC::~ControlServerC()
{
    stop();
}

bool ControlServerC::start(const std::string& root, std::string& error)
{
    m_path = controlSocketPath(root);
    sockaddr_un address;
    if (!platform::sim::makeDirectories(root + "/sim") || !makeAddress(m_path, address)) {
        error = "cannot make the control socket " + m_path;
        return false;
    }
    ::unlink(m_path.c_str());
    m_listener.reset(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!m_listener || ::bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listener.get(), 8) != 0 || !platform::sim::makePipe(m_wakeRead, m_wakeWrite)) {
        error = "cannot listen on " + m_path + ": " + std::strerror(errno);
        stop();
        return false;
    }
    m_thread = std::thread([this] { serve(); });
    return true;
}

void ControlServerC::stop()
{
    if (m_thread.joinable()) {
        const char byte = 0;
        if (::write(m_wakeWrite.get(), &byte, 1) != 1) {
            // The pipe is ours and empty: a failed write leaves nothing to undo.
        }
        m_thread.join();
    }
    m_listener.reset();
    m_wakeRead.reset();
    m_wakeWrite.reset();
    if (!m_path.empty()) ::unlink(m_path.c_str());
    m_path.clear();
}

void ControlServerC::serve()
{
    for (;;) {
        pollfd fds[2] = {{m_listener.get(), POLLIN, 0}, {m_wakeRead.get(), POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (fds[1].revents != 0) return;
        const platform::sim::UniqueFd connection(::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!connection) continue;
        // One client at a time: commands act on the instrument in the order they come.
        serveConnection(connection.get());
    }
}

void ControlServerC::serveConnection(int fd)
{
    std::string line;
    while (readLine(fd, line)) {
        if (!writeAll(fd, m_commands.execute(line) + "\n")) return;
    }
}

bool sendControlCommand(const std::string& root, const std::string& line, std::string& reply)
{
    sockaddr_un address;
    const std::string path = controlSocketPath(root);
    if (!makeAddress(path, address)) {
        reply = "ERROR control socket path too long: " + path;
        return false;
    }
    const platform::sim::UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!fd || ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        reply = "ERROR no simulated instrument at " + path + ": " + std::strerror(errno);
        return false;
    }
    const bool ok = writeAll(fd.get(), line + "\n") && readLine(fd.get(), reply);
    if (!ok) reply = "ERROR the simulated instrument did not answer";
    return ok;
}

}  // namespace halvern::sim
