#pragma once
// The "efi ..." control commands: the power button, the supply, the batteries, notifications, the
// service's life and the hardware status it reports.
#include "sim/ControlCommands.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"

namespace halvern::sim {

void addEfiControlCommands(ControlCommandsC& commands, EfiControllerModelC& model, EfiServiceSimC& service);

}  // namespace halvern::sim
