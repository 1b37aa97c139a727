// The terminal of the Windows build: no line editor there, so the interactive mode reads plain lines.
#include <io.h>

#include <cstdio>

#include "client/Terminal.h"

namespace SEP {

bool standardInputIsTerminal()
{
    return _isatty(_fileno(stdin)) != 0;
}

bool standardErrorIsTerminal()
{
    return _isatty(_fileno(stderr)) != 0;
}

bool standardOutputIsTerminal()
{
    return _isatty(_fileno(stdout)) != 0;
}

std::unique_ptr<LineReaderI> makeLineEditor(const std::string&, CompleterFn)
{
    return nullptr;
}

}  // namespace SEP
