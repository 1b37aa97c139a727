#pragma once
// The halvernctl tool as a function: the command line in, the printed reply or events out.
//
//   halvernctl [--host H] [--port P] [--ascii] [--json] [--timeout MS] send ID|NAME [TYPE:VALUE ...] [--reply TYPE ...]
//   halvernctl [--host H] [--port P] [--json] events [--fields TYPE ...] [--count N]
//
// Exit codes: 0 done, 1 bad arguments, 2 no connection, 3 no reply (or refused), 4 reply shorter than asked.
#include <ostream>

namespace SEP {

int runHalvernCtl(int argc, const char* const* argv, std::ostream& out, std::ostream& err);

}  // namespace SEP
