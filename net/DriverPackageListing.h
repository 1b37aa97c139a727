#pragma once
// The device tool's "dp_enum" listing of the driver store's third-party packages, read as the WLAN driver
// management needs it. Pure: text in, package names out, so that any output the tool may print can be fed
// to it.
#include <string>
#include <vector>

namespace halvern::net {

// The published names ("oem12.inf") of the packages whose provider line contains `keyword`, in listing
// order. A package counts only when a provider line follows its name line; each match is logged.
std::vector<std::string> parseDriverPackages(const std::string& listing, const std::string& keyword);

}  // namespace halvern::net
