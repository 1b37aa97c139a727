#pragma once
// What halvernctl makes of a command line before CLI11 reads it: a verb it does not know is named with the
// nearest ones, `help [VERB]` becomes `VERB --help`, and a group typed alone runs its read verb
// (`time` is `time get`).
#include <string>
#include <vector>

#include <CLI/CLI.hpp>

namespace SEP {

struct CommandLineT {
    std::vector<std::string> words;  // the arguments after the program's name, rewritten
    std::string unknown;             // a verb that names no command, when there is one
    std::vector<std::string> nearest;
    bool noVerb = false;  // only options, or nothing at all
    bool json = false;    // --json among halvernctl's own options
    std::string verbs;    // the command's words as typed ("wlan set")
};

CommandLineT readCommandLine(CLI::App& app, const std::vector<std::string>& words);

// The verbs of `candidates` closest to `typed` in edit distance (a swapped pair counts once), best first;
// none when every one is too far to be what was meant.
std::vector<std::string> nearestWords(const std::string& typed, const std::vector<std::string>& candidates);

// Whether `word` is an option that takes a value at `level` or one of its parents.
bool optionTakesValue(CLI::App* level, const std::string& word);
// The sub-command of `level` named `word` (or by an alias); nullptr when none is.
CLI::App* subcommandNamed(CLI::App* level, const std::string& word);

}  // namespace SEP
