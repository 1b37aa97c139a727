#include <windows.h>

#include "platform/Registry.h"

namespace platform {

void UniqueRegKey::reset(void* key)
{
    if (m_key != nullptr) RegCloseKey(static_cast<HKEY>(m_key));
    m_key = key;
}

namespace {

HKEY hiveKey(RegHive hive)
{
    return hive == RegHive::LocalMachine ? HKEY_LOCAL_MACHINE : HKEY_CURRENT_USER;
}

}  // namespace

RegStatus regOpenKeyRead(RegHive hive, const std::wstring& subKey, UniqueRegKey& key)
{
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(hiveKey(hive), subKey.c_str(), 0, KEY_READ, &opened);
    // After a failed open the caller holds no key, whatever it held before: a stale key must not pass for
    // the one asked for.
    key.reset(status == ERROR_SUCCESS ? opened : nullptr);
    return status;
}

RegStatus regQueryDword(const UniqueRegKey& key, const std::wstring& valueName, std::uint32_t& value,
                        std::uint32_t& type)
{
    DWORD storedType = REG_NONE;
    DWORD data = 0;
    DWORD size = sizeof(data);
    const LSTATUS status = RegQueryValueExW(static_cast<HKEY>(key.get()), valueName.c_str(), nullptr, &storedType,
                                            reinterpret_cast<BYTE*>(&data), &size);
    // The type is known even when the value did not fit; the data only counts when it did.
    if (status == ERROR_SUCCESS || status == ERROR_MORE_DATA) type = storedType;
    if (status == ERROR_SUCCESS) value = data;
    return status;
}

}  // namespace platform
