#pragma once
// A listening TCP server with its own task: it accepts up to the configured number of clients from the
// allowed address range, hands every received chunk to its listener and writes replies with a time-out.
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "framework/TcpIpServerStateMachineC.h"
#include "platform/Socket.h"

namespace BSS::NET {

// An IPv4 network (host byte order) that clients may connect from.
struct AddressRangeT {
    std::uint32_t network;
    std::uint32_t mask;
    bool contains(std::uint32_t address) const { return (address & mask) == (network & mask); }
};

// Loopback, the sensor board link 192.168.2.0/24 and the hosted network 192.168.137.0/24.
std::vector<AddressRangeT> defaultAllowedRanges();

struct NetTcpIpServerCfgT {
    static constexpr unsigned HARD_CLIENT_LIMIT = 10;

    std::uint16_t port = 0;
    std::uint32_t listenAddress = platform::kLoopbackAddress;
    unsigned maxClients = HARD_CLIENT_LIMIT;
    // With maxClients 1: a new client from the allowed range replaces the connected one.
    bool replaceSingleClient = false;
    std::size_t receiveSize = 1024;
    // Of the record's further values (1, 5000, 10, 500, 1, 2) the server uses 5000 as writeData's time-out
    // and 500 as the longest select of one pass of the accept/receive loop.
    std::uint32_t writeTimeoutMs = 5000;
    std::uint32_t passTimeoutMs = 500;
    std::vector<AddressRangeT> allowedRanges = defaultAllowedRanges();
};

class NetTcpIpServerListenerI {
public:
    virtual ~NetTcpIpServerListenerI() = default;
    virtual void onClientConnected(int connection) = 0;
    virtual void onDataReceived(int connection, const std::uint8_t* data, std::size_t length) = 0;
    virtual void onClientClosed(int connection) = 0;
};

class NetTcpIpServerC {
public:
    static constexpr const char* TOO_MANY_CLIENTS = "connection closed: too many clients";
    static constexpr const char* REFUSED = "connection refused: too many clients or address not in range";

    NetTcpIpServerC(const NetTcpIpServerCfgT& config, NetTcpIpServerListenerI& listener);
    ~NetTcpIpServerC();
    NetTcpIpServerC(const NetTcpIpServerC&) = delete;
    NetTcpIpServerC& operator=(const NetTcpIpServerC&) = delete;

    // Sets up the listening socket and starts the task; false (logged) when the socket cannot be set up.
    bool start();
    // Stops the task and closes every client; true when the server is stopped.
    bool stop();
    bool isRunning() const { return m_stateMachine.state() == TcpIpServerStateMachineC::STATE_WAIT_FOR_CONNECTION; }

    // Sends all bytes on a client connection, waiting at most the write time-out for room.
    bool writeData(int connection, const std::uint8_t* data, std::size_t length);
    std::vector<int> connections() const;
    std::size_t clientCount() const;
    // The port actually listened on (differs from the configured one when that was 0).
    std::uint16_t boundPort() const { return m_boundPort; }

private:
    struct ClientT {
        platform::UniqueSocket socket;
        std::mutex sendLock;
        bool closedByServer = false;
    };

    bool setUpSocket();
    void run();
    void acceptOrReceive();
    void acceptNewConnection();
    void receiveFrom(int connection, const std::shared_ptr<ClientT>& client);
    void refuse(platform::UniqueSocket socket, const char* text);
    void closeClient(int connection);
    void closeClientConnections();

    NetTcpIpServerCfgT m_config;
    NetTcpIpServerListenerI& m_listener;
    TcpIpServerStateMachineC m_stateMachine;
    platform::UniqueSocket m_serverSocket;
    std::uint16_t m_boundPort = 0;
    std::thread m_task;
    std::atomic<bool> m_stopRequested{false};
    mutable std::mutex m_tableLock;
    std::map<int, std::shared_ptr<ClientT>> m_clients;
    std::vector<std::uint8_t> m_receiveBuffer;
};

}  // namespace BSS::NET
