#pragma once
// The I2C devices' control commands: "rtc vlf" (the clock loses its supply and its data), "rtc get",
// "i2c break|fix ioexpander|rtc|eeprom" (transfers fail / work again) and "revision N" (the hardware
// revision on the expander's input bits 0..2).
#include "sim/ControlCommands.h"
#include "sim/i2c/I2cDeviceServer.h"

namespace halvern::sim {

void addI2cControlCommands(ControlCommandsC& commands, I2cInstrumentDevicesS& devices);

}  // namespace halvern::sim
