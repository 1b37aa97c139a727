#pragma once
// The owner of a POSIX descriptor (sockets, pipes, lock files, pseudo-terminals, wake-ups) for the simulation
// platform and the simulated instrument.
#include <fcntl.h>
#include <unistd.h>

#include "platform/Owner.h"

namespace platform::sim {

struct FdTraits {
    using Value = int;
    static Value invalid() noexcept { return -1; }
    static void close(Value fd) noexcept { ::close(fd); }
};
using UniqueFd = UniqueOwner<FdTraits>;

// pipe2(O_CLOEXEC) into two owners; false with errno set when the pipe cannot be made.
inline bool makePipe(UniqueFd& readEnd, UniqueFd& writeEnd)
{
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) return false;
    readEnd.reset(ends[0]);
    writeEnd.reset(ends[1]);
    return true;
}

}  // namespace platform::sim
