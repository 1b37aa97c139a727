#pragma once
// Control commands for the radio environment the simulated WLAN module hears in a scan
// (platform/sim/WlanRadioEnvironment.h describes the file they edit):
//   "wlan env load FILE"                          replace the environment with a recorded one
//   "wlan env clear"                              no network around
//   "wlan network add FREQ NAME [OPTION ...]"     one more network (ht20, ht40+, ht40-, offset=N, rssi=-DBM)
//   "wlan network remove NAME"                    every network of that name goes
//   "wlan networks"                               the environment, "; " between networks
//   "wlan scan delay MS|never"                    how long a scan takes (never: it never completes)
#include <string>

#include "sim/ControlCommands.h"

namespace halvern::sim {

void addRadioControlCommands(ControlCommandsC& commands);

// A new instrument is not alone on the air: without an environment of its own the sim root `root` gets an
// office floor (a peer instrument and foreign networks on both bands). False with `error` set.
bool provideDefaultRadioEnvironment(const std::string& root, std::string& error);

}  // namespace halvern::sim
