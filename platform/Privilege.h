#pragma once
// Privileges of the process token (OpenProcessToken, LookupPrivilegeValueW, AdjustTokenPrivileges). Halvern
// enables the time privileges only around the call that needs them: the scope below enables one for its
// lifetime and disables it again when it ends.
#include <cstdint>

#include "platform/Handle.h"

namespace platform {

constexpr const wchar_t* kSeTimeZonePrivilege = L"SeTimeZonePrivilege";
constexpr const wchar_t* kSeSystemtimePrivilege = L"SeSystemtimePrivilege";

// Whether the process token holds `privilege` enabled at this moment.
bool privilegeEnabled(const wchar_t* privilege);

class PrivilegeScopeC {
public:
    explicit PrivilegeScopeC(const wchar_t* privilege);
    ~PrivilegeScopeC();
    PrivilegeScopeC(const PrivilegeScopeC&) = delete;
    PrivilegeScopeC& operator=(const PrivilegeScopeC&) = delete;

    // False with the last error of the step that failed (a token without the privilege: 1300).
    bool enabled() const { return m_enabled; }

private:
    const wchar_t* m_privilege;
    UniqueHandle m_token;
    std::uint64_t m_luid = 0;
    bool m_enabled = false;
};

}  // namespace platform
