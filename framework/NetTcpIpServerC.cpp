#include "framework/NetTcpIpServerC.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <exception>
#include <system_error>
#include <thread>

#include "framework/DebugLog.h"
#include "platform/Clock.h"
#include "platform/WinError.h"

namespace BSS::NET {
namespace {

constexpr int kListenBacklog = 2 * NetTcpIpServerCfgT::HARD_CLIENT_LIMIT;
constexpr int kSelectRetryMs = 10;

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
        debugLog(kDebugLevelDetail, "%4d ioctl failed on socket %d (err %s)\n", id, logValue(socket),
                 lastSocketError().c_str());
        return false;
    }
    if (!platform::setNoDelay(socket.get())) {
        debugLog(kDebugLevelDetail, "%4d setsockopt TCP_NODELAY failed on socket %d, on port %u (err %s)\n", id,
                 logValue(socket), port, lastSocketError().c_str());
        return false;
    }
    if (!platform::bindSocket(socket.get(), m_config.listenAddress, m_config.port)) {
        debugLog(kDebugLevelDetail, "%4d error on bind on socket %d, port %u (err %s)\n", id, logValue(socket), port,
                 lastSocketError().c_str());
        return false;
    }
    if (!platform::listenSocket(socket.get(), kListenBacklog)) {
        debugLog(kDebugLevelDetail, "%4d error on listen on socket %d, port %u (err %s)\n", id, logValue(socket), port,
                 lastSocketError().c_str());
        return false;
    }
    m_boundPort = platform::localPort(socket.get());
    m_serverSocket = std::move(socket);
    return true;
}

bool NetTcpIpServerC::setUpWake()
{
    // Both platforms' select takes sockets only: the wake-up is a connected loopback pair of its own,
    // made through a listener that lives only for this.
    platform::UniqueSocket listener = platform::createTcpSocket();
    if (!listener || !platform::bindSocket(listener.get(), platform::kLoopbackAddress, 0) ||
        !platform::listenSocket(listener.get(), 1))
        return false;
    platform::UniqueSocket sender = platform::createTcpSocket();
    if (!sender ||
        !platform::connectSocket(sender.get(), platform::kLoopbackAddress, platform::localPort(listener.get())))
        return false;
    std::uint32_t peer = 0;
    platform::UniqueSocket receiver = platform::acceptSocket(listener.get(), peer);
    if (!receiver || !platform::setNonBlocking(receiver.get(), true) || !platform::setNonBlocking(sender.get(), true))
        return false;
    platform::setNoDelay(sender.get());
    m_wakeSend = std::move(sender);
    m_wakeReceive = std::move(receiver);
    return true;
}

void NetTcpIpServerC::wake()
{
    if (m_wakePending.exchange(true)) return;
    const std::uint8_t byte = 1;
    platform::sendSocket(m_wakeSend.get(), &byte, 1);
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
    if (!setUpWake()) {
        debugLog(kDebugLevelDetail, "%4d cannot set up the task's wake-up, port %u (err %s)\n",
                 static_cast<int>(m_boundPort), static_cast<unsigned>(m_boundPort), lastSocketError().c_str());
        m_serverSocket.reset();
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
    m_wakePending = false;
    wake();
    m_task.join();
    debugLog(kDebugLevelDetail, "onStop\n");
    closeClientConnections();
    debugLog(kDebugLevelDetail, "cleanup\n");
    m_serverSocket.reset();
    m_wakeSend.reset();
    m_wakeReceive.reset();
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
            onePass();
        } catch (const std::exception& error) {
            debugLog(kDebugLevelDetail, "acceptOrReceive: %s\n", error.what());
        } catch (...) {
            debugLog(kDebugLevelDetail, "acceptOrReceive: unknown exception\n");
        }
    }
}

void NetTcpIpServerC::onePass()
{
    std::vector<ClientPtr> clients;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        for (const auto& entry : m_clients)
            clients.push_back(entry.second);
    }
    // What is due: dropped clients are closed, clients whose queue did not move for the write time-out are
    // dropped, the others wait for room in their socket; the nearest deadline bounds the wait.
    std::vector<ClientPtr> readers, writers;
    std::uint64_t waitMs = m_config.passTimeoutMs;
    const std::uint64_t now = platform::tickCount64();
    for (const auto& client : clients) {
        bool close = false;
        {
            std::lock_guard<std::mutex> guard(client->lock);
            if (!client->dropped && client->queued > 0) {
                const std::uint64_t still = now - client->moved;
                if (still >= m_config.writeTimeoutMs) {
                    debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData timeout (%dms) exceeded\n",
                             static_cast<int>(m_config.writeTimeoutMs));
                    dropClient(*client, "its output did not move");
                } else {
                    waitMs = std::min<std::uint64_t>(waitMs, m_config.writeTimeoutMs - still);
                    writers.push_back(client);
                }
            }
            close = client->dropped;
        }
        if (close)
            closeClient(client->id);
        else if (!client->holdReceiving)
            readers.push_back(client);
    }

    std::vector<platform::SocketPollT> readable{{m_serverSocket.get(), false}, {m_wakeReceive.get(), false}};
    for (const auto& client : readers)
        readable.push_back({client->socket.get(), false});
    std::vector<platform::SocketPollT> writable;
    for (const auto& client : writers)
        writable.push_back({client->socket.get(), false});
    // An exception condition (urgent data, which no SEP client sends) stays set until it is read: the
    // connection is closed rather than seen again on every pass. Readers first, then writers.
    std::vector<platform::SocketPollT> exceptional;
    for (const auto& client : readers)
        exceptional.push_back({client->socket.get(), false});
    for (const auto& client : writers)
        exceptional.push_back({client->socket.get(), false});
    // Only a write time-out is waited for on the installed clock (a test's virtual clock runs it out at
    // once); the idle wait is real time and leaves that clock alone.
    const std::uint64_t realWait =
        writers.empty() ? waitMs : static_cast<std::uint64_t>(platform::clock().idleWait(waitMs).count());
    const int ready = platform::selectSockets(&readable, writable.empty() ? nullptr : &writable,
                                              exceptional.empty() ? nullptr : &exceptional,
                                              static_cast<std::uint32_t>(realWait));
    if (ready < 0) {
        // A socket of the set that select refuses would fail every pass: the line is limited and the
        // next pass waits a little, so that the task neither floods the log nor spins.
        if (m_selectFailures.allow())
            debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData: select returned an error, %s = %s\n", "error",
                     lastSocketError().c_str());
        std::this_thread::sleep_for(std::chrono::milliseconds(kSelectRetryMs));
        return;
    }
    if (ready == 0) return;
    for (std::size_t i = 0; i < exceptional.size(); ++i) {
        if (!exceptional[i].ready) continue;
        const ClientPtr& client = i < readers.size() ? readers[i] : writers[i - readers.size()];
        if (i < readers.size())
            debugLog(kDebugLevelDetail, "acceptOrReceive: exception on connection %d !\n", client->id);
        else
            debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData: select returns with except FDS set!\n");
        closeClient(client->id);
    }

    if (readable[1].ready) {
        // Drained before the flag is cleared: a wake-up after this sends a byte the next select sees, and
        // one before it was folded into this pass, whose next round looks at every client anew.
        std::uint8_t drain[64];
        while (platform::receiveSocket(m_wakeReceive.get(), drain, sizeof drain) > 0) {
        }
        m_wakePending = false;
    }
    for (std::size_t i = 0; i < writers.size(); ++i) {
        if (!writable[i].ready || exceptional[readers.size() + i].ready) continue;
        std::lock_guard<std::mutex> guard(writers[i]->lock);
        if (!writers[i]->dropped && !sendQueued(*writers[i])) dropClient(*writers[i], "its socket failed");
    }
    for (std::size_t i = 0; i < readers.size(); ++i)
        if (readable[i + 2].ready && !exceptional[i].ready) receiveFrom(readers[i]);
    if (readable[0].ready) acceptNewConnection();
}

void NetTcpIpServerC::receiveFrom(const ClientPtr& client)
{
    const int received = platform::receiveSocket(client->socket.get(), m_receiveBuffer.data(), m_receiveBuffer.size());
    if (received <= 0) {
        if (received < 0 && platform::lastError() == platform::kWsaEWouldBlock) return;
        debugLog(kDebugLevelDetail, "acceptOrReceive: client has shut down connection %d ! (err %s)\n", client->id,
                 lastSocketError().c_str());
        closeClient(client->id);
        return;
    }
    debugLog(kDebugLevelTraffic, "%s: %d bytes on connection %d on port %d\n", "acceptOrReceive", received, client->id,
             m_boundPort);
    // Holding is set before the listener may resume it from another thread.
    client->holdReceiving = true;
    if (m_listener.onDataReceived(client->id, m_receiveBuffer.data(), static_cast<std::size_t>(received)))
        client->holdReceiving = false;
}

void NetTcpIpServerC::resumeReceiving(int connection)
{
    const ClientPtr client = find(connection);
    if (!client || !client->holdReceiving.exchange(false)) return;
    wake();
}

bool NetTcpIpServerC::receiveHeld(int connection, std::vector<std::uint8_t>& bytes, std::uint32_t milliseconds)
{
    const ClientPtr client = find(connection);
    if (!client || !client->holdReceiving) return false;
    platform::SocketValue socket;
    {
        std::lock_guard<std::mutex> guard(client->lock);
        if (client->dropped || !client->socket) return false;
        client->reading = true;
        socket = client->socket.get();
    }
    std::vector<platform::SocketPollT> readable{{socket, false}};
    int received = 0;
    if (platform::selectSockets(&readable, nullptr, nullptr, milliseconds) > 0 && readable[0].ready) {
        const std::size_t before = bytes.size();
        bytes.resize(before + m_config.receiveSize);
        received = platform::receiveSocket(socket, bytes.data() + before, m_config.receiveSize);
        bytes.resize(before + static_cast<std::size_t>(std::max(received, 0)));
    }
    {
        std::lock_guard<std::mutex> guard(client->lock);
        client->reading = false;
        if (client->closeLeftToReader) client->socket.reset();
    }
    if (received > 0)
        debugLog(kDebugLevelTraffic, "%s: %d bytes on connection %d on port %d\n", "receiveHeld", received,
                 connection, m_boundPort);
    return received > 0;
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
    int connection = 0;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        connection = m_nextConnection++;
    }
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
            std::lock_guard<std::mutex> sending(old.second->lock);
            platform::sendSocket(old.second->socket.get(), TOO_MANY_CLIENTS, std::strlen(TOO_MANY_CLIENTS) + 1);
            platform::shutdownSocket(old.second->socket.get());
            closeSocket(*old.second);
            old.second->dropped = true;
        }
        old.second->room.notify_all();
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
        guard.unlock();
        refuse(std::move(socket), REFUSED);
        return;
    }
    auto client = std::make_shared<ClientT>(connection);
    client->socket = std::move(socket);
    m_clients[connection] = client;
    guard.unlock();
    m_listener.onClientConnected(connection);
    client->announced = true;
    debugLog(kDebugLevelDetail, "poOnlineSubject->notify(0, BSS::BIO::NEW_CLIENT_CONNECTION_ACCEPTED);\n");
}

NetTcpIpServerC::ClientPtr NetTcpIpServerC::find(int connection) const
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    auto found = m_clients.find(connection);
    return found == m_clients.end() ? nullptr : found->second;
}

void NetTcpIpServerC::closeClient(int connection)
{
    ClientPtr client;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        auto found = m_clients.find(connection);
        if (found == m_clients.end()) return;
        client = found->second;
        m_clients.erase(found);
    }
    {
        std::lock_guard<std::mutex> guard(client->lock);
        client->dropped = true;
        client->output.clear();
        client->queued = 0;
        closeSocket(*client);
    }
    client->room.notify_all();
    m_listener.onClientClosed(connection);
}

void NetTcpIpServerC::closeSocket(ClientT& client)
{
    if (!client.reading) {
        client.socket.reset();
        return;
    }
    // The reading thread waits on the socket: the shutdown ends its wait, and it closes the socket after.
    platform::shutdownSocket(client.socket.get());
    client.closeLeftToReader = true;
}

void NetTcpIpServerC::dropClient(ClientT& client, const char* why)
{
    // What was queued may have left in part, so nothing later on this stream could be read: the
    // connection ends. The I/O task closes it at the start of its next pass.
    debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData: dropping connection %d (%s)\n", client.id, why);
    client.dropped = true;
    platform::shutdownSocket(client.socket.get());
    client.room.notify_all();
    wake();
}

void NetTcpIpServerC::closeClientConnections()
{
    debugLog(kDebugLevelDetail, "%4d closeClientConnections\n", static_cast<int>(m_boundPort));
    std::map<int, ClientPtr> clients;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        clients.swap(m_clients);
    }
    for (auto& entry : clients) {
        debugLog(kDebugLevelDetail, "acceptOrReceive: connection closed by closeClientConnections %d !\n", entry.first);
        {
            std::lock_guard<std::mutex> guard(entry.second->lock);
            entry.second->dropped = true;
            entry.second->output.clear();
            entry.second->queued = 0;
            platform::shutdownSocket(entry.second->socket.get());
            closeSocket(*entry.second);
        }
        entry.second->room.notify_all();
        m_listener.onClientClosed(entry.first);
    }
}

int NetTcpIpServerC::sendSome(ClientT& client, const std::uint8_t* data, std::size_t length)
{
    const int result = platform::sendSocket(client.socket.get(), data, length);
    if (result >= 0) return result;
    if (platform::lastError() == platform::kWsaEWouldBlock) return 0;
    debugLog(kDebugLevelDetail, "NetTcpIpServerC::writeData: send failed (%s)\n", lastSocketError().c_str());
    return -1;
}

bool NetTcpIpServerC::sendQueued(ClientT& client)
{
    while (!client.output.empty()) {
        auto& front = client.output.front();
        const int result = sendSome(client, front.data() + client.sent, front.size() - client.sent);
        if (result < 0) return false;
        if (result == 0) return true;
        client.moved = platform::tickCount64();
        client.sent += static_cast<std::size_t>(result);
        client.queued -= static_cast<std::size_t>(result);
        if (client.sent == front.size()) {
            client.output.pop_front();
            client.sent = 0;
        }
    }
    client.room.notify_all();
    return true;
}

bool NetTcpIpServerC::writeData(int connection, const std::uint8_t* data, std::size_t length)
{
    const ClientPtr client = find(connection);
    if (!client) return false;
    std::lock_guard<std::mutex> guard(client->lock);
    if (client->dropped || !client->socket) return false;
    if (length == 0) return true;
    if (client->queued + length > m_config.outputQueueHardBytes) {
        dropClient(*client, "its output queue is full");
        return false;
    }
    const bool wasEmpty = client->queued == 0;
    if (wasEmpty) {
        // Nothing queued before: the socket usually takes it all at once, straight from the caller's bytes;
        // only what it leaves is queued for the I/O task.
        const int sent = sendSome(*client, data, length);
        if (sent < 0) {
            dropClient(*client, "its socket failed");
            return false;
        }
        data += sent;
        length -= static_cast<std::size_t>(sent);
        if (length == 0) return true;
        client->moved = platform::tickCount64();
    }
    client->output.emplace_back(data, data + length);
    client->queued += length;
    if (wasEmpty) wake();
    return true;
}

bool NetTcpIpServerC::waitForRoom(int connection)
{
    const ClientPtr client = find(connection);
    if (!client) return false;
    std::unique_lock<std::mutex> guard(client->lock);
    const auto roomOrGone = [&] { return client->dropped || client->queued < m_config.outputQueueBytes; };
    // Most replies find room: no clock is read for them.
    if (roomOrGone()) return !client->dropped;
    // Real time: the I/O task drops the connection once its queue stood still for the write time-out,
    // which ends this wait as well.
    client->room.wait_for(guard, std::chrono::milliseconds(m_config.writeTimeoutMs) + std::chrono::milliseconds(100),
                          roomOrGone);
    return !client->dropped;
}

std::size_t NetTcpIpServerC::queuedBytes(int connection) const
{
    const ClientPtr client = find(connection);
    if (!client) return 0;
    std::lock_guard<std::mutex> guard(client->lock);
    return client->queued;
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
    // A connection counts once its listener knows it, so that whoever waits for a client can send to it.
    return static_cast<std::size_t>(std::count_if(m_clients.begin(), m_clients.end(),
                                                  [](const auto& entry) { return entry.second->announced.load(); }));
}

}  // namespace BSS::NET
