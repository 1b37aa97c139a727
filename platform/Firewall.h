#pragma once
// The Windows firewall's switch per network profile, through the firewall policy object (INetFwPolicy2).
// On the simulation platform a profile's state is the file "sim/firewall/<profile>" of the sim root ("on"
// or "off"; absent: on, as a fresh Windows has it), and the host's own firewall is never touched.
#include <cstdint>

namespace platform {

// NET_FW_PROFILE_TYPE2 values.
enum class FirewallProfileE : std::uint32_t { Domain = 1, Private = 2, Public = 4 };

// Where a firewall call failed, with the HRESULT of that step.
enum class FirewallStepE { None, CoInitializeEx, CoCreateInstance, PutFirewallEnabled, GetFirewallEnabled };
struct FirewallResultT {
    FirewallStepE step = FirewallStepE::None;
    std::uint32_t hresult = 0;
    bool ok() const { return step == FirewallStepE::None; }
};

FirewallResultT setFirewallEnabled(FirewallProfileE profile, bool enabled);
FirewallResultT getFirewallEnabled(FirewallProfileE profile, bool& enabled);

// "Domain", "Private", "Public".
const char* firewallProfileName(FirewallProfileE profile);

}  // namespace platform
