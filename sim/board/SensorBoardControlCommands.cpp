#include "sim/board/SensorBoardControlCommands.h"

#include <cstdlib>

namespace halvern::sim {

namespace {

const char* const kUsage =
    "ERROR usage: board status | stop | start | boot-delay MS | uboot-only on|off | eth unplug|plug | kmsg";

bool parseMilliseconds(const std::string& text, int& value)
{
    if (text.empty() || text.size() > 7 || text.find_first_not_of("0123456789") != std::string::npos) return false;
    value = std::atoi(text.c_str());
    return true;
}

}  // namespace

void addSensorBoardControlCommands(ControlCommandsC& commands, SensorBoardModelC& board)
{
    commands.add("board", [&board](const std::vector<std::string>& args) -> std::string {
        const std::size_t n = args.size();
        if (n == 0) return kUsage;
        const std::string& what = args[0];
        if (what == "status" && n == 1) return "OK " + board.describe();
        if (what == "stop" && n == 1) {
            board.powerOff();
            return "OK board stopped";
        }
        if (what == "start" && n == 1) {
            if (board.stage() != SensorBoardModelC::StageE::Off) return "ERROR the board is running; stop it first";
            board.powerOn();
            return "OK board booting";
        }
        int milliseconds = 0;
        if (what == "boot-delay" && n == 2 && parseMilliseconds(args[1], milliseconds)) {
            board.setBootDelay(milliseconds);
            return "OK boot delay " + args[1] + " ms from the next start";
        }
        if (what == "uboot-only" && n == 2 && (args[1] == "on" || args[1] == "off")) {
            board.setUBootOnly(args[1] == "on");
            return "OK uboot-only " + args[1] + " from the next start";
        }
        if (what == "eth" && n == 2 && (args[1] == "unplug" || args[1] == "plug")) {
            board.setEthernetPlugged(args[1] == "plug");
            return "OK ethernet " + args[1] + "ged";
        }
        if (what == "kmsg" && n == 1) {
            std::string lines;
            for (const auto& line : board.kernelLog())
                lines += (lines.empty() ? "" : " | ") + line;
            return "OK " + lines;
        }
        return kUsage;
    });
}

}  // namespace halvern::sim
