#pragma once
// `halvernctl watch`: the instrument's state at a glance, asked again and again and redrawn in place, and
// `halvernctl __complete`: what the shell may offer for the next word.
#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace SEP {

struct WatchOptionsT {
    std::uint32_t intervalMs = 1000;
    long count = -1;     // refreshes before it ends; negative: until interrupted
    bool plain = false;  // one block after the other instead of redrawing the screen
};

// `globalArguments` are halvernctl's own options as typed (host, port, coding, reply wait); each panel is
// one named command run with them.
int runWatch(const WatchOptionsT& watch, const std::vector<std::string>& globalArguments, std::ostream& out);

// The sub-commands and options that fit after `words` (the words typed so far after "halvernctl"), one
// per line.
void printCompletions(CLI::App& app, const std::vector<std::string>& words, std::ostream& out);

}  // namespace SEP
