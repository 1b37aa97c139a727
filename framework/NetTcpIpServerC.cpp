#include "framework/NetTcpIpServerC.h"

#include <cstring>
#include <exception>
#include <system_error>

#include "framework/DebugLog.h"
#include "platform/Clock.h"
#include "platform/WinError.h"

namespace BSS::NET {
namespace {

constexpr int kListenBacklog = 2 * NetTcpIpServerCfgT::HARD_CLIENT_LIMIT;

std::string lastSocketError()
{
    return platform::socketErrorText(platform::lastError());
}

}  // namespace

std::vector<AddressRangeT> defaultAllowedRanges()
{
    return {{0x7F000000, 0xFF000000}, {0xC0A80200, 0xFFFFFF00}, {0xC0A88900, 0xFFFFFF00}};
}

bool parseAddressRange(const std::string& text, AddressRangeT& range)
{
    const std::size_t slash = text.find('/');
    std::uint32_t address = 0;
    if (!platform::parseIpv4(text.substr(0, slash), address)) return false;
    unsigned bits = 32;
    if (slash != std::string::npos) {
        const std::string length = text.substr(slash + 1);
        if (length.empty() || length.size() > 2 || length.find_first_not_of("0123456789") != std::string::npos)
            return false;
        bits = static_cast<unsigned>(std::stoul(length));
        if (bits > 32) return false;
    }
    range.mask = bits == 0 ? 0 : ~std::uint32_t{0} << (32 - bits);
    range.network = address & range.mask;
    return true;
}

NetTcpIpServerC::NetTcpIpServerC(const NetTcpIpServerCfgT& config, NetTcpIpServerListenerI& listener)
    : m_config(config), m_listener(listener), m_receiveBuffer(config.receiveSize)
{}

NetTcpIpServerC::~NetTcpIpServerC()
{
    stop();
}

bool NetTcpIpServerC::setUpSocket()
{
    const unsigned port = m_config.port;
    const int id = static_cast<int>(port);
    platform::UniqueSocket socket = platform::createTcpSocket();
    if (!socket) {
        debugLog(kDebugLevelDetail, "%4d error creating a socket, port %u\n", id, port);
        return false;
    }
    if (!platform::setNonBlocking(socket.get(), true)) {
        debugLog(kDebugLevelDetail, "%4d ioctl failed on socket %d (err %s)\n", id, socket.logValue(),
                 lastSocketError().c_str());
        return false;
    }
    if (!platform::setNoDelay(socket.get())) {
        debugLog(kDebugLevelDetail, "%4d setsockopt TCP_NODELAY failed on socket %d, on port %u (err %s)\n", id,
                 socket.logValue(), port, lastSocketError().c_str());
        return false;
    }
    if (!platform::bindSocket(socket.get(), m_config.listenAddress, m_config.port)) {
        debugLog(kDebugLevelDetail, "%4d error on bind on socket %d, port %u (err %s)\n", id, socket.logValue(), port,
                 lastSocketError().c_str());
        return false;
    }
    if (!platform::listenSocket(socket.get(), kListenBacklog)) {
        debugLog(kDebugLevelDetail, "%4d error on listen on socket %d, port %u (err %s)\n", id, socket.logValue(), port,
                 lastSocketError().c_str());
        return false;
    }
    m_boundPort = platform::localPort(socket.get());
    m_serverSocket = std::move(socket);
    return true;
}

bool NetTcpIpServerC::start()
{
    if (m_task.joinable()) return isRunning();
    m_stateMachine.setPortConfig(m_config.port);
    m_stateMachine.goToState(TcpIpServerStateMachineC::STATE_SETUP);
    m_stateMachine.logExecState();
    if (!setUpSocket()) {
        m_stateMachine.goToState(TcpIpServerStateMachineC::STATE_STOPPED);
        return false;
    }
    m_stopRequested = false;
    m_stateMachine.goToState(TcpIpServerStateMachineC::STATE_WAIT_FOR_CONNECTION);
    try {
        m_task = std::thread([this] { run(); });
    } catch (const std::system_error& error) {
        debugLog(kDebugLevelDetail, "%4d cannot start the server task, port %u (%s)\n", static_cast<int>(m_boundPort),
                 static_cast<unsigned>(m_boundPort), error.what());
        m_serverSocket.reset();
        m_stateMachine.goToState(TcpIpServerStateMachineC::STATE_STOPPED);
        return false;
    }
    return true;
}

bool NetTcpIpServerC::stop()
{
    if (!m_task.joinable()) return true;
    debugLog(kDebugLevelDetail, "stop\n");
    m_stateMachine.goToState(TcpIpServerStateMachineC::STATE_STOPPING);
    debugLog(kDebugLevelDetail, "Stopping\n");
    m_stopRequested = true;
    // A connection to the own port ends the task's select at once instead of after its pass time-out.
    platform::UniqueSocket wake = platform::createTcpSocket();
    if (wake) platform::connectSocket(wake.get(), platform::kLoopbackAddress, m_boundPort);
    m_task.join();
    debugLog(kDebugLevelDetail, "onStop\n");
    closeClientConnections();
    debugLog(kDebugLevelDetail, "cleanup\n");
    m_serverSocket.reset();
    m_stateMachine.goToState(TcpIpServerStateMachineC::STATE_STOPPED);
    return true;
}

void NetTcpIpServerC::run()
{
    m_stateMachine.logExecState();
    debugLog(kDebugLevelDetail, "execWaitForConnectionState\n");
    while (!m_stopRequested) {
        // A failure while handling one client must not end the port for all of them.
        try {
            acceptOrReceive();
        } catch (const std::exception& error) {
            debugLog(kDebugLevelDetail, "acceptOrReceive: %s\n", error.what());
        } catch (...) {
            debugLog(kDebugLevelDetail, "acceptOrReceive: unknown exception\n");
        }
    }
}

void NetTcpIpServerC::acceptOrReceive()
{
    std::vector<std::pair<int, std::shared_ptr<ClientT>>> clients;
    std::vector<int> dropped;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        for (const auto& entry : m_clients) {
            if (entry.second->dropped)
                dropped.push_back(entry.first);
            else
                clients.emplace_back(entry.first, entry.second);
        }
    }
    for (const int connection : dropped)
        closeClient(connection);
    std::vector<platform::SocketPollT> readable{{m_serverSocket.get(), false}};
    for (const auto& client : clients) {
        if (readable.size() >= platform::kMaxSelectSockets) break;
        readable.push_back({client.second->socket.get(), false});
    }
    std::vector<platform::SocketPollT> exceptional(readable.begin() + 1, readable.end());
    const int ready = platform::selectSockets(&readable, nullptr, &exceptional, m_config.passTimeoutMs);
    if (ready <= 0) return;

    for (std::size_t i = 1; i < readable.size(); ++i) {
        const auto& client = clients[i - 1];
        if (exceptional[i - 1].ready)
            debugLog(kDebugLevelDetail, "acceptOrReceive: exception on connection %d !\n", client.first);
        if (readable[i].ready) receiveFrom(client.first, client.second);
    }
    if (readable[0].ready) acceptNewConnection();
}

void NetTcpIpServerC::receiveFrom(int connection, const std::shared_ptr<ClientT>& client)
{
    if (client->closedByServer) {
        debugLog(kDebugLevelDetail, "acceptOrReceive: connection closed by closeClientConnections %d !\n", connection);
        closeClient(connection);
        return;
    }
    const int received = platform::receiveSocket(client->socket.get(), m_receiveBuffer.data(), m_receiveBuffer.size());
    if (received <= 0) {
        if (received < 0 && platform::lastError() == platform::kWsaEWouldBlock) return;
        debugLog(kDebugLevelDetail, "acceptOrReceive: client has shut down connection %d ! (err %s)\n", connection,
                 lastSocketError().c_str());
        closeClient(connection);
        return;
    }
    debugLog(kDebugLevelTraffic, "%s: %d bytes on connection %d on port %d\n", "acceptOrReceive", received, connection,
             m_boundPort);
    m_listener.onDataReceived(connection, m_receiveBuffer.data(), static_cast<std::size_t>(received));
}

void NetTcpIpServerC::refuse(platform::UniqueSocket socket, const char* text)
{
    // The text goes with its NUL so that a client can print what it received as it is.
    platform::sendSocket(socket.get(), text, std::strlen(text) + 1);
    platform::shutdownSocket(socket.get());
}

void NetTcpIpServerC::acceptNewConnection()
{
    std::uint32_t peer = 0;
    platform::UniqueSocket socket = platform::acceptSocket(m_serverSocket.get(), peer);
    if (!socket) return;
    const int connection = socket.logValue();
    debugLog(kDebugLevelDetail, "acceptOrReceive: new connection accepted %d !\n", connection);
    // Accepted sockets inherit non-blocking mode on Windows but not everywhere: make it the same.
    platform::setNonBlocking(socket.get(), true);
    platform::setNoDelay(socket.get());

    bool allowed = false;
    for (const auto& range : m_config.allowedRanges)
        allowed = allowed || range.contains(peer);

    std::unique_lock<std::mutex> guard(m_tableLock);
    if (m_config.maxClients == 1 && m_config.replaceSingleClient && m_clients.size() == 1 && allowed) {
        const auto old = *m_clients.begin();
        m_clients.clear();
        guard.unlock();
        {
            std::lock_guard<std::mutex> sending(old.second->sendLock);
            platform::sendSocket(old.second->socket.get(), TOO_MANY_CLIENTS, std::strlen(TOO_MANY_CLIENTS) + 1);
            platform::shutdownSocket(old.second->socket.get());
            old.second->socket.reset();
        }
        m_listener.onClientClosed(old.first);
        guard.lock();
    }
    const std::size_t count = m_clients.size();
    const unsigned limit = m_config.maxClients < NetTcpIpServerCfgT::HARD_CLIENT_LIMIT
                               ? m_config.maxClients
                               : NetTcpIpServerCfgT::HARD_CLIENT_LIMIT;
    if (count >= limit || !allowed) {
        debugLog(kDebugLevelDetail, "acceptOrReceive: new connection denied %d! nCnt %d, maxCnt %d\n", connection,
                 static_cast<int>(count), static_cast<int>(limit));
        refuse(std::move(socket), REFUSED);
        return;
    }
    auto client = std::make_shared<ClientT>();
    client->socket = std::move(socket);
    m_clients[connection] = client;
    guard.unlock();
    m_listener.onClientConnected(connection);
    debugLog(kDebugLevelDetail, "poOnlineSubject->notify(0, BSS::BIO::NEW_CLIENT_CONNECTION_ACCEPTED);\n");
}

void NetTcpIpServerC::closeClient(int connection)
{
    std::shared_ptr<ClientT> client;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        auto found = m_clients.find(connection);
        if (found == m_clients.end()) return;
        client = found->second;
        m_clients.erase(found);
    }
    {
        std::lock_guard<std::mutex> sending(client->sendLock);
        client->socket.reset();
    }
    m_listener.onClientClosed(connection);
}

void NetTcpIpServerC::dropClient(int connection, ClientT& client)
{
    // The reply may have left in part, so nothing later on this stream could be read: the connection ends.
    // It is only shut down here, because this may run inside the listener's own receive call for this
    // connection; the task closes it at the start of its next pass.
    debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData: dropping connection %d\n", connection);
    client.dropped = true;
    platform::shutdownSocket(client.socket.get());
}

void NetTcpIpServerC::closeClientConnections()
{
    debugLog(kDebugLevelDetail, "%4d closeClientConnections\n", static_cast<int>(m_boundPort));
    std::map<int, std::shared_ptr<ClientT>> clients;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        clients.swap(m_clients);
    }
    for (auto& entry : clients) {
        {
            std::lock_guard<std::mutex> sending(entry.second->sendLock);
            entry.second->closedByServer = true;
            platform::shutdownSocket(entry.second->socket.get());
            entry.second->socket.reset();
        }
        m_listener.onClientClosed(entry.first);
    }
}

bool NetTcpIpServerC::writeData(int connection, const std::uint8_t* data, std::size_t length)
{
    std::shared_ptr<ClientT> client;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        auto found = m_clients.find(connection);
        if (found == m_clients.end()) return false;
        client = found->second;
    }
    std::lock_guard<std::mutex> sending(client->sendLock);
    if (!client->socket || client->dropped) return false;
    if (sendAll(*client, data, length)) return true;
    dropClient(connection, *client);
    return false;
}

bool NetTcpIpServerC::sendAll(ClientT& client, const std::uint8_t* data, std::size_t length)
{
    const std::uint64_t start = platform::tickCount64();
    std::size_t sent = 0;
    bool mustWait = false;
    while (sent < length) {
        const std::uint64_t elapsed = platform::tickCount64() - start;
        if (elapsed >= m_config.writeTimeoutMs) {
            debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData timeout (%dms) exceeded\n",
                     static_cast<int>(m_config.writeTimeoutMs));
            return false;
        }
        // A socket with room is written at once, without a select first: that is one system call per
        // reply instead of two. Only a full one waits, in slices measured on the installed clock (a virtual
        // clock runs the time-out out at once).
        if (mustWait) {
            const std::uint64_t slice = std::min<std::uint64_t>(m_config.writeTimeoutMs - elapsed, 50);
            const auto realWait = platform::clock().idleWait(slice);
            std::vector<platform::SocketPollT> writable{{client.socket.get(), false}};
            std::vector<platform::SocketPollT> exceptional{{client.socket.get(), false}};
            const int ready =
                platform::selectSockets(nullptr, &writable, &exceptional, static_cast<std::uint32_t>(realWait.count()));
            if (ready < 0) {
                debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData: select returned an error, %s = %s\n", "err",
                         lastSocketError().c_str());
                return false;
            }
            if (exceptional[0].ready) {
                debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData: select returns with except FDS set!\n");
                return false;
            }
            if (!writable[0].ready) continue;
        }
        const int result = platform::sendSocket(client.socket.get(), data + sent, length - sent);
        if (result < 0) {
            mustWait = platform::lastError() == platform::kWsaEWouldBlock;
            if (mustWait) continue;
            debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData: send failed (%s)\n", lastSocketError().c_str());
            return false;
        }
        sent += static_cast<std::size_t>(result);
    }
    return true;
}

std::vector<int> NetTcpIpServerC::connections() const
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    std::vector<int> result;
    for (const auto& entry : m_clients)
        result.push_back(entry.first);
    return result;
}

std::size_t NetTcpIpServerC::clientCount() const
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    return m_clients.size();
}

}  // namespace BSS::NET
