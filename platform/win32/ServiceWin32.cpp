#include <windows.h>

#include "platform/Service.h"
#include "platform/WinError.h"
#include "platform/win32/WineGuard.h"

namespace platform {

void ServiceHandleTraits::close(Value handle) noexcept
{
    CloseServiceHandle(static_cast<SC_HANDLE>(handle));
}

UniqueServiceHandle openServiceManager()
{
    return UniqueServiceHandle(OpenSCManagerW(nullptr, nullptr, SC_MANAGER_ALL_ACCESS));
}

UniqueServiceHandle openService(const UniqueServiceHandle& manager, const std::wstring& name)
{
    return UniqueServiceHandle(OpenServiceW(static_cast<SC_HANDLE>(manager.get()), name.c_str(), SERVICE_ALL_ACCESS));
}

bool queryServiceState(const UniqueServiceHandle& service, std::uint32_t& state)
{
    SERVICE_STATUS_PROCESS status{};
    DWORD needed = 0;
    if (!QueryServiceStatusEx(static_cast<SC_HANDLE>(service.get()), SC_STATUS_PROCESS_INFO,
                              reinterpret_cast<BYTE*>(&status), sizeof status, &needed))
        return false;
    state = status.dwCurrentState;
    return true;
}

bool startService(const UniqueServiceHandle& service)
{
    if (win32::refusedUnderWine()) return false;
    return StartServiceW(static_cast<SC_HANDLE>(service.get()), 0, nullptr) != FALSE;
}

bool changeServiceStartType(const UniqueServiceHandle& service, std::uint32_t startType)
{
    if (win32::refusedUnderWine()) return false;
    return ChangeServiceConfigW(static_cast<SC_HANDLE>(service.get()), SERVICE_NO_CHANGE, startType, SERVICE_NO_CHANGE,
                                nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr) != FALSE;
}

}  // namespace platform
