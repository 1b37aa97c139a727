#include "platform/Firewall.h"

namespace platform {

const char* firewallProfileName(FirewallProfileE profile)
{
    switch (profile) {
        case FirewallProfileE::Domain:
            return "Domain";
        case FirewallProfileE::Private:
            return "Private";
        case FirewallProfileE::Public:
            return "Public";
    }
    return "Unknown";
}

}  // namespace platform
