#include <windows.h>

#include <cstring>

#include "platform/Privilege.h"

namespace platform {

namespace {

bool adjust(HANDLE token, const LUID& luid, bool enable)
{
    TOKEN_PRIVILEGES privileges{};
    privileges.PrivilegeCount = 1;
    privileges.Privileges[0].Luid = luid;
    privileges.Privileges[0].Attributes = enable ? SE_PRIVILEGE_ENABLED : 0;
    if (!AdjustTokenPrivileges(token, FALSE, &privileges, sizeof privileges, nullptr, nullptr)) return false;
    // AdjustTokenPrivileges succeeds even when the token does not hold the privilege; only the last error
    // tells.
    return GetLastError() != ERROR_NOT_ALL_ASSIGNED;
}

}  // namespace

bool privilegeEnabled(const wchar_t* privilege)
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
    const UniqueHandle owner(token);
    PRIVILEGE_SET set{};
    set.PrivilegeCount = 1;
    set.Control = PRIVILEGE_SET_ALL_NECESSARY;
    if (!LookupPrivilegeValueW(nullptr, privilege, &set.Privilege[0].Luid)) return false;
    BOOL enabled = FALSE;
    return PrivilegeCheck(token, &set, &enabled) && enabled;
}

PrivilegeScopeC::PrivilegeScopeC(const wchar_t* privilege) : m_privilege(privilege)
{
    HANDLE token = nullptr;
    if (!OpenProcessToken(GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES | TOKEN_QUERY, &token)) return;
    m_token.reset(token);
    LUID luid{};
    if (!LookupPrivilegeValueW(nullptr, privilege, &luid)) return;
    static_assert(sizeof luid == sizeof m_luid, "a LUID is 64 bits");
    std::memcpy(&m_luid, &luid, sizeof luid);
    m_enabled = adjust(token, luid, true);
}

PrivilegeScopeC::~PrivilegeScopeC()
{
    if (!m_enabled) return;
    LUID luid{};
    std::memcpy(&luid, &m_luid, sizeof luid);
    const DWORD error = GetLastError();
    adjust(m_token.get(), luid, false);
    // Leaving the scope must not disturb the error of the call it was made for.
    SetLastError(error);
}

}  // namespace platform
