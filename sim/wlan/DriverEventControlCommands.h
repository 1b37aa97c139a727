#pragma once
// halvern-sim's control commands for what the WLAN driver reports to Windows, delivered to Halvern's
// subscription:
//   wlan radar                    radar on the channel the access point uses (RADAR_DETECTED; the reply
//                                 names the channel from the driver's "ApChanNum")
//   wlan ap stopped               the driver stopped the access point (AP_STOPPED)
//   wlan cac start MS             a channel availability check of MS milliseconds begins (START_OF_CAC)
//   wlan cac done                 the check ended without radar (CAC_DONE)
//   wlan indication CODE [PORT]   any other event code, as a newer driver might send
//   wlan media disconnect|connect the access point's link went down or came up
// A radar that makes the driver leave the channel is "wlan radar", "wlan ap stopped", "wlan media
// disconnect". Each answers how many subscribers the indication reached and fails when none did.
#include "sim/ControlCommands.h"
#include "sim/wlan/NdisIndicationServerC.h"

namespace halvern::sim {

// `server` must outlive `commands`' use.
void addDriverEventControlCommands(ControlCommandsC& commands, NdisIndicationServerC& server);

}  // namespace halvern::sim
