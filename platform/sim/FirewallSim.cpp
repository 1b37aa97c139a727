#include <fstream>
#include <string>

#include "platform/Firewall.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace {

// E_ACCESSDENIED as the policy object answers a caller without the right to change it; CO_E_NOTINITIALIZED
// stands for a missing sim root (no COM to reach).
constexpr std::uint32_t kHresultAccessDenied = 0x80070005u;
constexpr std::uint32_t kHresultNotInitialized = 0x800401F0u;

std::string profileFile(FirewallProfileE profile)
{
    return sim::root() + "/sim/firewall/" + firewallProfileName(profile);
}

}  // namespace

FirewallResultT setFirewallEnabled(FirewallProfileE profile, bool enabled)
{
    if (sim::root().empty()) return FirewallResultT{FirewallStepE::CoInitializeEx, kHresultNotInitialized};
    // A folder where the profile's file belongs is how a test makes the policy refuse.
    if (!sim::makeDirectories(sim::root() + "/sim/firewall"))
        return FirewallResultT{FirewallStepE::PutFirewallEnabled, kHresultAccessDenied};
    std::ofstream out(profileFile(profile), std::ios::trunc);
    out << (enabled ? "on" : "off") << '\n';
    if (!out) return FirewallResultT{FirewallStepE::PutFirewallEnabled, kHresultAccessDenied};
    return FirewallResultT{};
}

FirewallResultT getFirewallEnabled(FirewallProfileE profile, bool& enabled)
{
    if (sim::root().empty()) return FirewallResultT{FirewallStepE::CoInitializeEx, kHresultNotInitialized};
    std::ifstream in(profileFile(profile));
    std::string state;
    enabled = !(std::getline(in, state) && state == "off");
    return FirewallResultT{};
}

}  // namespace platform
