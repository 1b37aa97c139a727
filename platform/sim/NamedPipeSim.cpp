// Named pipes over SOCK_SEQPACKET Unix sockets in the sim root's pipe/ folder. A socket hands out whole
// messages only, so the unread rest of a message that did not fit is kept here, as Windows keeps it in
// the pipe. Every blocking call also watches the handle's cancel descriptor, which is how CancelIoEx
// reaches a thread blocked in it.
#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "platform/NamedPipe.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimObject.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/UniqueFd.h"

namespace platform {

namespace {

using sim::UniqueFd;

// The socket a pipe name is served on, shared by every server instance of this process; the name goes
// away with the last instance, as on Windows.
class ListenerC {
public:
    ListenerC(int fd, std::string path) : m_fd(fd), m_path(std::move(path)) {}
    ~ListenerC() { ::unlink(m_path.c_str()); }
    int fd() const { return m_fd.get(); }

private:
    UniqueFd m_fd;
    std::string m_path;
};

std::mutex g_listenersLock;
std::map<std::string, std::weak_ptr<ListenerC>>& listeners()
{
    static auto* table = new std::map<std::string, std::weak_ptr<ListenerC>>();
    return *table;
}

class PipeC final : public sim::SimObjectC {
public:
    explicit PipeC(int fd, std::shared_ptr<ListenerC> listener = nullptr)
        : m_socket(fd), m_listener(std::move(listener)), m_cancel(::eventfd(0, EFD_CLOEXEC))
    {}
    bool valid() const { return m_cancel.get() >= 0; }

    // TransactNamedPipe is one request on the handle: a thread sharing the handle cannot put its message
    // between another's request and reply, nor take that reply.
    bool transact(const void* request, std::uint32_t requestBytes, void* reply, std::uint32_t replyBytes,
                  std::uint32_t& bytesRead)
    {
        std::lock_guard<std::mutex> guard(m_transaction);
        return write(request, requestBytes) && read(reply, replyBytes, bytesRead);
    }

    bool read(void* buffer, std::uint32_t bytes, std::uint32_t& bytesRead)
    {
        bytesRead = 0;
        if (m_pending.empty() && !receive()) return false;
        const std::size_t count = std::min<std::size_t>(bytes, m_pending.size());
        std::memcpy(buffer, m_pending.data(), count);
        m_pending.erase(m_pending.begin(), m_pending.begin() + static_cast<std::ptrdiff_t>(count));
        bytesRead = static_cast<std::uint32_t>(count);
        if (!m_pending.empty()) {
            setLastError(kErrorMoreData);
            return false;
        }
        return true;
    }

    bool write(const void* data, std::uint32_t bytes)
    {
        if (m_socket.get() < 0) {
            setLastError(kErrorPipeNotConnected);
            return false;
        }
        const ssize_t sent = ::send(m_socket.get(), data, bytes, MSG_NOSIGNAL);
        if (sent == static_cast<ssize_t>(bytes)) return true;
        setLastError(sent < 0 && (errno == EPIPE || errno == ECONNRESET) ? kErrorNoData : kErrorBrokenPipe);
        return false;
    }

    bool connect()
    {
        if (!m_listener) {
            setLastError(kErrorInvalidHandle);
            return false;
        }
        if (m_socket.get() >= 0) return true;
        if (!waitReadable(m_listener->fd())) return false;
        const int fd = ::accept4(m_listener->fd(), nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0) {
            setLastError(kErrorPipeNotConnected);
            return false;
        }
        m_socket.reset(fd);
        return true;
    }

    bool disconnect()
    {
        if (!m_listener) {
            setLastError(kErrorInvalidHandle);
            return false;
        }
        m_socket.reset();
        m_pending.clear();
        return true;
    }

    // Like CancelIoEx, only a call in progress is cancelled; one that begins later blocks as usual.
    bool cancel()
    {
        if (m_inProgress.load() == 0) {
            setLastError(kErrorNotFound);
            return false;
        }
        const std::uint64_t one = 1;
        return ::write(m_cancel.get(), &one, sizeof one) == static_cast<ssize_t>(sizeof one);
    }

private:
    // Waits until `fd` has something to read, or fails with 995 once the handle is cancelled.
    bool waitReadable(int fd)
    {
        ++m_inProgress;
        for (;;) {
            pollfd fds[2] = {{fd, POLLIN, 0}, {m_cancel.get(), POLLIN, 0}};
            const int ready = ::poll(fds, 2, -1);
            if (ready < 0 && errno == EINTR) continue;
            --m_inProgress;
            if (ready < 0 || (fds[1].revents & POLLIN) != 0) {
                std::uint64_t count = 0;
                if (::read(m_cancel.get(), &count, sizeof count) < 0) {
                    // Nothing to drain: a failed poll, not a cancel.
                }
                setLastError(kErrorOperationAborted);
                return false;
            }
            return true;
        }
    }

    bool receive()
    {
        if (m_socket.get() < 0) {
            setLastError(kErrorPipeNotConnected);
            return false;
        }
        if (!waitReadable(m_socket.get())) return false;
        char probe = 0;
        const ssize_t length = ::recv(m_socket.get(), &probe, 1, MSG_PEEK | MSG_TRUNC | MSG_DONTWAIT);
        if (length <= 0) {
            // The other end has closed: no message will come any more.
            setLastError(kErrorBrokenPipe);
            return false;
        }
        m_pending.resize(static_cast<std::size_t>(length));
        const ssize_t got = ::recv(m_socket.get(), m_pending.data(), m_pending.size(), MSG_DONTWAIT);
        if (got != length) {
            m_pending.clear();
            setLastError(kErrorBrokenPipe);
            return false;
        }
        return true;
    }

    UniqueFd m_socket;
    std::shared_ptr<ListenerC> m_listener;
    UniqueFd m_cancel;  // an eventfd that a cancel makes readable
    std::vector<unsigned char> m_pending;
    std::atomic<int> m_inProgress{0};
    std::mutex m_transaction;
};

PipeC* lookupPipe(HandleValue handle)
{
    auto* pipe = dynamic_cast<PipeC*>(sim::lookupObject(handle));
    if (pipe == nullptr) setLastError(kErrorInvalidHandle);
    return pipe;
}

// "\\.\pipe\NAME" -> $HALVERN_ROOT/pipe/NAME; empty (last error set) for anything else.
std::string socketPath(const std::wstring& name)
{
    const std::string text = narrow(name).value_or("");
    const std::string prefix = "\\\\.\\pipe\\";
    std::string lower = text.substr(0, prefix.size());
    std::transform(lower.begin(), lower.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    const std::string rootPath = sim::root();
    if (lower != prefix || text.size() == prefix.size() || rootPath.empty()) {
        setLastError(kErrorInvalidParameter);
        return {};
    }
    std::string pipeName = text.substr(prefix.size());
    std::replace(pipeName.begin(), pipeName.end(), '\\', '_');
    std::replace(pipeName.begin(), pipeName.end(), '/', '_');
    const std::string dir = rootPath + "/pipe";
    sim::makeDirectories(dir);
    return dir + "/" + pipeName;
}

bool socketAddress(const std::string& path, sockaddr_un& address)
{
    address = {};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        setLastError(kErrorInvalidParameter);
        return false;
    }
    std::memcpy(address.sun_path, path.c_str(), path.size() + 1);
    return true;
}

UniqueHandle registerPipe(std::unique_ptr<PipeC> pipe)
{
    if (!pipe->valid()) {
        setLastError(kErrorNotEnoughMemory);
        return UniqueHandle();
    }
    return UniqueHandle(sim::registerObject(std::move(pipe)));
}

}  // namespace

UniqueHandle openPipe(const std::wstring& name)
{
    const std::string path = socketPath(name);
    sockaddr_un address;
    if (path.empty() || !socketAddress(path, address)) return UniqueHandle();
    UniqueFd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    if (fd.get() < 0) {
        setLastError(kErrorNotEnoughMemory);
        return UniqueHandle();
    }
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        setLastError(errno == EAGAIN ? kErrorPipeBusy : kErrorFileNotFound);
        return UniqueHandle();
    }
    return registerPipe(std::make_unique<PipeC>(fd.release()));
}

bool waitNamedPipe(const std::wstring& name, std::uint32_t)
{
    // A served name always has room for one more client: connections queue until an instance accepts.
    const std::string path = socketPath(name);
    struct stat status {};
    if (path.empty()) return false;
    if (::stat(path.c_str(), &status) != 0 || !S_ISSOCK(status.st_mode)) {
        setLastError(kErrorFileNotFound);
        return false;
    }
    return true;
}

bool setPipeMessageReadMode(HandleValue pipe)
{
    // Sequenced packets are always read as messages.
    return lookupPipe(pipe) != nullptr;
}

bool transactPipe(HandleValue pipe, const void* request, std::uint32_t requestBytes, void* reply,
                  std::uint32_t replyBytes, std::uint32_t& bytesRead)
{
    bytesRead = 0;
    PipeC* object = lookupPipe(pipe);
    return object != nullptr && object->transact(request, requestBytes, reply, replyBytes, bytesRead);
}

bool readPipe(HandleValue pipe, void* buffer, std::uint32_t bytes, std::uint32_t& bytesRead)
{
    bytesRead = 0;
    PipeC* object = lookupPipe(pipe);
    return object != nullptr && object->read(buffer, bytes, bytesRead);
}

bool writePipe(HandleValue pipe, const void* data, std::uint32_t bytes)
{
    PipeC* object = lookupPipe(pipe);
    return object != nullptr && object->write(data, bytes);
}

bool cancelPipeIo(HandleValue pipe)
{
    PipeC* object = lookupPipe(pipe);
    return object != nullptr && object->cancel();
}

UniqueHandle createPipeServer(const std::wstring& name)
{
    const std::string path = socketPath(name);
    sockaddr_un address;
    if (path.empty() || !socketAddress(path, address)) return UniqueHandle();
    std::lock_guard<std::mutex> guard(g_listenersLock);
    std::shared_ptr<ListenerC> listener = listeners()[path].lock();
    if (!listener) {
        UniqueFd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        if (fd.get() < 0) {
            setLastError(kErrorNotEnoughMemory);
            return UniqueHandle();
        }
        // A socket file left by a process that has gone is stale; one that still answers is another
        // process's pipe, which this platform cannot add instances to.
        UniqueFd probe(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
        if (::connect(probe.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
            setLastError(kErrorAccessDenied);
            return UniqueHandle();
        }
        ::unlink(path.c_str());
        if (::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(fd.get(), 16) != 0) {
            setLastError(kErrorAccessDenied);
            return UniqueHandle();
        }
        listener = std::make_shared<ListenerC>(fd.release(), path);
        listeners()[path] = listener;
    }
    return registerPipe(std::make_unique<PipeC>(-1, std::move(listener)));
}

bool connectPipeClient(HandleValue pipe)
{
    PipeC* object = lookupPipe(pipe);
    return object != nullptr && object->connect();
}

bool disconnectPipeClient(HandleValue pipe)
{
    PipeC* object = lookupPipe(pipe);
    return object != nullptr && object->disconnect();
}

bool flushPipe(HandleValue pipe)
{
    return lookupPipe(pipe) != nullptr;
}

}  // namespace platform
