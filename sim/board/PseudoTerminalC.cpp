#include "sim/board/PseudoTerminalC.h"

#include <fcntl.h>
#include <poll.h>
#include <stdlib.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "platform/sim/SimRoot.h"

namespace halvern::sim {

bool PseudoTerminalC::open(const std::string& root, const std::string& portName, std::string& error)
{
    close();
    UniqueFd master(::posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!master || ::grantpt(master.get()) != 0 || ::unlockpt(master.get()) != 0) {
        error = "cannot make a pseudo-terminal for " + portName + ": " + std::strerror(errno);
        return false;
    }
    char slaveName[128] = {};
    if (::ptsname_r(master.get(), slaveName, sizeof slaveName) != 0) {
        error = "cannot name the pseudo-terminal of " + portName + ": " + std::strerror(errno);
        return false;
    }
    UniqueFd slave(::open(slaveName, O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    termios settings{};
    if (!slave || ::tcgetattr(slave.get(), &settings) != 0) {
        error = "cannot open " + std::string(slaveName) + ": " + std::strerror(errno);
        return false;
    }
    // No echo and no line editing by the terminal: the board's own console does both, as on the real line.
    ::cfmakeraw(&settings);
    ::cfsetispeed(&settings, B115200);
    ::cfsetospeed(&settings, B115200);
    ::tcsetattr(slave.get(), TCSANOW, &settings);
    // Added after the model's own open, so that only the opens of others are counted.
    UniqueFd opens(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
    if (!opens || ::inotify_add_watch(opens.get(), slaveName, IN_OPEN | IN_CLOSE) < 0) {
        error = "cannot watch " + std::string(slaveName) + ": " + std::strerror(errno);
        return false;
    }
    UniqueFd wake(::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC));
    if (!wake) {
        error = "cannot make the wake-up of " + portName + ": " + std::strerror(errno);
        return false;
    }
    const std::string link = root + "/dev/" + portName;
    platform::sim::makeDirectories(root + "/dev");
    ::unlink(link.c_str());
    if (::symlink(slaveName, link.c_str()) != 0) {
        error = "cannot link " + link + ": " + std::strerror(errno);
        return false;
    }
    m_master = std::move(master);
    m_slave = std::move(slave);
    m_opens = std::move(opens);
    m_wake = std::move(wake);
    m_link = link;
    m_openers = 0;
    return true;
}

bool PseudoTerminalC::start(ReceiveFn onReceive, TickFn onTick, int tickMs, std::string& error)
{
    if (!m_master || m_thread.joinable()) {
        error = "the port is not open or already served";
        return false;
    }
    m_onReceive = std::move(onReceive);
    m_onTick = std::move(onTick);
    m_tickMs = tickMs > 0 ? tickMs : 20;
    m_thread = std::thread([this] { run(); });
    return true;
}

void PseudoTerminalC::close()
{
    if (m_thread.joinable()) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t woken = ::write(m_wake.get(), &one, sizeof one);
        m_thread.join();
    }
    if (!m_link.empty()) ::unlink(m_link.c_str());
    m_link.clear();
    m_opens.reset();
    m_wake.reset();
    m_slave.reset();
    m_master.reset();
}

void PseudoTerminalC::send(const std::string& bytes)
{
    if (!listened() || !m_master) return;
    std::lock_guard<std::mutex> guard(m_sendLock);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(m_master.get(), bytes.data() + done, bytes.size() - done);
        if (written < 0 && errno == EINTR) continue;
        // A full line loses what does not fit, as a receiver that does not keep up does.
        if (written <= 0) return;
        done += static_cast<std::size_t>(written);
    }
}

void PseudoTerminalC::readOpenEvents()
{
    alignas(inotify_event) char buffer[4096];
    for (;;) {
        const ssize_t got = ::read(m_opens.get(), buffer, sizeof buffer);
        if (got <= 0) return;
        for (ssize_t at = 0; at < got;) {
            const auto* event = reinterpret_cast<const inotify_event*>(buffer + at);
            if ((event->mask & IN_OPEN) != 0) {
                // What the board sent before the port was opened is not there for the new opener.
                if (m_openers.fetch_add(1) == 0) ::tcflush(m_slave.get(), TCIFLUSH);
            }
            if ((event->mask & IN_CLOSE) != 0 && m_openers.load() > 0) --m_openers;
            at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
        }
    }
}

void PseudoTerminalC::run()
{
    for (;;) {
        pollfd watched[3] = {{m_wake.get(), POLLIN, 0}, {m_opens.get(), POLLIN, 0}, {m_master.get(), POLLIN, 0}};
        const int ready = ::poll(watched, 3, m_tickMs);
        if (ready < 0 && errno != EINTR) return;
        if (watched[0].revents != 0) return;
        // Opens first: an open always comes before the bytes its opener writes.
        readOpenEvents();
        if ((watched[2].revents & POLLIN) != 0) {
            char buffer[512];
            const ssize_t got = ::read(m_master.get(), buffer, sizeof buffer);
            if (got > 0 && m_onReceive) m_onReceive(std::string(buffer, static_cast<std::size_t>(got)));
        }
        if (m_onTick) m_onTick();
    }
}

}  // namespace halvern::sim
