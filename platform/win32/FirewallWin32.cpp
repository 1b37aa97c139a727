#include <windows.h>
// netfw.h after windows.h: it needs the COM declarations.
#include <netfw.h>

#include <memory>

#include "platform/Firewall.h"
#include "platform/win32/WineGuard.h"

namespace platform {

namespace {

struct ComRelease {
    void operator()(IUnknown* object) const
    {
        if (object != nullptr) object->Release();
    }
};

// CoUninitialize for a successful CoInitializeEx, on the thread that made it. A thread already in another
// apartment (RPC_E_CHANGED_MODE) still has COM and goes on with it.
class ComScopeC {
public:
    ComScopeC() = default;
    ~ComScopeC()
    {
        if (m_initialized) CoUninitialize();
    }
    ComScopeC(const ComScopeC&) = delete;
    ComScopeC& operator=(const ComScopeC&) = delete;
    HRESULT initialize()
    {
        const HRESULT result = CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED);
        m_initialized = SUCCEEDED(result);
        return result == RPC_E_CHANGED_MODE ? S_OK : result;
    }

private:
    bool m_initialized = false;
};

FirewallResultT failed(FirewallStepE step, HRESULT result)
{
    return FirewallResultT{step, static_cast<std::uint32_t>(result)};
}

// The policy object, or the failed step.
FirewallResultT createPolicy(std::unique_ptr<INetFwPolicy2, ComRelease>& policy)
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
    ComScopeC com;
    HRESULT result = com.initialize();
    if (FAILED(result)) return failed(FirewallStepE::CoInitializeEx, result);
    std::unique_ptr<INetFwPolicy2, ComRelease> policy;
    const FirewallResultT created = createPolicy(policy);
    if (!created.ok()) return created;
    result =
        policy->put_FirewallEnabled(static_cast<NET_FW_PROFILE_TYPE2>(profile), enabled ? VARIANT_TRUE : VARIANT_FALSE);
    if (FAILED(result)) return failed(FirewallStepE::PutFirewallEnabled, result);
    return FirewallResultT{};
}

FirewallResultT getFirewallEnabled(FirewallProfileE profile, bool& enabled)
{
    ComScopeC com;
    HRESULT result = com.initialize();
    if (FAILED(result)) return failed(FirewallStepE::CoInitializeEx, result);
    std::unique_ptr<INetFwPolicy2, ComRelease> policy;
    const FirewallResultT created = createPolicy(policy);
    if (!created.ok()) return created;
    VARIANT_BOOL value = VARIANT_FALSE;
    result = policy->get_FirewallEnabled(static_cast<NET_FW_PROFILE_TYPE2>(profile), &value);
    if (FAILED(result)) return failed(FirewallStepE::GetFirewallEnabled, result);
    enabled = value != VARIANT_FALSE;
    return FirewallResultT{};
}

}  // namespace platform
