#pragma once
// The loopback link between the Windows programs of a Wine run and the simulated instrument that hosts
// them (halvern-sim --windows). Under Wine the peers Halvern.exe meets must be Windows objects (named
// pipes, processes, mutexes) while the instrument's models live in halvern-sim: the Windows side makes
// the objects and relays what passes through them over TCP on 127.0.0.1, one connection per pipe client
// or started program.
//
// A frame is a 32-bit little-endian length (of kind and payload), one kind byte and the payload.
#include <cstdint>
#include <string>
#include <vector>

#include "platform/Handle.h"
#include "platform/Socket.h"

namespace halvern::sim {

enum class RelayFrameE : std::uint8_t {
    Pipe = 'P',       // Windows side -> instrument: a client opened this pipe name; relay its messages
    Run = 'R',        // Windows side -> instrument: this program (Windows path, then arguments) started
    Message = 'M',    // one pipe message, either way
    Output = 'O',     // instrument -> Windows side: what the program printed
    Exit = 'X',       // instrument -> Windows side: the program ended with this code (decimal)
    ServePipe = 'S',  // instrument -> Windows side: serve this pipe name while the program runs
    HoldMutex = 'H',  // instrument -> Windows side: hold this named mutex while the program runs
    Served = 'Q',     // Windows side -> instrument: is this pipe served? The answer is "1" or "0"
};

// Frames above this size are refused: a pipe message of the instrument is far smaller.
constexpr std::uint32_t kMaxRelayFrame = 1u << 20;

// Where the Windows side finds the relay's port when the environment does not say
// (HALVERN_SIM_RELAY_PORT): a file on the instrument's system drive.
constexpr const char* kRelayPortFile = "C:\\ProgramData\\HalvernSim\\relay-port";

bool sendRelayFrame(platform::SocketValue socket, RelayFrameE kind, const std::string& payload);
// Blocks until a whole frame came; false when the connection ended or broke.
bool receiveRelayFrame(platform::SocketValue socket, RelayFrameE& kind, std::string& payload);

// A blocking connection to the relay on 127.0.0.1; empty when nobody listens.
platform::UniqueSocket connectRelay(std::uint16_t port);
// HALVERN_SIM_RELAY_PORT, else the port file; 0 when neither names one.
std::uint16_t relayPort();

// Carries messages between a connected pipe and a relay connection, both ways, until either side ends;
// then the relay connection is shut down and the pipe's I/O cancelled (its owner closes it).
// `serverEnd`: the pipe handle is the server's instance (the Windows side), whose client reads what was
// written to it before the relay lets go.
void relayPipeMessages(platform::HandleValue pipe, platform::SocketValue socket, bool serverEnd);

// Serves the pipe "\\.\pipe\NAME" for as long as the process lives (a thread of its own): each client
// gets a relay connection of its own, on which the instrument opens its pipe of that name. While the
// instrument does not serve it (a stopped service), no new instance is made, so that an open fails with 2
// as it does on Windows. False when the pipe cannot be made; its first instance is there on return.
bool serveRelayedPipe(const std::wstring& name, std::uint16_t port);

// Program and arguments in a Run frame, and back.
std::string joinRunRequest(const std::string& program, const std::vector<std::string>& arguments);
std::vector<std::string> splitRunRequest(const std::string& payload);

}  // namespace halvern::sim
