#pragma once
// halvernctl's interactive mode: one command a line, with editing, history and completion where the
// terminal allows, and the instrument's events printed as they arrive between the commands.
#include <cstdint>
#include <functional>
#include <istream>
#include <ostream>
#include <string>
#include <vector>

namespace SEP {

struct ShellSetupT {
    std::string host;
    std::uint16_t port = 0;
    std::vector<std::string> globalArguments;  // halvernctl's own options, put before every line's words
    bool json = false;
};

// Runs lines until "exit", "quit" or the end of input; each line is run as halvernctl with its words.
// `in` and `out` are the terminal's line editor when `editor` is set, else read and written plainly.
int runShell(const ShellSetupT& setup, bool editor, std::istream& in, std::ostream& out, std::ostream& err);

// What the interactive mode offers to complete the word under the cursor, given the line up to it.
std::vector<std::string> shellCompletions(const ShellSetupT& setup, const std::string& lineBeforeCursor);

// A line as a shell splits it: blanks separate words, quotes ('...' "...") keep blanks in a word, a
// backslash takes the next character as it is.
std::vector<std::string> splitWords(const std::string& line);

}  // namespace SEP
