#pragma once
// halvernctl's named sub-commands, one for each command of the instrument's command table, in three groups:
// the power controller, the system, the network.
#include <CLI/CLI.hpp>
#include <functional>
#include <string>

#include "client/ReportC.h"
#include "client/SepExchangeC.h"

namespace SEP {

// What the chosen sub-command does once its command line has been accepted: its exchanges with Halvern,
// with what came back put into `report`.
using CtlActionFn = std::function<ExchangeResultE(SepExchangeC& sep, ReportC& report)>;

struct CtlChoiceT {
    std::string name;  // as typed: "battery", "wlan set"
    CtlActionFn action;
};

void addPowerCommands(CLI::App& app, CtlChoiceT& chosen);
void addSystemCommands(CLI::App& app, CtlChoiceT& chosen);
void addNetworkCommands(CLI::App& app, CtlChoiceT& chosen);

}  // namespace SEP
