#pragma once
// The simulated registry's storage, for the platform layer, halvern-sim and tests. A hive is the folder
// "registry/HKCU" or "registry/HKLM" of the sim root, a key is a folder below it (names matched
// case-insensitively) and a value is a file named after the value ("@" for the default value) whose first
// line is the type ("REG_DWORD", "REG_SZ", ...) and whose remaining text is the data: a decimal or 0x number
// for REG_DWORD and REG_QWORD, the text for REG_SZ and REG_EXPAND_SZ, one string per line for
// REG_MULTI_SZ, hex bytes for REG_BINARY.
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Registry.h"

namespace platform::sim {

struct RegValueC {
    std::uint32_t type = kRegNone;
    std::string data;  // as stored, UTF-8
};

std::string hiveFolder(RegHive hive);
// The folder of a key ("SOFTWARE\Vexar\Halvern"); empty without a sim root.
std::string keyFolder(RegHive hive, const std::string& subKey);
std::string valueFileName(const std::string& valueName);

std::optional<RegValueC> readValue(const std::string& keyFolderPath, const std::string& valueName);
bool writeValue(RegHive hive, const std::string& subKey, const std::string& valueName, const RegValueC& value);
// The same in a key folder that exists.
bool writeValueAt(const std::string& keyFolderPath, const std::string& valueName, const RegValueC& value);

// REG_BINARY data as stored: pairs of hex digits, blanks and commas between them ignored.
std::optional<std::vector<std::uint8_t>> hexBytes(const std::string& text);
std::string hexText(const std::vector<std::uint8_t>& bytes);

const char* typeName(std::uint32_t type);
std::optional<std::uint32_t> typeFromName(const std::string& name);

}  // namespace platform::sim
