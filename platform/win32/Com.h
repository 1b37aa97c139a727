#pragma once
// COM on the calling thread and the owners of what COM hands out: interface pointers, BSTRs, VARIANTs.
#include <windows.h>
// After windows.h, which they build on.
#include <objbase.h>
#include <oleauto.h>

#include <memory>

#include "platform/Owner.h"

namespace platform::win32 {

// A successful CoInitializeEx of the thread that owns it; closing is CoUninitialize on that thread.
struct ComInitializationTraits {
    using Value = bool;
    static Value invalid() noexcept { return false; }
    static void close(Value) noexcept { CoUninitialize(); }
};
using UniqueComInitialization = UniqueOwner<ComInitializationTraits>;

// CoInitializeEx with the caller's apartment model (COINIT_...); `com` then owns it when it succeeded, also
// when the thread already had COM in the same model (S_FALSE). A thread already in the other model answers
// RPC_E_CHANGED_MODE and has COM without owning it: each caller decides whether it can go on with that.
inline HRESULT initializeCom(UniqueComInitialization& com, DWORD apartment)
{
    const HRESULT result = CoInitializeEx(nullptr, apartment);
    com.reset(SUCCEEDED(result));
    return result;
}

struct ComRelease {
    void operator()(IUnknown* object) const
    {
        if (object != nullptr) object->Release();
    }
};
template <class T>
using ComPtr = std::unique_ptr<T, ComRelease>;

struct BstrTraits {
    using Value = BSTR;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value text) noexcept { SysFreeString(text); }
};
using UniqueBstr = UniqueOwner<BstrTraits>;

// A VARIANT that is cleared whatever path leaves; it holds its value in place, so it is no handle owner.
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

}  // namespace platform::win32
