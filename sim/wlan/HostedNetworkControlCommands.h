#pragma once
// Control commands for the simulated instrument's WLAN access point and its driver's channels:
//
//   wlan ap show                   the hosted network: state, SSID, key, starts so far, failures to come
//   wlan ap fail N REASON          the next N starts fail with the service's reason (12: interface unavailable)
//   wlan ap unavailable|available  the service offers the hosted network or not
//   wlan channels show             the driver's channels as CHANNEL/WIDTHFLAGS[/dfs][/marked]
//   wlan channels set SPEC...      the driver offers these channels, each CHANNEL[/WIDTHFLAGS][/dfs][/marked]
//   wlan channels mark|unmark CH   a channel marked (as one left after radar) or not
#include "sim/ControlCommands.h"

namespace halvern::sim {

void addHostedNetworkControlCommands(ControlCommandsC& commands);

}  // namespace halvern::sim
