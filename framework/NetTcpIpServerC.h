#pragma once
// A listening TCP server with its own task: it accepts up to the configured number of clients from the
// allowed address range, hands every received chunk to its listener and writes replies with a time-out.
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
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
    bool operator==(const AddressRangeT& other) const { return network == other.network && mask == other.mask; }
};

// Loopback, the sensor board link 192.168.2.0/24 and the hosted network 192.168.137.0/24.
std::vector<AddressRangeT> defaultAllowedRanges();
// "a.b.c.d/n" (n from 0 to 32) or a single address "a.b.c.d"; false for anything else.
bool parseAddressRange(const std::string& text, AddressRangeT& range);

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

    // Sends all bytes on a client connection, waiting at most the write time-out for room. A connection whose
    // write fails or times out is shut down and closed by the next pass of the task: a client that does not
    // take its replies holds no more than its socket buffers and stalls the others for one time-out only.
    bool writeData(int connection, const std::uint8_t* data, std::size_t length);
    std::vector<int> connections() const;
    std::size_t clientCount() const;
    // The port actually listened on (differs from the configured one when that was 0).
    std::uint16_t boundPort() const { return m_boundPort; }

private:
    struct ClientT {
        platform::UniqueSocket socket;
        std::mutex sendLock;
        std::atomic<bool> closedByServer{false};
        // Set by a write that failed: the connection only waits for the task to close it.
        std::atomic<bool> dropped{false};
    };

    bool setUpSocket();
    void run();
    void acceptOrReceive();
    void acceptNewConnection();
    void receiveFrom(int connection, const std::shared_ptr<ClientT>& client);
    void refuse(platform::UniqueSocket socket, const char* text);
    void closeClient(int connection);
    // With the client's send lock held.
    bool sendAll(ClientT& client, const std::uint8_t* data, std::size_t length);
    void dropClient(int connection, ClientT& client);
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
