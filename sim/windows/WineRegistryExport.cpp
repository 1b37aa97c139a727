#include "sim/windows/WineRegistryExport.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include "platform/sim/SimRegistry.h"

namespace halvern::sim {

namespace {

namespace fs = std::filesystem;

struct ExportedKeyT {
    const char* hive;  // the sim root's folder name
    const char* windowsHive;
    const char* key;
};

const ExportedKeyT kExportedKeys[] = {
    {"HKCU", "HKEY_CURRENT_USER", "SOFTWARE/Vexar"},
    {"HKLM", "HKEY_LOCAL_MACHINE", "SOFTWARE/Vexar"},
    {"HKLM", "HKEY_LOCAL_MACHINE", "SYSTEM/CurrentControlSet/Control/Class/{4D36E972-E325-11CE-BFC1-08002BE10318}"},
    // Wine keeps the zone of the machine it runs on and leaves most of this key empty.
    {"HKLM", "HKEY_LOCAL_MACHINE", "SYSTEM/CurrentControlSet/Control/TimeZoneInformation"},
};

std::string regQuoted(const std::string& text)
{
    std::string out = "\"";
    for (char c : text) {
        if (c == '\\' || c == '"') out.push_back('\\');
        out.push_back(c);
    }
    return out + "\"";
}

std::string hexList(const std::string& prefix, const std::vector<std::uint8_t>& bytes)
{
    std::string out = prefix;
    char pair[4];
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        std::snprintf(pair, sizeof pair, i == 0 ? "%02x" : ",%02x", bytes[i]);
        out += pair;
    }
    return out;
}

std::uint64_t number(const std::string& text)
{
    return std::strtoull(text.c_str(), nullptr, 0);
}

// The data of a value as REGEDIT4 writes it; empty for a type it cannot carry.
std::string regData(const platform::sim::RegValueC& value)
{
    std::string data = value.data;
    while (!data.empty() && data.back() == '\n')
        data.pop_back();
    switch (value.type) {
    case platform::kRegSz:
        return regQuoted(data);
    case platform::kRegDword: {
        char text[16];
        std::snprintf(text, sizeof text, "dword:%08x", static_cast<unsigned>(number(data)));
        return text;
    }
    case platform::kRegQword: {
        std::vector<std::uint8_t> bytes;
        const std::uint64_t n = number(data);
        for (int i = 0; i < 8; ++i)
            bytes.push_back(static_cast<std::uint8_t>(n >> (8 * i)));
        return hexList("hex(b):", bytes);
    }
    case platform::kRegExpandSz:
    case platform::kRegMultiSz: {
        std::vector<std::uint8_t> bytes(data.begin(), data.end());
        if (value.type == platform::kRegMultiSz) {
            for (auto& byte : bytes)
                if (byte == '\n') byte = 0;
            bytes.push_back(0);
        }
        bytes.push_back(0);
        return hexList(value.type == platform::kRegMultiSz ? "hex(7):" : "hex(2):", bytes);
    }
    case platform::kRegBinary:
        return hexList("hex:", platform::sim::hexBytes(data).value_or(std::vector<std::uint8_t>{}));
    default:
        return {};
    }
}

void exportKey(std::ostringstream& out, const fs::path& folder, const std::string& windowsKey,
               std::set<std::string>* names)
{
    std::error_code error;
    if (!fs::is_directory(folder, error)) return;
    out << "[" << windowsKey << "]\n";
    std::vector<fs::path> subKeys;
    for (const auto& entry : fs::directory_iterator(folder, error)) {
        if (entry.is_directory()) {
            subKeys.push_back(entry.path());
            continue;
        }
        const std::string name = entry.path().filename().string();
        const auto value = platform::sim::readValue(folder.string(), name);
        if (!value) continue;
        const std::string data = regData(*value);
        if (data.empty()) continue;
        if (names != nullptr) names->insert(name);
        out << (name == "@" ? "@" : regQuoted(name)) << "=" << data << "\n";
    }
    out << "\n";
    for (const auto& subKey : subKeys)
        exportKey(out, subKey, windowsKey + "\\" + subKey.filename().string(), names);
}

}  // namespace

std::string wineRegistryText(const std::string& root)
{
    std::ostringstream out;
    out << "REGEDIT4\n\n";
    std::set<std::string> machineValues;
    for (const auto& key : kExportedKeys) {
        std::string windowsKey = std::string(key.windowsHive) + "\\" + key.key;
        for (auto& c : windowsKey)
            if (c == '/') c = '\\';
        const bool machineSettings = std::string(key.hive) == "HKLM" && std::string(key.key) == "SOFTWARE/Vexar";
        exportKey(out, fs::path(root) / "registry" / key.hive / key.key, windowsKey,
                  machineSettings ? &machineValues : nullptr);
    }
    // The sensor board is the simulated one on this machine, whichever hive Halvern reads it from.
    out << "[HKEY_LOCAL_MACHINE\\SOFTWARE\\Vexar\\Halvern]\n";
    out << "\"SensorBoardAddress\"=\"127.0.0.1\"\n";
    const auto telnetPort =
        platform::sim::readValue(root + "/registry/HKCU/SOFTWARE/Vexar/Halvern", "SensorBoardTelnetPort");
    if (telnetPort && !machineValues.count("SensorBoardTelnetPort"))
        out << "\"SensorBoardTelnetPort\"=" << regData(*telnetPort) << "\n";
    // The SEP ports listen on loopback in a Wine run; the ranges keep to it even if they did not, unless the
    // instrument has its own.
    const bool userRanges =
        platform::sim::readValue(root + "/registry/HKCU/SOFTWARE/Vexar/Halvern", "SepAllowedAddressRanges").has_value();
    if (!machineValues.count("SepAllowedAddressRanges") && !userRanges)
        out << "\"SepAllowedAddressRanges\"=" << regData({platform::kRegMultiSz, "127.0.0.0/8"}) << "\n";
    out << "\n";
    // The instrument's name, not the name of the machine Wine runs on (a default name keeps the frontend
    // from starting).
    std::string name = "ZENTOR-1000001";
    std::ifstream(root + "/sim/computer/name") >> name;
    for (const char* key : {"ComputerName", "ActiveComputerName"}) {
        out << "[HKEY_LOCAL_MACHINE\\System\\CurrentControlSet\\Control\\ComputerName\\" << key << "]\n";
        out << "\"ComputerName\"=" << regQuoted(name) << "\n\n";
    }
    // Wine has none of the instrument's PCI components, so the hardware check fails; an instrument in
    // production mode would end its start there to show the updater's error screen. A Wine run is a
    // customer's instrument, whose start goes on after the failure is logged.
    out << "[HKEY_LOCAL_MACHINE\\SYSTEM\\ControlSet001\\Services\\HalvernHelper\\Status]\n";
    out << "\"FilterState\"=dword:00000001\n\n";
    return out.str();
}

}  // namespace halvern::sim
