#include <windows.h>

#include <new>

#include "platform/Sync.h"

namespace platform {

struct NullDaclSecurityC::Impl {
    SECURITY_DESCRIPTOR descriptor{};
    SECURITY_ATTRIBUTES attributes{};
};

NullDaclSecurityC::NullDaclSecurityC() = default;
NullDaclSecurityC::~NullDaclSecurityC() = default;

std::unique_ptr<NullDaclSecurityC> NullDaclSecurityC::create()
{
    // The caller treats a missing descriptor as "go on without one", so running out of memory must answer
    // nullptr like any other failure instead of throwing.
    std::unique_ptr<Impl> impl(new (std::nothrow) Impl);
    std::unique_ptr<NullDaclSecurityC> security(impl ? new (std::nothrow) NullDaclSecurityC : nullptr);
    if (!security) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return nullptr;
    }
    if (!InitializeSecurityDescriptor(&impl->descriptor, SECURITY_DESCRIPTOR_REVISION) ||
        !SetSecurityDescriptorDacl(&impl->descriptor, TRUE, nullptr, FALSE)) {
        const DWORD error = GetLastError();
        security.reset();
        impl.reset();
        SetLastError(error);
        return nullptr;
    }
    impl->attributes.nLength = sizeof(impl->attributes);
    impl->attributes.lpSecurityDescriptor = &impl->descriptor;
    impl->attributes.bInheritHandle = FALSE;
    security->m_impl = std::move(impl);
    return security;
}

void* NullDaclSecurityC::attributes() const
{
    return &m_impl->attributes;
}

namespace {

SECURITY_ATTRIBUTES* securityAttributes(const NullDaclSecurityC* security)
{
    return security != nullptr ? static_cast<SECURITY_ATTRIBUTES*>(security->attributes()) : nullptr;
}

const wchar_t* objectName(const std::wstring& name)
{
    return name.empty() ? nullptr : name.c_str();
}

// Callers tell "created" from "opened an existing one" by the last error after a valid handle, so it is
// taken right after the call and put back once the owner is built.
UniqueHandle ownWithLastError(HANDLE handle)
{
    const DWORD error = GetLastError();
    UniqueHandle owner(handle);
    SetLastError(error);
    return owner;
}

}  // namespace

UniqueHandle createMutex(const NullDaclSecurityC* security, bool initialOwner, const std::wstring& name)
{
    return ownWithLastError(CreateMutexW(securityAttributes(security), initialOwner ? TRUE : FALSE, objectName(name)));
}

UniqueHandle openMutex(const std::wstring& name)
{
    return ownWithLastError(OpenMutexW(SYNCHRONIZE, FALSE, name.c_str()));
}

bool releaseMutex(HandleValue mutex)
{
    return ReleaseMutex(mutex) != FALSE;
}

UniqueHandle createEvent(const NullDaclSecurityC* security, bool manualReset, bool initialState,
                         const std::wstring& name)
{
    return ownWithLastError(CreateEventW(securityAttributes(security), manualReset ? TRUE : FALSE,
                                         initialState ? TRUE : FALSE, objectName(name)));
}

bool setEvent(HandleValue event)
{
    return SetEvent(event) != FALSE;
}

bool resetEvent(HandleValue event)
{
    return ResetEvent(event) != FALSE;
}

std::uint32_t waitForSingleObject(HandleValue handle, std::uint32_t milliseconds)
{
    return WaitForSingleObject(handle, milliseconds);
}

std::uint32_t waitForAnyObject(const std::vector<HandleValue>& handles, std::uint32_t milliseconds)
{
    return WaitForMultipleObjects(static_cast<DWORD>(handles.size()), handles.data(), FALSE, milliseconds);
}

}  // namespace platform
