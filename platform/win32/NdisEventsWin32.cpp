// The driver's NDIS indications through WMI: COM on the calling thread, a locator, the "ROOT\WMI"
// namespace and three asynchronous notification queries delivered to one sink object. WMI calls the sink
// on its own threads; stop() cancels the queries and closes the sink's door before anything is released.
#include <windows.h>
// After windows.h, which they build on.
#include <objbase.h>
#include <oleauto.h>
#include <wbemcli.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <utility>

#include "platform/WlanDriver.h"
#include "platform/win32/Com.h"

namespace platform {

namespace {

using win32::ComPtr;
using win32::UniqueBstr;
using win32::VariantC;

const wchar_t* const kNamespace = L"ROOT\\WMI";
const wchar_t* const kQueryLanguage = L"WQL";
const wchar_t* const kQueries[] = {
    L"SELECT * FROM MSNdis_StatusMediaConnect",
    L"SELECT * FROM MSNdis_StatusMediaDisconnect",
    L"SELECT * FROM MSNdis_StatusMediaSpecificIndicationEx",
};
const wchar_t* const kClassMediaConnect = L"MSNdis_StatusMediaConnect";
const wchar_t* const kClassMediaDisconnect = L"MSNdis_StatusMediaDisconnect";
const wchar_t* const kClassSpecificIndication = L"MSNdis_StatusMediaSpecificIndicationEx";
const wchar_t* const kIndicationProperty = L"NdisStatusMediaSpecificIndication";

NdisEventT eventOf(IWbemClassObject* object)
{
    NdisEventT event;
    VariantC className;
    if (FAILED(object->Get(L"__CLASS", 0, className.get(), nullptr, nullptr)) || className.get()->vt != VT_BSTR ||
        className.get()->bstrVal == nullptr)
        return event;
    const std::wstring name(className.get()->bstrVal, SysStringLen(className.get()->bstrVal));
    if (name == kClassMediaConnect) {
        event.kind = NdisEventKindE::MediaConnect;
    } else if (name == kClassMediaDisconnect) {
        event.kind = NdisEventKindE::MediaDisconnect;
    } else if (name == kClassSpecificIndication) {
        event.kind = NdisEventKindE::MediaSpecificIndication;
        VariantC value;
        if (SUCCEEDED(object->Get(kIndicationProperty, 0, value.get(), nullptr, nullptr)) &&
            value.get()->vt == (VT_ARRAY | VT_UI1) && value.get()->parray != nullptr) {
            SAFEARRAY* array = value.get()->parray;
            LONG lower = 0, upper = -1;
            void* data = nullptr;
            if (SUCCEEDED(SafeArrayGetLBound(array, 1, &lower)) && SUCCEEDED(SafeArrayGetUBound(array, 1, &upper)) &&
                SUCCEEDED(SafeArrayAccessData(array, &data))) {
                const auto* bytes = static_cast<const std::uint8_t*>(data);
                event.indication.assign(bytes, bytes + (upper >= lower ? upper - lower + 1 : 0));
                SafeArrayUnaccessData(array);
                event.hasIndication = true;
            }
        }
    } else {
        event.className = name;
    }
    return event;
}

// The object WMI delivers the notifications to. It outlives stop() as long as WMI holds a reference, so
// the callback goes behind a lock that close() takes away.
class NdisObjectSinkC final : public IWbemObjectSink {
public:
    explicit NdisObjectSinkC(NdisEventCallback callback) : m_callback(std::move(callback)) {}

    ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
    ULONG STDMETHODCALLTYPE Release() override
    {
        const ULONG left = --m_references;
        if (left == 0) delete this;
        return left;
    }
    HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override
    {
        if (object == nullptr) return E_POINTER;
        if (iid == IID_IUnknown || iid == IID_IWbemObjectSink) {
            *object = static_cast<IWbemObjectSink*>(this);
            AddRef();
            return S_OK;
        }
        *object = nullptr;
        return E_NOINTERFACE;
    }
    HRESULT STDMETHODCALLTYPE Indicate(LONG count, IWbemClassObject** objects) override
    {
        for (LONG i = 0; i < count && objects != nullptr; ++i) {
            if (objects[i] == nullptr) continue;
            const NdisEventT event = eventOf(objects[i]);
            std::lock_guard<std::mutex> guard(m_lock);
            if (m_callback) m_callback(event);
        }
        return WBEM_S_NO_ERROR;
    }
    HRESULT STDMETHODCALLTYPE SetStatus(LONG, HRESULT, BSTR, IWbemClassObject*) override { return WBEM_S_NO_ERROR; }

    void close()
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_callback = nullptr;
    }

private:
    ~NdisObjectSinkC() = default;

    std::atomic<ULONG> m_references{1};
    std::mutex m_lock;
    NdisEventCallback m_callback;
};

}  // namespace

struct NdisEventSourceC::Impl {
    win32::UniqueComInitialization com;
    ComPtr<IWbemLocator> locator;
    ComPtr<IWbemServices> services;
    ComPtr<NdisObjectSinkC> sink;
    bool registered = false;
};

NdisEventSourceC::NdisEventSourceC() : m_impl(std::make_unique<Impl>()) {}

NdisEventSourceC::~NdisEventSourceC()
{
    stop();
}

NdisSubscribeResultT NdisEventSourceC::start(NdisEventCallback callback)
{
    stop();
    const auto failed = [this](NdisSubscribeStepE step, HRESULT result) {
        stop();
        return NdisSubscribeResultT{step, static_cast<std::uint32_t>(result)};
    };
    HRESULT result = win32::initializeCom(m_impl->com, COINIT_MULTITHREADED);
    if (FAILED(result)) return failed(NdisSubscribeStepE::CoInitializeEx, result);
    result = CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_DEFAULT, RPC_C_IMP_LEVEL_IMPERSONATE,
                                  nullptr, EOAC_NONE, nullptr);
    // Security is set once per process; a second subscription lives with the first one's.
    if (FAILED(result) && result != RPC_E_TOO_LATE) return failed(NdisSubscribeStepE::CoInitializeSecurity, result);

    IWbemLocator* locator = nullptr;
    result = CoCreateInstance(CLSID_WbemLocator, nullptr, CLSCTX_INPROC_SERVER, IID_IWbemLocator,
                              reinterpret_cast<void**>(&locator));
    m_impl->locator.reset(locator);
    if (FAILED(result)) return failed(NdisSubscribeStepE::CoCreateInstance, result);

    const UniqueBstr wmiNamespace(SysAllocString(kNamespace));
    if (!wmiNamespace) return failed(NdisSubscribeStepE::ConnectServer, E_OUTOFMEMORY);
    IWbemServices* services = nullptr;
    result =
        m_impl->locator->ConnectServer(wmiNamespace.get(), nullptr, nullptr, nullptr, 0, nullptr, nullptr, &services);
    m_impl->services.reset(services);
    if (FAILED(result)) return failed(NdisSubscribeStepE::ConnectServer, result);
    // WMI's calls on behalf of this process impersonate it; without the blanket some providers refuse.
    CoSetProxyBlanket(m_impl->services.get(), RPC_C_AUTHN_WINNT, RPC_C_AUTHZ_NONE, nullptr, RPC_C_AUTHN_LEVEL_CALL,
                      RPC_C_IMP_LEVEL_IMPERSONATE, nullptr, EOAC_NONE);

    m_impl->sink.reset(new NdisObjectSinkC(std::move(callback)));
    const UniqueBstr language(SysAllocString(kQueryLanguage));
    if (!language) return failed(NdisSubscribeStepE::Register, E_OUTOFMEMORY);
    for (const wchar_t* text : kQueries) {
        const UniqueBstr query(SysAllocString(text));
        if (!query) return failed(NdisSubscribeStepE::Register, E_OUTOFMEMORY);
        result = m_impl->services->ExecNotificationQueryAsync(language.get(), query.get(), WBEM_FLAG_SEND_STATUS,
                                                              nullptr, m_impl->sink.get());
        if (FAILED(result)) return failed(NdisSubscribeStepE::Register, result);
        m_impl->registered = true;
    }
    return {};
}

void NdisEventSourceC::stop()
{
    // Every query of the sink ends with one cancel; the sink's door closes before WMI lets go of it.
    if (m_impl->registered && m_impl->services && m_impl->sink) m_impl->services->CancelAsyncCall(m_impl->sink.get());
    m_impl->registered = false;
    if (m_impl->sink) m_impl->sink->close();
    m_impl->sink.reset();
    m_impl->services.reset();
    m_impl->locator.reset();
    m_impl->com.reset();
}

}  // namespace platform
