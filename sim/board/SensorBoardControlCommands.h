#pragma once
#include "sim/ControlCommands.h"
#include "sim/board/SensorBoardModelC.h"

namespace halvern::sim {

// "board status|stop|start|boot-delay MS|uboot-only on|off|eth unplug|plug|kmsg".
void addSensorBoardControlCommands(ControlCommandsC& commands, SensorBoardModelC& board);

}  // namespace halvern::sim
