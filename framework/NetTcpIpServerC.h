#pragma once
// A listening TCP server with its own I/O task: it accepts up to the configured number of clients from
// the allowed address range, hands every received chunk to its listener, and writes what is queued for
// each client as its socket takes it. No write waits on a socket: a client that does not read fills only
// its own output queue and is dropped once that stops moving for the write time-out.
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "framework/DebugLog.h"
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
    // Of the record's further values (1, 5000, 10, 500, 1, 2) the server uses 5000 as the write time-out:
    // a connection whose queued output the socket has not taken any of for that long is dropped.
    std::uint32_t writeTimeoutMs = 5000;
    // The longest wait of the I/O task when nothing is due. It wakes for sockets, queued output and stop,
    // never on a period: an idle server costs no wake-ups. (The start value 3600000.)
    std::uint32_t passTimeoutMs = 3600000;
    // A connection's output queue: the writer of replies waits (paced) for it to fall below this; events
    // may go beyond it up to the hard limit, past which the connection is dropped at once.
    std::size_t outputQueueBytes = 256 * 1024;
    std::size_t outputQueueHardBytes = 1024 * 1024;
    std::vector<AddressRangeT> allowedRanges = defaultAllowedRanges();
};

class NetTcpIpServerListenerI {
public:
    virtual ~NetTcpIpServerListenerI() = default;
    virtual void onClientConnected(int connection) = 0;
    // Runs on the I/O task: it must not block. False: hold further reads of this connection until
    // resumeReceiving() is called for it.
    virtual bool onDataReceived(int connection, const std::uint8_t* data, std::size_t length) = 0;
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

    // Queues all bytes for a client connection, whole and in order (bytes of two calls never mix), and
    // answers at once: false when the connection is gone or was dropped because its queue overflowed the
    // hard limit. A socket with room and nothing queued before takes the bytes right away.
    bool writeData(int connection, const std::uint8_t* data, std::size_t length);
    // Waits until the connection's queue is below its bound, at most the write time-out; false when it
    // is gone. The I/O task drops a connection whose queue does not move for the write time-out.
    bool waitForRoom(int connection);
    // Lets the I/O task read a connection again whose listener asked it to hold.
    void resumeReceiving(int connection);
    // While its reads are held, the listener's own thread may read the connection: waits up to
    // `milliseconds` for what the client sends next and appends it to `bytes` (at most the receive size).
    // False when nothing came, the reads are not held or the connection ended; the caller then gives the
    // reads back with resumeReceiving(), and the I/O task sees any end itself. A busy client's commands
    // then cost one wake-up each instead of two.
    bool receiveHeld(int connection, std::vector<std::uint8_t>& bytes, std::uint32_t milliseconds);
    // What waits in the connection's output queue (0 for one that is gone).
    std::size_t queuedBytes(int connection) const;
    std::vector<int> connections() const;
    // The connections the listener knows (announced to it).
    std::size_t clientCount() const;
    // The port actually listened on (differs from the configured one when that was 0).
    std::uint16_t boundPort() const { return m_boundPort; }

private:
    struct ClientT {
        explicit ClientT(int connectionId) : id(connectionId) {}
        const int id;
        // Closed only by the I/O task, under `lock`; while `reading` (a held connection read by its
        // listener's thread) it is only shut down, and that thread closes it when it is done.
        platform::UniqueSocket socket;
        bool reading = false;
        bool closeLeftToReader = false;
        std::mutex lock;
        std::condition_variable room;
        // Queued output, oldest first; `sent` bytes of the front chunk have left already.
        std::deque<std::vector<std::uint8_t>> output;
        std::size_t sent = 0;
        std::size_t queued = 0;
        // When the socket last took bytes of the queue (or the queue began), on the installed clock.
        std::uint64_t moved = 0;
        bool dropped = false;
        std::atomic<bool> holdReceiving{false};
        // Set once the listener knows the connection: from then on it can be written to as a client.
        std::atomic<bool> announced{false};
    };
    using ClientPtr = std::shared_ptr<ClientT>;

    bool setUpSocket();
    bool setUpWake();
    void wake();
    void run();
    void onePass();
    void acceptNewConnection();
    void receiveFrom(const ClientPtr& client);
    // Writes what the socket takes of the client's queue (client lock held); false when it failed.
    bool sendQueued(ClientT& client);
    // One send to the client's socket (client lock held): the bytes it took, 0 when it is full, -1 when it
    // failed (logged).
    int sendSome(ClientT& client, const std::uint8_t* data, std::size_t length);
    // Closes the client's socket now, or leaves it to the thread reading it (client lock held).
    void closeSocket(ClientT& client);
    void refuse(platform::UniqueSocket socket, const char* text);
    ClientPtr find(int connection) const;
    void closeClient(int connection);
    // Marks the client dropped (lock held), logs why, and lets the I/O task close it.
    void dropClient(ClientT& client, const char* why);
    void closeClientConnections();

    NetTcpIpServerCfgT m_config;
    NetTcpIpServerListenerI& m_listener;
    TcpIpServerStateMachineC m_stateMachine;
    platform::UniqueSocket m_serverSocket;
    std::uint16_t m_boundPort = 0;
    std::thread m_task;
    std::atomic<bool> m_stopRequested{false};
    // A connected loopback pair: a byte sent on the one end ends the I/O task's wait.
    platform::UniqueSocket m_wakeSend;
    platform::UniqueSocket m_wakeReceive;
    std::atomic<bool> m_wakePending{false};
    // Lines about a select of the I/O task that failed.
    LogLimiterC m_selectFailures;
    mutable std::mutex m_tableLock;
    std::map<int, ClientPtr> m_clients;
    // Connections are numbered in accept order; a number is never reused, so that a late reply for a
    // closed connection cannot reach a new one.
    int m_nextConnection = 1;
    std::vector<std::uint8_t> m_receiveBuffer;
};

}  // namespace BSS::NET
