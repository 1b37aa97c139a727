#include <windows.h>

#include "platform/UserRegistry.h"

namespace platform {

RegStatus regOpenUserHive(HandleValue userToken, UniqueRegKey& hive)
{
    hive.reset();
    if (!ImpersonateLoggedOnUser(static_cast<HANDLE>(userToken))) return static_cast<RegStatus>(GetLastError());
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenCurrentUser(KEY_ALL_ACCESS, &opened);
    if (status == ERROR_SUCCESS) hive.reset(opened);
    // The thread must not keep the user's identity for anything after this call.
    if (!RevertToSelf()) {
        const DWORD error = GetLastError();
        hive.reset();
        return static_cast<RegStatus>(error);
    }
    return static_cast<RegStatus>(status);
}

RegStatus regCreateKey(const UniqueRegKey& parent, const std::wstring& subKey, UniqueRegKey& key)
{
    HKEY opened = nullptr;
    const LSTATUS status = RegCreateKeyExW(static_cast<HKEY>(parent.get()), subKey.c_str(), 0, nullptr,
                                           REG_OPTION_NON_VOLATILE, KEY_ALL_ACCESS, nullptr, &opened, nullptr);
    key.reset(status == ERROR_SUCCESS ? opened : nullptr);
    return static_cast<RegStatus>(status);
}

}  // namespace platform
