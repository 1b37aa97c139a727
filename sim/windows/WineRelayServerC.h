#pragma once
// The instrument's end of the loopback relay of a Wine run (RelayWire.h): a pipe client on the Windows
// side reaches the instrument's pipe of that name (the EFI service, the diagnostics service), and a
// stand-in program started there runs as halvern-standin on this side, its output going back and its
// end ending the Windows program.
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "platform/Socket.h"

namespace halvern::sim {

class WineRelayServerC {
public:
    WineRelayServerC() = default;
    ~WineRelayServerC();
    WineRelayServerC(const WineRelayServerC&) = delete;
    WineRelayServerC& operator=(const WineRelayServerC&) = delete;

    // Listens on 127.0.0.1 at a free port; false with a message in `error` when it cannot.
    bool start(const std::string& root, const std::string& standInProgram, std::string& error);
    // Ends every relay: the Windows side sees its connections close.
    void stop();
    std::uint16_t port() const { return m_port; }

private:
    void serve();
    void serveConnection(platform::SocketValue socket);
    void relayPipe(platform::SocketValue socket, const std::string& name);
    void runStandIn(platform::SocketValue socket, const std::vector<std::string>& request);

    std::string m_root;
    std::string m_standInProgram;
    platform::UniqueSocket m_listener;
    std::uint16_t m_port = 0;
    std::atomic<bool> m_stopping{false};
    std::thread m_acceptor;
    std::mutex m_lock;
    std::vector<platform::SocketValue> m_open;
    std::vector<std::thread> m_connections;
};

}  // namespace halvern::sim
