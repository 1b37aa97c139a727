#include <windows.h>
// netfw.h after windows.h: it needs the COM declarations.
#include <netfw.h>

#include "platform/Firewall.h"
#include "platform/win32/Com.h"
#include "platform/win32/WineGuard.h"

namespace platform {

namespace {

// A thread already in the multithreaded apartment (RPC_E_CHANGED_MODE) still has COM and goes on with it.
HRESULT enterApartment(win32::UniqueComInitialization& com)
{
    const HRESULT result = win32::initializeCom(com, COINIT_APARTMENTTHREADED);
    return result == RPC_E_CHANGED_MODE ? S_OK : result;
}

FirewallResultT failed(FirewallStepE step, HRESULT result)
{
    return FirewallResultT{step, static_cast<std::uint32_t>(result)};
}

// The policy object, or the failed step.
FirewallResultT createPolicy(win32::ComPtr<INetFwPolicy2>& policy)
{
    INetFwPolicy2* created = nullptr;
    const HRESULT result = CoCreateInstance(__uuidof(NetFwPolicy2), nullptr, CLSCTX_INPROC_SERVER,
                                            __uuidof(INetFwPolicy2), reinterpret_cast<void**>(&created));
    if (FAILED(result)) return failed(FirewallStepE::CoCreateInstance, result);
    policy.reset(created);
    return FirewallResultT{};
}

}  // namespace

FirewallResultT setFirewallEnabled(FirewallProfileE profile, bool enabled)
{
    if (win32::refusedUnderWine()) return failed(FirewallStepE::PutFirewallEnabled, E_ACCESSDENIED);
    win32::UniqueComInitialization com;
    HRESULT result = enterApartment(com);
    if (FAILED(result)) return failed(FirewallStepE::CoInitializeEx, result);
    win32::ComPtr<INetFwPolicy2> policy;
    const FirewallResultT created = createPolicy(policy);
    if (!created.ok()) return created;
    result =
        policy->put_FirewallEnabled(static_cast<NET_FW_PROFILE_TYPE2>(profile), enabled ? VARIANT_TRUE : VARIANT_FALSE);
    if (FAILED(result)) return failed(FirewallStepE::PutFirewallEnabled, result);
    return FirewallResultT{};
}

FirewallResultT getFirewallEnabled(FirewallProfileE profile, bool& enabled)
{
    win32::UniqueComInitialization com;
    HRESULT result = enterApartment(com);
    if (FAILED(result)) return failed(FirewallStepE::CoInitializeEx, result);
    win32::ComPtr<INetFwPolicy2> policy;
    const FirewallResultT created = createPolicy(policy);
    if (!created.ok()) return created;
    VARIANT_BOOL value = VARIANT_FALSE;
    result = policy->get_FirewallEnabled(static_cast<NET_FW_PROFILE_TYPE2>(profile), &value);
    if (FAILED(result)) return failed(FirewallStepE::GetFirewallEnabled, result);
    enabled = value != VARIANT_FALSE;
    return FirewallResultT{};
}

}  // namespace platform
