#include <dirent.h>
#include <strings.h>
#include <sys/stat.h>

#include <algorithm>
#include <cctype>

#include <fstream>
#include <sstream>

#include "platform/Registry.h"
#include "platform/Text.h"
#include "platform/UserRegistry.h"
#include "platform/sim/SimRegistry.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimSession.h"

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

std::optional<std::vector<std::uint8_t>> hexBytes(const std::string& text)
{
    std::vector<std::uint8_t> bytes;
    int high = -1;
    for (char c : text) {
        if (c == ' ' || c == ',' || c == '\n' || c == '\t') continue;
        if (!std::isxdigit(static_cast<unsigned char>(c))) return std::nullopt;
        const int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0' : std::tolower(c) - 'a' + 10;
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<std::uint8_t>(high * 16 + digit));
            high = -1;
        }
    }
    if (high >= 0) return std::nullopt;
    return bytes;
}

std::string hexText(const std::vector<std::uint8_t>& bytes)
{
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i > 0) text += ' ';
        text += kDigits[bytes[i] >> 4];
        text += kDigits[bytes[i] & 0xF];
    }
    return text;
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
    return !folder.empty() && makeDirectories(folder) && writeValueAt(folder, valueName, value);
}

bool writeValueAt(const std::string& folder, const std::string& valueName, const RegValueC& value)
{
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

void RegKeyTraits::close(Value key) noexcept
{
    delete static_cast<SimRegKeyC*>(key);
}

RegStatus regOpenKeyRead(RegHive hive, const std::wstring& subKey, UniqueRegKey& key)
{
    const std::string folder = sim::keyFolder(hive, narrow(subKey).value_or(std::string()));
    if (folder.empty() || !sim::isDirectory(folder)) return static_cast<RegStatus>(kErrorFileNotFound);
    key.reset(new SimRegKeyC{folder});
    return static_cast<RegStatus>(kErrorSuccess);
}

RegStatus regOpenKey(RegHive hive, const std::wstring& subKey, RegAccess, UniqueRegKey& key)
{
    return regOpenKeyRead(hive, subKey, key);
}

RegStatus regCreateKey(RegHive hive, const std::wstring& subKey, UniqueRegKey& key)
{
    const std::string folder = sim::keyFolder(hive, narrow(subKey).value_or(std::string()));
    if (folder.empty() || !sim::makeDirectories(folder)) {
        key.reset();
        return static_cast<RegStatus>(kErrorAccessDenied);
    }
    key.reset(new SimRegKeyC{folder});
    return static_cast<RegStatus>(kErrorSuccess);
}

RegStatus regSetString(const UniqueRegKey& key, const std::wstring& valueName, const std::wstring& value, bool)
{
    if (!key) return static_cast<RegStatus>(kErrorInvalidHandle);
    const auto text = narrow(value);
    if (!text) return static_cast<RegStatus>(kErrorInvalidParameter);
    return static_cast<RegStatus>(sim::writeValueAt(static_cast<SimRegKeyC*>(key.get())->folder,
                                                    narrow(valueName).value_or(std::string()), {kRegSz, *text})
                                      ? kErrorSuccess
                                      : kErrorAccessDenied);
}

RegStatus regSetDword(const UniqueRegKey& key, const std::wstring& valueName, std::uint32_t value)
{
    if (!key) return static_cast<RegStatus>(kErrorInvalidHandle);
    return static_cast<RegStatus>(sim::writeValueAt(static_cast<SimRegKeyC*>(key.get())->folder,
                                                    narrow(valueName).value_or(std::string()),
                                                    {kRegDword, std::to_string(value)})
                                      ? kErrorSuccess
                                      : kErrorAccessDenied);
}

RegStatus regQueryMultiString(const UniqueRegKey& key, const std::wstring& valueName, std::vector<std::wstring>& values)
{
    values.clear();
    if (!key) return static_cast<RegStatus>(kErrorInvalidHandle);
    const auto stored =
        sim::readValue(static_cast<SimRegKeyC*>(key.get())->folder, narrow(valueName).value_or(std::string()));
    if (!stored) return static_cast<RegStatus>(kErrorFileNotFound);
    if (stored->type != kRegMultiSz) return static_cast<RegStatus>(kErrorUnsupportedType);
    std::istringstream lines(stored->data);
    for (std::string line; std::getline(lines, line);)
        values.push_back(widen(line));
    return static_cast<RegStatus>(kErrorSuccess);
}

namespace {

// A key below an open one; `create` makes it and its missing parents.
RegStatus keyBelow(const UniqueRegKey& parent, const std::wstring& subKey, bool create, UniqueRegKey& key)
{
    key.reset();
    if (!parent) return static_cast<RegStatus>(kErrorInvalidHandle);
    const std::string folder = sim::resolveBelow(static_cast<SimRegKeyC*>(parent.get())->folder,
                                                 sim::splitWindowsPath(narrow(subKey).value_or(std::string())));
    if (create ? !sim::makeDirectories(folder) : !sim::isDirectory(folder))
        return static_cast<RegStatus>(create ? kErrorAccessDenied : kErrorFileNotFound);
    key.reset(new SimRegKeyC{folder});
    return static_cast<RegStatus>(kErrorSuccess);
}

}  // namespace

RegStatus regOpenKeyRead(const UniqueRegKey& parent, const std::wstring& subKey, UniqueRegKey& key)
{
    return keyBelow(parent, subKey, false, key);
}

RegStatus regEnumKey(const UniqueRegKey& key, std::uint32_t index, std::wstring& name)
{
    if (!key) return static_cast<RegStatus>(kErrorInvalidHandle);
    const std::string& folder = static_cast<SimRegKeyC*>(key.get())->folder;
    std::vector<std::string> subKeys;
    if (DIR* dir = opendir(folder.c_str())) {
        while (dirent* entry = readdir(dir)) {
            const std::string entryName = entry->d_name;
            if (entryName == "." || entryName == "..") continue;
            // The entry's type saves a look at each one; a link or an unknown type is looked at.
            const bool isKey = entry->d_type == DT_DIR || ((entry->d_type == DT_LNK || entry->d_type == DT_UNKNOWN) &&
                                                           sim::isDirectory(folder + "/" + entryName));
            if (isKey) subKeys.push_back(entryName);
        }
        closedir(dir);
    }
    // The registry keeps subkeys ordered by name, without regard to case.
    std::sort(subKeys.begin(), subKeys.end(),
              [](const std::string& a, const std::string& b) { return strcasecmp(a.c_str(), b.c_str()) < 0; });
    if (index >= subKeys.size()) return static_cast<RegStatus>(kErrorNoMoreItems);
    name = widen(subKeys[index]);
    return static_cast<RegStatus>(kErrorSuccess);
}

RegStatus regQueryString(const UniqueRegKey& key, const std::wstring& valueName, std::wstring& value)
{
    if (!key) return static_cast<RegStatus>(kErrorInvalidHandle);
    auto stored =
        sim::readValue(static_cast<SimRegKeyC*>(key.get())->folder, narrow(valueName).value_or(std::string()));
    if (!stored) return static_cast<RegStatus>(kErrorFileNotFound);
    if (stored->type != kRegSz && stored->type != kRegExpandSz) return static_cast<RegStatus>(kErrorUnsupportedType);
    value = widen(stored->data);
    return static_cast<RegStatus>(kErrorSuccess);
}

RegStatus regQueryBinary(const UniqueRegKey& key, const std::wstring& valueName, std::vector<std::uint8_t>& data)
{
    if (!key) return static_cast<RegStatus>(kErrorInvalidHandle);
    auto stored =
        sim::readValue(static_cast<SimRegKeyC*>(key.get())->folder, narrow(valueName).value_or(std::string()));
    if (!stored) return static_cast<RegStatus>(kErrorFileNotFound);
    if (stored->type != kRegBinary) return static_cast<RegStatus>(kErrorUnsupportedType);
    auto bytes = sim::hexBytes(stored->data);
    if (!bytes) return static_cast<RegStatus>(kErrorInvalidParameter);
    data = *bytes;
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

RegStatus regOpenUserHive(HandleValue userToken, UniqueRegKey& hive)
{
    hive.reset();
    if (!sim::tokenSession(userToken)) return static_cast<RegStatus>(kErrorInvalidHandle);
    const std::string base = sim::root();
    const std::string folder = base + "/registry/HKU/" + sim::loggedOnUser();
    if (base.empty() || !sim::makeDirectories(folder)) return static_cast<RegStatus>(kErrorAccessDenied);
    hive.reset(new SimRegKeyC{folder});
    return static_cast<RegStatus>(kErrorSuccess);
}

RegStatus regCreateKey(const UniqueRegKey& parent, const std::wstring& subKey, UniqueRegKey& key)
{
    return keyBelow(parent, subKey, true, key);
}

}  // namespace platform
