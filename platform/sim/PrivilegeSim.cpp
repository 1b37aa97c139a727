#include <cwchar>
#include <mutex>
#include <set>
#include <string>

#include "platform/Privilege.h"
#include "platform/WinError.h"

namespace platform {

namespace {

// The privileges an administrator's token holds (disabled until asked for), as the simulated process's
// token holds them.
const wchar_t* const kTokenPrivileges[] = {kSeTimeZonePrivilege, kSeSystemtimePrivilege, L"SeShutdownPrivilege",
                                           L"SeDebugPrivilege"};
// ERROR_NO_SUCH_PRIVILEGE, what LookupPrivilegeValueW answers for a name it does not know.
constexpr std::uint32_t kErrorNoSuchPrivilege = 1313;

std::mutex g_lock;
std::set<std::wstring> g_enabled;

bool known(const wchar_t* privilege)
{
    for (const wchar_t* name : kTokenPrivileges)
        if (std::wcscmp(name, privilege) == 0) return true;
    return false;
}

}  // namespace

bool privilegeEnabled(const wchar_t* privilege)
{
    std::lock_guard<std::mutex> guard(g_lock);
    return g_enabled.count(privilege) != 0;
}

PrivilegeScopeC::PrivilegeScopeC(const wchar_t* privilege) : m_privilege(privilege)
{
    if (!known(privilege)) {
        setLastError(kErrorNoSuchPrivilege);
        return;
    }
    std::lock_guard<std::mutex> guard(g_lock);
    g_enabled.insert(privilege);
    m_enabled = true;
}

PrivilegeScopeC::~PrivilegeScopeC()
{
    if (!m_enabled) return;
    std::lock_guard<std::mutex> guard(g_lock);
    g_enabled.erase(m_privilege);
}

}  // namespace platform
