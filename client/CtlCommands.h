#pragma once
// halvernctl's named sub-commands, one for each command of the instrument's command table, in three groups:
// the power controller, the system, the network.
#include <CLI/CLI.hpp>
#include <functional>
#include <ostream>
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

// How the outcome of a command is printed: text or JSON, all of it or one value, the password or not.
struct CtlOutputT {
    bool json = false;
    std::string value;  // print only this value ("--value KEY")
    bool raw = false;   // the number of a named value
    bool showSecrets = false;
};

// Runs the chosen command on `sep` and prints its outcome; errors go to `err` with their hint (and as JSON
// to `out` with --json). Returns the exit code.
int runChosen(const CtlChoiceT& chosen, SepExchangeC& sep, const CtlOutputT& output, std::ostream& out,
              std::ostream& err);

void addPowerCommands(CLI::App& app, CtlChoiceT& chosen);
void addSystemCommands(CLI::App& app, CtlChoiceT& chosen);
void addNetworkCommands(CLI::App& app, CtlChoiceT& chosen);
void addStatusCommands(CLI::App& app, CtlChoiceT& chosen);

}  // namespace SEP
