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
#include "platform/win32/Com.h"

namespace platform {

namespace {

using win32::ComPtr;
using win32::VariantC;

const wchar_t* const kNamespace = L"ROOT\\StandardCimv2\\embedded";
const wchar_t* const kQuery = L"SELECT OverlayConsumption, AvailableSpace FROM UWF_Overlay";
// A reading is bounded, so that whoever waits for the overlay watch's thread waits a bounded time.
constexpr LONG kQueryWaitMs = 30000;

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
    // A thread that already has COM in the other apartment model keeps it and reads with it.
    win32::UniqueComInitialization com;
    const HRESULT entered = win32::initializeCom(com, COINIT_MULTITHREADED);
    if (FAILED(entered) && entered != RPC_E_CHANGED_MODE) return failed(entered);
    const HRESULT security = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT,
                                                  RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE, nullptr);
    // Security is set once per process; whoever came first set it.
    if (FAILED(security) && security != RPC_E_TOO_LATE) return failed(security);

    IWbemLocator* rawLocator = nullptr;
    HRESULT result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                                      reinterpret_cast<void**>(&rawLocator));
    if (FAILED(result)) return failed(result);
    ComPtr<IWbemLocator> locator(rawLocator);

    const win32::UniqueBstr nameSpace(SysAllocString(kNamespace));
    IWbemServices* rawServices = nullptr;
    result = locator->ConnectServer(nameSpace.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, &rawServices);
    if (FAILED(result)) return failed(result);
    ComPtr<IWbemServices> services(rawServices);
    result = CoSetProxyBlanket(services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                               RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);
    if (FAILED(result)) return failed(result);

    const win32::UniqueBstr language(SysAllocString(L"WQL"));
    const win32::UniqueBstr query(SysAllocString(kQuery));
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
