#pragma once
#include "sim/ControlCommands.h"
#include "sim/board/CalibrationMutexesC.h"
#include "sim/board/HmiBoardModelC.h"

namespace halvern::sim {

// "hmi status|touch HEX4|voltage HEX4|silent on|off" and "mutex hold|release touch|voltage".
void addHmiControlCommands(ControlCommandsC& commands, HmiBoardModelC& hmi, CalibrationMutexesC& mutexes);

}  // namespace halvern::sim
