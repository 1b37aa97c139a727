#pragma once
// The registry with Windows semantics. On the simulation platform each hive is a folder in the sim root
// ("registry/HKCU", "registry/HKLM"); a key is a folder and a value is a file holding its type and data.
#include <cstdint>
#include <string>
#include <vector>

#include "platform/Owner.h"
#include "platform/WinError.h"

namespace platform {

enum class RegHive { CurrentUser, LocalMachine };

constexpr std::uint32_t kRegNone = 0;
constexpr std::uint32_t kRegSz = 1;
constexpr std::uint32_t kRegExpandSz = 2;
constexpr std::uint32_t kRegBinary = 3;
constexpr std::uint32_t kRegDword = 4;
constexpr std::uint32_t kRegMultiSz = 7;
constexpr std::uint32_t kRegQword = 11;

// RegCloseKey.
struct RegKeyTraits {
    using Value = void*;
    static Value invalid() noexcept { return nullptr; }
    static void close(Value key) noexcept;
};
using UniqueRegKey = UniqueOwner<RegKeyTraits>;

// RegOpenKeyExW with KEY_READ; answers the Windows error number (0 on success).
RegStatus regOpenKeyRead(RegHive hive, const std::wstring& subKey, UniqueRegKey& key);

// RegOpenKeyExW with the access a caller needs: KEY_QUERY_VALUE, KEY_SET_VALUE or KEY_ALL_ACCESS.
enum class RegAccess { Query, SetValue, All };
RegStatus regOpenKey(RegHive hive, const std::wstring& subKey, RegAccess access, UniqueRegKey& key);
// RegCreateKeyExW with KEY_ALL_ACCESS: opens the key, creating it and its missing parents.
RegStatus regCreateKey(RegHive hive, const std::wstring& subKey, UniqueRegKey& key);

// RegOpenKeyExW with KEY_READ below a key that is open already.
RegStatus regOpenKeyRead(const UniqueRegKey& parent, const std::wstring& subKey, UniqueRegKey& key);

// RegEnumKeyExW: the name of subkey `index`; kErrorNoMoreItems past the last one.
RegStatus regEnumKey(const UniqueRegKey& key, std::uint32_t index, std::wstring& name);

// The names of a key's subkeys in the registry's order; none when the key cannot be opened.
inline std::vector<std::wstring> regSubKeyNames(RegHive hive, const std::wstring& subKey)
{
    std::vector<std::wstring> names;
    UniqueRegKey key;
    if (regOpenKeyRead(hive, subKey, key) != 0) return names;
    std::wstring name;
    for (std::uint32_t index = 0; regEnumKey(key, index, name) == 0; ++index)
        names.push_back(name);
    return names;
}

// RegGetValueW restricted to REG_SZ (and REG_EXPAND_SZ, not expanded) / to REG_BINARY: another type answers
// kErrorUnsupportedType, a missing value kErrorFileNotFound.
RegStatus regQueryString(const UniqueRegKey& key, const std::wstring& valueName, std::wstring& value);
RegStatus regQueryBinary(const UniqueRegKey& key, const std::wstring& valueName, std::vector<std::uint8_t>& data);

// RegQueryValueExW of a REG_MULTI_SZ: its strings in order (another type answers kErrorUnsupportedType).
RegStatus regQueryMultiString(const UniqueRegKey& key, const std::wstring& valueName,
                              std::vector<std::wstring>& values);

// RegSetValueExW of a REG_SZ. `withTerminator`: the stored size counts the NUL, as most writers do; without,
// the value holds the characters only (readers that add their own NUL take both).
RegStatus regSetString(const UniqueRegKey& key, const std::wstring& valueName, const std::wstring& value,
                       bool withTerminator);

// RegSetValueExW of a REG_DWORD.
RegStatus regSetDword(const UniqueRegKey& key, const std::wstring& valueName, std::uint32_t value);

// RegQueryValueExW into a 4-byte buffer: `type` receives the stored type, a longer value answers
// kErrorMoreData, a missing one kErrorFileNotFound.
RegStatus regQueryDword(const UniqueRegKey& key, const std::wstring& valueName, std::uint32_t& value,
                        std::uint32_t& type);

}  // namespace platform
