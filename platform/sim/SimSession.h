#pragma once
// The user session of the simulated instrument as the platform's other facilities need it.
#include <cstdint>
#include <optional>
#include <string>

#include "platform/Handle.h"

namespace platform::sim {

// The session of a token of this platform; none for a handle that is no token.
std::optional<std::uint32_t> tokenSession(HandleValue token);
// The user logged on to the instrument's session: the first line of "sim/session/logged-on-user",
// "Operator" when absent.
std::string loggedOnUser();

}  // namespace platform::sim
