#pragma once
#include <string>
#include <vector>

namespace halvern::sim {

// "format.com X: [/FS:...] [/Q] [/X] [/Y] [/V:LABEL]": empties the simulated drive X (the folder X of the
// sim root) and gives it the label of /V: (without /V: it keeps its label). A drive without a volume
// (sim/volumes/X: no stick) ends with 4, as the real tool does on a fatal error; bad arguments with 1.
int runFormat(const std::string& root, const std::vector<std::string>& arguments);

}  // namespace halvern::sim
