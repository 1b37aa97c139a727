#pragma once
// `halvernctl watch`: the instrument's status asked again and again, and
// `halvernctl __complete`: what the shell may offer for the next word.
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

#include "client/CtlCommands.h"

namespace SEP {

struct WatchOptionsT {
    std::uint32_t intervalMs = 1000;
    long count = -1;     // refreshes before it ends; negative: until interrupted
    bool plain = false;  // one block after the other instead of redrawing the screen
};

// `status` again and again on `sep`: redrawn in place on a terminal (`terminal`), else one block (or with
// --json one line) per refresh.
int runWatch(const WatchOptionsT& watch, SepExchangeC& sep, const CtlOutputT& output, bool terminal, std::ostream& out,
             std::ostream& err);

// The sub-commands and options that fit after `words` (the words typed so far after "halvernctl"), one
// per line.
void printCompletions(CLI::App& app, const std::vector<std::string>& words, std::ostream& out);

}  // namespace SEP
