#pragma once
// The computer module's Ethernet adapter towards the sensor board as the device tool stand-in leaves it,
// for the board model to follow: <root>/sim/devices/mora-ethernet holds "state=Enabled" or
// "state=Disabled" and "restarts=N", the number of times a disable was followed by an enable.
#include <cstdio>
#include <fstream>
#include <string>

namespace halvern::sim {

// The adapter's device instance, without the "@" the device tool takes in front of it.
constexpr const char* kMoraAdapterInstance = "PCI\\VEN_8086&DEV_1533&SUBSYS_00000000&REV_03\\4&213D5DE2&0&00E1";

struct MoraAdapterRecordT {
    bool enabled = true;
    unsigned restarts = 0;
};

inline std::string moraAdapterRecordPath(const std::string& root)
{
    return root + "/sim/devices/mora-ethernet";
}

inline MoraAdapterRecordT readMoraAdapterRecord(const std::string& root)
{
    MoraAdapterRecordT record;
    std::ifstream in(moraAdapterRecordPath(root));
    for (std::string line; std::getline(in, line);) {
        if (line == "state=Disabled") record.enabled = false;
        if (line.rfind("restarts=", 0) == 0) record.restarts = static_cast<unsigned>(std::stoul("0" + line.substr(9)));
    }
    return record;
}

// Replaces the record in one step, so that the board model never reads half of it.
inline bool writeMoraAdapterRecord(const std::string& root, const MoraAdapterRecordT& record)
{
    const std::string path = moraAdapterRecordPath(root);
    const std::string partial = path + ".new";
    {
        std::ofstream out(partial, std::ios::trunc);
        out << "state=" << (record.enabled ? "Enabled" : "Disabled") << "\nrestarts=" << record.restarts << "\n";
        if (!out) return false;
    }
    return std::rename(partial.c_str(), path.c_str()) == 0;
}

}  // namespace halvern::sim
