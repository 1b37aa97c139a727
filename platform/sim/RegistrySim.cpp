#include <sys/stat.h>

#include <fstream>
#include <sstream>

#include "platform/Registry.h"
#include "platform/Text.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"

namespace platform {

namespace sim {

namespace {
const struct {
    std::uint32_t type;
    const char* name;
} kTypeNames[] = {{kRegNone, "REG_NONE"},     {kRegSz, "REG_SZ"},       {kRegExpandSz, "REG_EXPAND_SZ"},
                  {kRegBinary, "REG_BINARY"}, {kRegDword, "REG_DWORD"}, {kRegMultiSz, "REG_MULTI_SZ"},
                  {kRegQword, "REG_QWORD"}};

bool isDirectory(const std::string& path)
{
    struct stat st {};
    return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}
}  // namespace

const char* typeName(std::uint32_t type)
{
    for (const auto& entry : kTypeNames) {
        if (entry.type == type) return entry.name;
    }
    return "REG_NONE";
}

std::optional<std::uint32_t> typeFromName(const std::string& name)
{
    for (const auto& entry : kTypeNames) {
        if (name == entry.name) return entry.type;
    }
    return std::nullopt;
}

std::string hiveFolder(RegHive hive)
{
    const std::string base = root();
    if (base.empty()) return {};
    return base + "/registry/" + (hive == RegHive::CurrentUser ? "HKCU" : "HKLM");
}

std::string keyFolder(RegHive hive, const std::string& subKey)
{
    const std::string hivePath = hiveFolder(hive);
    if (hivePath.empty()) return {};
    return resolveBelow(hivePath, splitWindowsPath(subKey));
}

std::string valueFileName(const std::string& valueName)
{
    return valueName.empty() ? "@" : valueName;
}

std::optional<RegValueC> readValue(const std::string& keyFolderPath, const std::string& valueName)
{
    const std::string path = resolveBelow(keyFolderPath, {valueFileName(valueName)});
    std::ifstream in(path);
    if (!in) return std::nullopt;
    std::string typeLine;
    std::getline(in, typeLine);
    auto type = typeFromName(typeLine);
    if (!type) return std::nullopt;
    std::ostringstream data;
    data << in.rdbuf();
    RegValueC value{*type, data.str()};
    // One trailing line feed belongs to the file, not to the data.
    if (!value.data.empty() && value.data.back() == '\n') value.data.pop_back();
    return value;
}

bool writeValue(RegHive hive, const std::string& subKey, const std::string& valueName, const RegValueC& value)
{
    const std::string folder = keyFolder(hive, subKey);
    if (folder.empty() || !makeDirectories(folder)) return false;
    const std::string path = resolveBelow(folder, {valueFileName(valueName)});
    const std::string temp = path + ".tmp";
    {
        std::ofstream out(temp, std::ios::trunc);
        out << typeName(value.type) << '\n' << value.data << '\n';
        if (!out) return false;
    }
    return std::rename(temp.c_str(), path.c_str()) == 0;
}

}  // namespace sim

namespace {
struct SimRegKeyC {
    std::string folder;
};
}  // namespace

void UniqueRegKey::reset(void* key)
{
    delete static_cast<SimRegKeyC*>(m_key);
    m_key = key;
}

RegStatus regOpenKeyRead(RegHive hive, const std::wstring& subKey, UniqueRegKey& key)
{
    const std::string folder = sim::keyFolder(hive, narrow(subKey).value_or(std::string()));
    if (folder.empty() || !sim::isDirectory(folder)) return static_cast<RegStatus>(kErrorFileNotFound);
    key.reset(new SimRegKeyC{folder});
    return static_cast<RegStatus>(kErrorSuccess);
}

RegStatus regQueryDword(const UniqueRegKey& key, const std::wstring& valueName, std::uint32_t& value,
                        std::uint32_t& type)
{
    if (!key) return static_cast<RegStatus>(kErrorInvalidHandle);
    auto stored =
        sim::readValue(static_cast<SimRegKeyC*>(key.get())->folder, narrow(valueName).value_or(std::string()));
    if (!stored) return static_cast<RegStatus>(kErrorFileNotFound);
    type = stored->type;
    if (stored->type == kRegDword) {
        try {
            value = static_cast<std::uint32_t>(std::stoul(stored->data, nullptr, 0));
        } catch (...) {
            value = 0;
        }
        return static_cast<RegStatus>(kErrorSuccess);
    }
    // Any other type goes through the same 4-byte buffer: longer data does not fit.
    if (stored->data.size() > sizeof value) return static_cast<RegStatus>(kErrorMoreData);
    value = 0;
    for (std::size_t i = 0; i < stored->data.size(); ++i) {
        value |= static_cast<std::uint32_t>(static_cast<unsigned char>(stored->data[i])) << (8 * i);
    }
    return static_cast<RegStatus>(kErrorSuccess);
}

}  // namespace platform
