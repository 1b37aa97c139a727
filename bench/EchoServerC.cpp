#include "bench/EchoServerC.h"

#include "bench/LoadGenerator.h"
#include "platform/WinError.h"
#include "sep/SerialFramerC.h"

namespace HalvernBench {
namespace {
constexpr int kListenBacklog = 16;
constexpr std::uint8_t kAsciiStart = 'S';
constexpr std::uint32_t kPassTimeoutMs = 500;
}  // namespace

EchoServerC::EchoServerC()
    : m_binaryReply(apiLevelReplyFrame(SEP::CodingE::Binary)), m_asciiReply(apiLevelReplyFrame(SEP::CodingE::Ascii))
{}

EchoServerC::~EchoServerC()
{
    stop();
}

bool EchoServerC::start(std::uint16_t port)
{
    platform::UniqueSocket socket = platform::createTcpSocket();
    if (!socket || !platform::bindSocket(socket.get(), platform::kLoopbackAddress, port) ||
        !platform::listenSocket(socket.get(), kListenBacklog))
        return false;
    m_port = platform::localPort(socket.get());
    m_listening = std::move(socket);
    m_stopRequested = false;
    m_task = std::thread([this] { run(); });
    return true;
}

void EchoServerC::stop()
{
    if (!m_task.joinable()) return;
    m_stopRequested = true;
    // A connection of its own ends the task's select at once.
    platform::UniqueSocket wake = platform::createTcpSocket();
    if (wake) platform::connectSocket(wake.get(), platform::kLoopbackAddress, m_port);
    m_task.join();
    m_connections.clear();
    m_listening.reset();
}

void EchoServerC::run()
{
    std::vector<platform::SocketPollT> readable;
    while (!m_stopRequested) {
        readable.clear();
        readable.push_back({m_listening.get(), false});
        for (const auto& connection : m_connections)
            readable.push_back({connection->socket.get(), false});
        if (platform::selectSockets(&readable, nullptr, nullptr, kPassTimeoutMs) <= 0) continue;
        std::size_t kept = 0;
        for (std::size_t i = 0; i < m_connections.size(); ++i) {
            if (readable[i + 1].ready && !serve(*m_connections[i])) continue;
            m_connections[kept++] = std::move(m_connections[i]);
        }
        m_connections.resize(kept);
        if (!readable[0].ready) continue;
        std::uint32_t peer = 0;
        auto connection = std::make_unique<ConnectionT>();
        connection->socket = platform::acceptSocket(m_listening.get(), peer);
        if (!connection->socket || readable.size() >= platform::kMaxSelectSockets) continue;
        platform::setNoDelay(connection->socket.get());
        m_connections.push_back(std::move(connection));
    }
}

bool EchoServerC::serve(ConnectionT& connection)
{
    std::uint8_t chunk[16 * 1024];
    const int received = platform::receiveSocket(connection.socket.get(), chunk, sizeof chunk);
    if (received <= 0) return false;
    m_replies.clear();
    for (int i = 0; i < received; ++i) {
        const std::uint8_t byte = chunk[i];
        if (connection.atFrameStart) {
            connection.ascii = byte == kAsciiStart;
            connection.atFrameStart = false;
        }
        // A CR inside a message is always escaped, so CR LF can only be a frame's end.
        if (connection.afterCr && byte == MAL::UTI::SerialFramerC::LF) {
            const auto& reply = connection.ascii ? m_asciiReply : m_binaryReply;
            m_replies.insert(m_replies.end(), reply.begin(), reply.end());
            connection.atFrameStart = true;
        }
        connection.afterCr = byte == MAL::UTI::SerialFramerC::CR;
    }
    std::size_t sent = 0;
    while (sent < m_replies.size()) {
        const int result =
            platform::sendSocket(connection.socket.get(), m_replies.data() + sent, m_replies.size() - sent);
        if (result <= 0) return false;
        sent += static_cast<std::size_t>(result);
    }
    return true;
}

}  // namespace HalvernBench
