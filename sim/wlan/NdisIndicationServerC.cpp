#include "sim/wlan/NdisIndicationServerC.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstring>

#include "platform/sim/NdisWire.h"
#include "platform/sim/SimRoot.h"

namespace halvern::sim {

namespace {

// What WMI answers for a query on a class it does not know (WBEM_E_INVALID_CLASS).
constexpr std::uint32_t kInvalidClass = 0x80041010;

}  // namespace

NdisIndicationServerC::~NdisIndicationServerC()
{
    stop();
}

bool NdisIndicationServerC::start(const std::string& root, std::string& error)
{
    stop();
    m_path = platform::sim::ndisWireSocketPath(root);
    sockaddr_un address{};
    if (m_path.size() >= sizeof address.sun_path) {
        error = "socket path too long: " + m_path;
        return false;
    }
    if (!platform::sim::makeDirectories(m_path.substr(0, m_path.find_last_of('/')))) {
        error = "cannot create the folder of " + m_path;
        return false;
    }
    ::unlink(m_path.c_str());
    m_listener.reset(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0));
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, m_path.c_str(), m_path.size() + 1);
    if (!m_listener || ::bind(m_listener.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_listener.get(), 8) != 0 || !platform::sim::makePipe(m_wakeRead, m_wakeWrite)) {
        error = "cannot serve " + m_path + ": " + std::strerror(errno);
        m_listener.reset();
        return false;
    }
    m_thread = std::thread([this] { serve(); });
    return true;
}

void NdisIndicationServerC::stop()
{
    if (m_thread.joinable()) {
        const char stopByte = 0;
        if (::write(m_wakeWrite.get(), &stopByte, 1) != 1) {
            // The pipe cannot be full: the thread reads no byte but this one.
        }
        m_thread.join();
    }
    std::lock_guard<std::mutex> guard(m_lock);
    m_subscribers.clear();
    if (m_listener) ::unlink(m_path.c_str());
    m_listener.reset();
    m_wakeRead.reset();
    m_wakeWrite.reset();
}

int NdisIndicationServerC::deliver(const std::string& className, const std::vector<std::uint8_t>* indication)
{
    std::vector<std::uint8_t> message(className.begin(), className.end());
    if (indication != nullptr) {
        message.push_back(0);
        message.insert(message.end(), indication->begin(), indication->end());
    }
    int reached = 0;
    std::lock_guard<std::mutex> guard(m_lock);
    for (auto& [fd, subscriber] : m_subscribers) {
        if (subscriber.second.count(className) == 0) continue;
        if (::send(fd, message.data(), message.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(message.size())) ++reached;
    }
    return reached;
}

void NdisIndicationServerC::refuseQueries(std::uint32_t error)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_refusal = error;
}

void NdisIndicationServerC::answerQuery(int subscriber)
{
    char query[platform::sim::kNdisWireMaxMessage];
    const ssize_t received = ::recv(subscriber, query, sizeof query, MSG_DONTWAIT);
    std::lock_guard<std::mutex> guard(m_lock);
    if (received <= 0) {
        if (received == 0 || (errno != EAGAIN && errno != EINTR)) m_subscribers.erase(subscriber);
        return;
    }
    const std::string text(query, static_cast<std::size_t>(received));
    const std::string prefix = platform::sim::kNdisQueryPrefix;
    const std::string className = text.rfind(prefix, 0) == 0 ? text.substr(prefix.size()) : std::string();
    std::uint32_t status = m_refusal;
    if (status == 0 && className != platform::sim::kNdisClassMediaConnect &&
        className != platform::sim::kNdisClassMediaDisconnect &&
        className != platform::sim::kNdisClassSpecificIndication)
        status = kInvalidClass;
    if (status == 0) m_subscribers[subscriber].second.insert(className);
    const std::uint8_t reply[4] = {static_cast<std::uint8_t>(status), static_cast<std::uint8_t>(status >> 8),
                                   static_cast<std::uint8_t>(status >> 16), static_cast<std::uint8_t>(status >> 24)};
    if (::send(subscriber, reply, sizeof reply, MSG_NOSIGNAL) != static_cast<ssize_t>(sizeof reply))
        m_subscribers.erase(subscriber);
}

void NdisIndicationServerC::serve()
{
    for (;;) {
        std::vector<pollfd> watched{{m_wakeRead.get(), POLLIN, 0}, {m_listener.get(), POLLIN, 0}};
        {
            std::lock_guard<std::mutex> guard(m_lock);
            for (const auto& entry : m_subscribers)
                watched.push_back({entry.first, POLLIN, 0});
        }
        if (::poll(watched.data(), watched.size(), -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        if (watched[0].revents != 0) return;
        if (watched[1].revents & POLLIN) {
            const int accepted = ::accept4(m_listener.get(), nullptr, nullptr, SOCK_CLOEXEC);
            if (accepted >= 0) {
                std::lock_guard<std::mutex> guard(m_lock);
                m_subscribers[accepted].first = std::make_unique<UniqueFd>(accepted);
            }
        }
        for (std::size_t i = 2; i < watched.size(); ++i)
            if (watched[i].revents != 0) answerQuery(watched[i].fd);
    }
}

}  // namespace halvern::sim
