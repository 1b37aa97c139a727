#include "sim/i2c/I2cControlCommands.h"

#include <string>

namespace halvern::sim {

void addI2cControlCommands(ControlCommandsC& commands, I2cInstrumentDevicesS& devices)
{
    commands.add("rtc", [&devices](const std::vector<std::string>& arguments) -> std::string {
        if (arguments.size() == 1 && arguments[0] == "vlf") {
            devices.rtc.loseData();
            return "OK";
        }
        if (arguments.size() == 1 && arguments[0] == "get") return "OK " + std::to_string(devices.rtc.unixTime());
        return "ERROR usage: rtc vlf|get";
    });
    commands.add("i2c", [&devices](const std::vector<std::string>& arguments) -> std::string {
        if (arguments.size() != 2 || (arguments[0] != "break" && arguments[0] != "fix"))
            return "ERROR usage: i2c break|fix ioexpander|rtc|eeprom";
        I2cRegisterDeviceC* device = nullptr;
        if (arguments[1] == "ioexpander") device = &devices.ioExpander;
        if (arguments[1] == "rtc") device = &devices.rtc;
        if (arguments[1] == "eeprom") device = &devices.eeprom;
        if (device == nullptr) return "ERROR unknown device " + arguments[1];
        device->setBroken(arguments[0] == "break");
        return "OK";
    });
    commands.add("revision", [&devices](const std::vector<std::string>& arguments) -> std::string {
        if (arguments.size() != 1 || arguments[0].size() != 1 || arguments[0][0] < '0' || arguments[0][0] > '7')
            return "ERROR usage: revision 0..7";
        devices.ioExpander.setRevision(static_cast<unsigned>(arguments[0][0] - '0'));
        return "OK";
    });
}

}  // namespace halvern::sim
