#pragma once
#include <string>
#include <vector>

namespace halvern::sim {

// "format.com X: [/FS:NAME] [/Q] [/X] [/Y] [/V:LABEL]": empties the simulated drive X (the folder X of the
// sim root) and gives it the label of /V: and the file system of /FS: (the second line of sim/volumes/X);
// without them it keeps its own. A drive without a volume
// (sim/volumes/X: no stick) ends with 4, as the real tool does on a fatal error; bad arguments with 1.
int runFormat(const std::string& root, const std::vector<std::string>& arguments);

}  // namespace halvern::sim
