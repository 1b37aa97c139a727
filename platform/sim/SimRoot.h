#pragma once
// The sim root: the folder in which the simulated instrument keeps what Windows keeps on the instrument
// (drives, registry, named objects, pipes, devices). Host-only; logic code never sees it.
#include <functional>
#include <string>
#include <vector>

#include "platform/sim/UniqueFd.h"

namespace platform::sim {

// $HALVERN_ROOT, or the root set by setRoot(); empty when neither is set.
std::string root();
// Used by tests and tools that prepare a root in-process; overrides the environment.
void setRoot(const std::string& rootPath);

// Resolves a Windows path ("D:\logs\Halvern.log", "d:/LOGS/halvern.log") into the sim root. Each existing
// component is matched case-insensitively, as Windows does; missing components keep the spelling given.
// The drive letter becomes an upper-case folder. Answers an empty string without a sim root.
std::string resolveWindowsPath(const std::string& windowsPath);

// Resolves `components` below the existing folder `base` the same way.
std::string resolveBelow(const std::string& base, const std::vector<std::string>& components);

// Splits a Windows path at backslashes and slashes, dropping empty components.
std::vector<std::string> splitWindowsPath(const std::string& path);

// Creates `path` and its missing parents (mkdir -p); false on failure.
bool makeDirectories(const std::string& path);

// Opens `path` (created when missing) and takes flock(`operation`) on it, waiting when the operation blocks;
// an empty owner when either fails. The lock ends with the owner.
UniqueFd lockFile(const std::string& path, int operation);

// Changes a file that several processes of one instrument change (the session's process list): under an
// exclusive lock on "<path>.lock", `change` gets the current content (empty when the file is missing) and
// returns the new; the new content replaces the file in one step, so a reader without the lock sees the old
// content or the new, never a part. False when the lock, the write or the rename fails.
bool updateSharedFile(const std::string& path, const std::function<std::string(const std::string&)>& change);

// The command line the host entry received.
void setCommandLine(int argc, char** argv);

}  // namespace platform::sim
