#pragma once
// One owner for a POSIX descriptor of the simulated boards (pseudo-terminals, sockets, wake-ups).
#include <unistd.h>

#include <utility>

namespace halvern::sim {

class UniqueFd {
public:
    UniqueFd() = default;
    explicit UniqueFd(int fd) : m_fd(fd) {}
    ~UniqueFd() { reset(); }
    UniqueFd(UniqueFd&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    UniqueFd& operator=(UniqueFd&& other) noexcept
    {
        if (this != &other) reset(std::exchange(other.m_fd, -1));
        return *this;
    }
    UniqueFd(const UniqueFd&) = delete;
    UniqueFd& operator=(const UniqueFd&) = delete;

    int get() const { return m_fd; }
    explicit operator bool() const { return m_fd >= 0; }
    void reset(int fd = -1)
    {
        if (m_fd >= 0) ::close(m_fd);
        m_fd = fd;
    }

private:
    int m_fd = -1;
};

}  // namespace halvern::sim
