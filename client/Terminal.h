#pragma once
// The terminal halvernctl talks to: whether a person is at it, and reading a line with editing, history
// and completion where the platform has a line editor.
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace SEP {

bool standardInputIsTerminal();
bool standardOutputIsTerminal();
bool standardErrorIsTerminal();

// What may complete the word being typed, given the line up to the cursor.
using CompleterFn = std::function<std::vector<std::string>(const std::string& lineBeforeCursor)>;

// Lines in, text out; printAbove() may be called from any thread.
class LineReaderI {
public:
    virtual ~LineReaderI() = default;
    // False at the end of input (Ctrl-D).
    virtual bool readLine(const std::string& prompt, std::string& line) = 0;
    // Output of the reading thread.
    virtual void print(const std::string& text) = 0;
    // Output of another thread, shown without tearing the line being typed.
    virtual void printAbove(const std::string& text) = 0;
};

// The terminal's line editor on standard input and output, with history kept in `historyFile` (empty for
// none); nullptr where the platform has none.
std::unique_ptr<LineReaderI> makeLineEditor(const std::string& historyFile, CompleterFn completer);

}  // namespace SEP
