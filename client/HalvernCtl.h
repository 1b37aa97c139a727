#pragma once
// The halvernctl tool as a function: the command line in, the printed reply or events out.
//
//   halvernctl [--host H] [--port P] [--ascii] [--json] [--timeout MS] COMMAND [ARGUMENTS]   a named command
//   halvernctl [...] send ID|NAME [TYPE:VALUE ...] [--reply TYPE ...]                        any command by id
//   halvernctl [...] events [--fields TYPE ...] [--count N]                                  pushed events
//   halvernctl [...] watch [--interval MS] [--count N] [--plain]                             state at a glance
//   halvernctl __complete WORDS...                                                           shell completion
#include <ostream>

namespace SEP {

enum CtlExitCodeE : int {
    CTL_EXIT_DONE = 0,
    CTL_EXIT_BAD_ARGUMENTS = 1,  // refused before anything was sent
    CTL_EXIT_NO_CONNECTION = 2,
    CTL_EXIT_NO_REPLY = 3,     // no reply in time, connection closed, or the server turned the client away
    CTL_EXIT_SHORT_REPLY = 4,  // the reply ends before its fields
    CTL_EXIT_ERROR_REPLY = 5,  // the server answered with an error; its text is on stderr
};

int runHalvernCtl(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace SEP
