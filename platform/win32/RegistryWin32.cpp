#include <windows.h>

#include <cstring>

#include "platform/Registry.h"

namespace platform {

void RegKeyTraits::close(Value key) noexcept
{
    RegCloseKey(static_cast<HKEY>(key));
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

RegStatus regOpenKey(RegHive hive, const std::wstring& subKey, RegAccess access, UniqueRegKey& key)
{
    const REGSAM rights = access == RegAccess::Query      ? KEY_QUERY_VALUE
                          : access == RegAccess::SetValue ? KEY_SET_VALUE
                                                          : KEY_ALL_ACCESS;
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(hiveKey(hive), subKey.c_str(), 0, rights, &opened);
    key.reset(status == ERROR_SUCCESS ? opened : nullptr);
    return static_cast<RegStatus>(status);
}

RegStatus regCreateKey(RegHive hive, const std::wstring& subKey, UniqueRegKey& key)
{
    HKEY opened = nullptr;
    const LSTATUS status = RegCreateKeyExW(hiveKey(hive), subKey.c_str(), 0, nullptr, REG_OPTION_NON_VOLATILE,
                                           KEY_ALL_ACCESS, nullptr, &opened, nullptr);
    key.reset(status == ERROR_SUCCESS ? opened : nullptr);
    return static_cast<RegStatus>(status);
}

RegStatus regSetString(const UniqueRegKey& key, const std::wstring& valueName, const std::wstring& value,
                       bool withTerminator)
{
    const DWORD bytes = static_cast<DWORD>((value.size() + (withTerminator ? 1 : 0)) * sizeof(wchar_t));
    return static_cast<RegStatus>(RegSetValueExW(static_cast<HKEY>(key.get()), valueName.c_str(), 0, REG_SZ,
                                                 reinterpret_cast<const BYTE*>(value.c_str()), bytes));
}

RegStatus regSetDword(const UniqueRegKey& key, const std::wstring& valueName, std::uint32_t value)
{
    const DWORD data = value;
    return static_cast<RegStatus>(RegSetValueExW(static_cast<HKEY>(key.get()), valueName.c_str(), 0, REG_DWORD,
                                                 reinterpret_cast<const BYTE*>(&data), sizeof data));
}

RegStatus regQueryMultiString(const UniqueRegKey& key, const std::wstring& valueName, std::vector<std::wstring>& values)
{
    values.clear();
    DWORD type = 0;
    DWORD size = 0;
    LSTATUS status = RegQueryValueExW(static_cast<HKEY>(key.get()), valueName.c_str(), nullptr, &type, nullptr, &size);
    if (status != ERROR_SUCCESS) return static_cast<RegStatus>(status);
    if (type != REG_MULTI_SZ) return static_cast<RegStatus>(ERROR_UNSUPPORTED_TYPE);
    std::wstring data(size / sizeof(wchar_t) + 2, L'\0');
    status = RegQueryValueExW(static_cast<HKEY>(key.get()), valueName.c_str(), nullptr, &type,
                              reinterpret_cast<BYTE*>(data.data()), &size);
    if (status != ERROR_SUCCESS) return static_cast<RegStatus>(status);
    for (std::size_t start = 0; start < data.size() && data[start] != L'\0';) {
        const std::size_t end = data.find(L'\0', start);
        values.push_back(data.substr(start, end - start));
        start = end + 1;
    }
    return static_cast<RegStatus>(ERROR_SUCCESS);
}

RegStatus regOpenKeyRead(const UniqueRegKey& parent, const std::wstring& subKey, UniqueRegKey& key)
{
    HKEY opened = nullptr;
    const LSTATUS status = RegOpenKeyExW(static_cast<HKEY>(parent.get()), subKey.c_str(), 0, KEY_READ, &opened);
    key.reset(status == ERROR_SUCCESS ? opened : nullptr);
    return status;
}

RegStatus regEnumKey(const UniqueRegKey& key, std::uint32_t index, std::wstring& name)
{
    // Key names are at most 255 characters.
    wchar_t buffer[256] = {};
    DWORD length = 256;
    const LSTATUS status =
        RegEnumKeyExW(static_cast<HKEY>(key.get()), index, buffer, &length, nullptr, nullptr, nullptr, nullptr);
    if (status == ERROR_SUCCESS) name.assign(buffer, length);
    return status;
}

namespace {

// RegGetValueW in two steps: the size, then the data (a value that grew in between is asked again).
LSTATUS getValue(const UniqueRegKey& key, const std::wstring& valueName, DWORD flags, std::vector<BYTE>& data)
{
    for (;;) {
        DWORD size = 0;
        LSTATUS status =
            RegGetValueW(static_cast<HKEY>(key.get()), nullptr, valueName.c_str(), flags, nullptr, nullptr, &size);
        if (status != ERROR_SUCCESS) return status;
        data.assign(size, 0);
        status = RegGetValueW(static_cast<HKEY>(key.get()), nullptr, valueName.c_str(), flags, nullptr,
                              data.empty() ? nullptr : data.data(), &size);
        if (status == ERROR_MORE_DATA) continue;
        if (status == ERROR_SUCCESS) data.resize(size);
        return status;
    }
}

}  // namespace

RegStatus regQueryString(const UniqueRegKey& key, const std::wstring& valueName, std::wstring& value)
{
    std::vector<BYTE> data;
    const LSTATUS status = getValue(key, valueName, RRF_RT_REG_SZ | RRF_RT_REG_EXPAND_SZ | RRF_NOEXPAND, data);
    if (status != ERROR_SUCCESS) return status;
    std::wstring text(data.size() / sizeof(wchar_t), L'\0');
    if (!text.empty()) std::memcpy(&text[0], data.data(), text.size() * sizeof(wchar_t));
    // RegGetValueW guarantees the terminator; it is not part of the text.
    const auto end = text.find(L'\0');
    if (end != std::wstring::npos) text.resize(end);
    value = text;
    return status;
}

RegStatus regQueryBinary(const UniqueRegKey& key, const std::wstring& valueName, std::vector<std::uint8_t>& data)
{
    std::vector<BYTE> bytes;
    const LSTATUS status = getValue(key, valueName, RRF_RT_REG_BINARY, bytes);
    if (status == ERROR_SUCCESS) data.assign(bytes.begin(), bytes.end());
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
