#include "sim/board/HmiControlCommands.h"

#include <cstdlib>

namespace halvern::sim {

namespace {

const char* const kHmiUsage = "ERROR usage: hmi status | touch HEX4 | voltage HEX4 | silent on|off";
const char* const kMutexUsage = "ERROR usage: mutex hold|release touch|voltage";

bool parseHex4(const std::string& text, std::uint16_t& value)
{
    if (text.size() != 4 || text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) return false;
    value = static_cast<std::uint16_t>(std::strtoul(text.c_str(), nullptr, 16));
    return true;
}

}  // namespace

void addHmiControlCommands(ControlCommandsC& commands, HmiBoardModelC& hmi, CalibrationMutexesC& mutexes)
{
    commands.add("hmi", [&hmi](const std::vector<std::string>& args) -> std::string {
        const std::size_t n = args.size();
        if (n == 1 && args[0] == "status") return "OK " + hmi.describe();
        std::uint16_t value = 0;
        if (n == 2 && (args[0] == "touch" || args[0] == "voltage") && parseHex4(args[1], value)) {
            hmi.setRegister(args[0] == "touch" ? kHmiTouchRegister : kHmiVoltageRegister, value);
            return "OK " + hmi.describe();
        }
        if (n == 2 && args[0] == "silent" && (args[1] == "on" || args[1] == "off")) {
            hmi.setSilent(args[1] == "on");
            return "OK " + hmi.describe();
        }
        return kHmiUsage;
    });
    commands.add("mutex", [&mutexes](const std::vector<std::string>& args) -> std::string {
        if (args.size() != 2 || CalibrationMutexesC::mutexName(args[1]).empty()) return kMutexUsage;
        if (args[0] == "hold")
            return mutexes.hold(args[1]) ? "OK holding the " + args[1] + " calibration's mutex"
                                         : "ERROR cannot create the " + args[1] + " calibration's mutex";
        if (args[0] == "release" && mutexes.release(args[1]))
            return "OK released the " + args[1] + " calibration's mutex";
        return kMutexUsage;
    });
}

}  // namespace halvern::sim
