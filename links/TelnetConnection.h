#pragma once
// The telnet client of the sensor board's login-free shell: one command per connection, its exit status
// recovered from a second command that prints it behind a marker. It is no general telnet client: it
// sends one fixed option sequence and takes whatever the server sends as text.
#include <string>

#include "platform/Socket.h"

namespace halvern::links {

constexpr const char* kMoraTelnetHost = "192.168.2.1";
constexpr const char* kMoraTelnetPort = "23";
constexpr int kTelnetDefaultTimeoutMs = 5000;
constexpr const char* kTelnetStatusMarker = "RESULT: ";
// What a command's reply keeps of the shell's output: its end, which holds the status line. A board
// that prints megabytes costs no more than this.
constexpr std::size_t kTelnetReplyKeep = 65536;

// Where the sensor board's telnet server is reached. The instrument uses the fixed board address; the
// simulated instrument and every test point it at a loopback port.
struct TelnetEndpointT {
    std::string host = kMoraTelnetHost;
    std::string port = kMoraTelnetPort;
};
TelnetEndpointT telnetEndpoint();
void setTelnetEndpoint(const TelnetEndpointT& endpoint);

class TelnetConnection {
public:
    TelnetConnection() = default;
    TelnetConnection(const TelnetConnection&) = delete;
    TelnetConnection& operator=(const TelnetConnection&) = delete;
    ~TelnetConnection() { close(); }

    // True once connected and both the server's negotiation and its prompt have arrived.
    bool connect(int waitMs);
    bool send(const std::string& text);
    // True when a read came back shorter than a whole chunk; what arrived is appended either way.
    bool receive(std::string& buffer, int waitMs);
    // The status printed behind the marker line of `reply`.
    bool readStatus(const std::string& reply, int& status);
    // Runs `command` and waits for its status line; `reply` gets what the shell sent back, at most its
    // last kTelnetReplyKeep bytes; droppedBytes() tells how many went before them.
    bool execute(const std::string& command, std::string& reply, int& status, int timeoutMs);
    std::size_t droppedBytes() const { return m_dropped; }
    void close();

private:
    platform::UniqueSocket m_socket;
    // Empty until a connect succeeded, as the messages of a connection that never came up show.
    std::string m_host;
    std::string m_port;
    std::size_t m_dropped = 0;
};

// True when `command` ran on the sensor board with status 0. A negative timeout means the default.
// `dropped`, when given, gets the number of leading bytes of the output that the reply does not keep.
bool runTelnetCommand(const std::string& command, int& status, std::string& reply, int timeoutMs = -1,
                      std::size_t* dropped = nullptr);

}  // namespace halvern::links
