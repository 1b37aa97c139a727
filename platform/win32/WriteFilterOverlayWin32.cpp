// The write filter's overlay through WMI: one query of the UWF_Overlay instance per reading, with COM
// entered on the calling thread for as long as the reading takes (the overlay watch's thread and the main
// thread both read).
#include <windows.h>
// After windows.h, which they build on.
#include <objbase.h>
#include <oleauto.h>
#include <wbemcli.h>

#include <memory>

#include "platform/WriteFilterOverlay.h"

namespace platform {

namespace {

const wchar_t* const kNamespace = L"ROOT\\StandardCimv2\\embedded";
const wchar_t* const kQuery = L"SELECT OverlayConsumption, AvailableSpace FROM UWF_Overlay";
// A reading is bounded, so that whoever waits for the overlay watch's thread waits a bounded time.
constexpr LONG kQueryWaitMs = 30000;

struct ComRelease {
    void operator()(IUnknown* object) const
    {
        if (object != nullptr) object->Release();
    }
};
template <class T>
using ComPtr = std::unique_ptr<T, ComRelease>;

class BstrC {
public:
    explicit BstrC(const wchar_t* text) : m_text(SysAllocString(text)) {}
    ~BstrC() { SysFreeString(m_text); }
    BstrC(const BstrC&) = delete;
    BstrC& operator=(const BstrC&) = delete;
    BSTR get() const { return m_text; }

private:
    BSTR m_text;
};

class VariantC {
public:
    VariantC() { VariantInit(&m_value); }
    ~VariantC() { VariantClear(&m_value); }
    VariantC(const VariantC&) = delete;
    VariantC& operator=(const VariantC&) = delete;
    VARIANT* get() { return &m_value; }

private:
    VARIANT m_value;
};

// COM on this thread for the reading; a thread that already has COM in another apartment keeps it.
class ComScopeC {
public:
    ComScopeC() : m_result(CoInitializeEx(nullptr, COINIT_MULTITHREADED)) {}
    ~ComScopeC()
    {
        if (SUCCEEDED(m_result)) CoUninitialize();
    }
    ComScopeC(const ComScopeC&) = delete;
    ComScopeC& operator=(const ComScopeC&) = delete;
    bool usable() const { return SUCCEEDED(m_result) || m_result == RPC_E_CHANGED_MODE; }
    HRESULT result() const { return m_result; }

private:
    HRESULT m_result;
};

bool failed(HRESULT result)
{
    SetLastError(static_cast<DWORD>(result));
    return false;
}

// WMI answers UInt32 properties as VT_I4.
bool unsignedProperty(IWbemClassObject* object, const wchar_t* name, std::uint32_t& value)
{
    VariantC property;
    const HRESULT result = object->Get(name, 0, property.get(), nullptr, nullptr);
    if (FAILED(result)) return failed(result);
    if (property.get()->vt == VT_I4)
        value = static_cast<std::uint32_t>(property.get()->lVal);
    else if (property.get()->vt == VT_UI4)
        value = property.get()->ulVal;
    else
        return failed(static_cast<HRESULT>(WBEM_E_TYPE_MISMATCH));
    return true;
}

}  // namespace

bool readWriteFilterOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb)
{
    consumptionMb = 0;
    availableMb = 0;
    ComScopeC com;
    if (!com.usable()) return failed(com.result());
    const HRESULT security = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                                  RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    // Security is set once per process; whoever came first set it.
    if (FAILED(security) && security != RPC_E_TOO_LATE) return failed(security);

    IWbemLocator* rawLocator = nullptr;
    HRESULT result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                      reinterpret_cast<void**>(&rawLocator));
    if (FAILED(result)) return failed(result);
    ComPtr<IWbemLocator> locator(rawLocator);

    BstrC nameSpace(kNamespace);
    IWbemServices* rawServices = nullptr;
    result = locator->ConnectServer(nameSpace.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, &rawServices);
    if (FAILED(result)) return failed(result);
    ComPtr<IWbemServices> services(rawServices);
    result = CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (FAILED(result)) return failed(result);

    BstrC language(L"WQL");
    BstrC query(kQuery);
    IEnumWbemClassObject* rawEnumerator = nullptr;
    result = services->ExecQuery(language.get(), query.get(), WBEM_FLAG_FORWARD_ONLY | WBEM_FLAG_RETURN_IMMEDIATELY,
                                 nullptr, &rawEnumerator);
    if (FAILED(result)) return failed(result);
    ComPtr<IEnumWbemClassObject> enumerator(rawEnumerator);

    IWbemClassObject* rawOverlay = nullptr;
    ULONG returned = 0;
    result = enumerator->Next(kQueryWaitMs, 1, &rawOverlay, &returned);
    if (FAILED(result)) return failed(result);
    if (result == WBEM_S_TIMEDOUT) return failed(static_cast<HRESULT>(WBEM_S_TIMEDOUT));
    if (returned == 0 || rawOverlay == nullptr) {
        SetLastError(ERROR_NOT_FOUND);
        return false;
    }
    ComPtr<IWbemClassObject> overlay(rawOverlay);
    return unsignedProperty(overlay.get(), L"OverlayConsumption", consumptionMb) &&
           unsignedProperty(overlay.get(), L"AvailableSpace", availableMb);
}

}  // namespace platform
