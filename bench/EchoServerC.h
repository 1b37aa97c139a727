#pragma once
// The floor of the SEP benchmarks: a loopback server that does nothing but find the end of each command
// frame (CR LF) and send back a prepared reply of the size Halvern's GET_API_LVL reply has, for every
// client from one thread, as Halvern's server task does. What it costs per request is what the kernel and
// the load generator cost; anything Halvern adds shows against it.
#include <atomic>
#include <cstdint>
#include <memory>
#include <thread>
#include <vector>

#include "platform/Socket.h"

namespace HalvernBench {

class EchoServerC {
public:
    EchoServerC();
    ~EchoServerC();
    EchoServerC(const EchoServerC&) = delete;
    EchoServerC& operator=(const EchoServerC&) = delete;

    // Listens on 127.0.0.1:`port` (0: any free port); false when the socket cannot be set up.
    bool start(std::uint16_t port);
    // Ends the server task and closes the listening socket and every connection.
    void stop();
    std::uint16_t port() const { return m_port; }

private:
    struct ConnectionT {
        platform::UniqueSocket socket;
        bool afterCr = false;
        bool atFrameStart = true;
        bool ascii = false;
    };

    void run();
    // False when the connection has ended.
    bool serve(ConnectionT& connection);

    std::vector<std::uint8_t> m_binaryReply;
    std::vector<std::uint8_t> m_asciiReply;
    platform::UniqueSocket m_listening;
    std::uint16_t m_port = 0;
    std::thread m_task;
    std::atomic<bool> m_stopRequested{false};
    // Only the server task touches these.
    std::vector<std::unique_ptr<ConnectionT>> m_connections;
    std::vector<std::uint8_t> m_replies;
};

}  // namespace HalvernBench
