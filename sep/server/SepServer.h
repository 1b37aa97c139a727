#pragma once
// The process's SEP servers, one per port, in start order. The start-up starts them, the system manager
// stops them at teardown, and events go to every running one.
#include <functional>

#include "sep/server/TcpIpServerChannelSetupC.h"

namespace halvern {

constexpr std::uint16_t kSepPrimaryPort = 55557;
constexpr std::uint16_t kSepSecondaryPort = 55558;
constexpr std::uint32_t kSepStartValue = 3600000;

// Calls `visit` for each running server, first started first, while it answers true.
bool forEachSepServer(const std::function<bool(HalvernRpc::TcpIpServerChannelSetupC& server)>& visit);

// Starts the servers of both ports (false, with none left running, when one cannot start) and installs
// them as the receiver of the instrument's events; StopSepServer stops them, each within its bound.
bool StartSepServer();
void StopSepServer();

}  // namespace halvern
