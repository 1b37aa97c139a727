#pragma once
#include <string>
#include <vector>

namespace halvern::sim {

// The route table of the simulated instrument: <root>/sim/network/routes, one route per line
// ("DESTINATION MASK GATEWAY", then "persistent" for a route that survives a restart).
std::string routeTablePath(const std::string& root);

// "route.exe": "delete [-p] DESTINATION" removes the routes to DESTINATION (the file is rewritten only when
// one was there, which the instrument sees as a change of its route table); "print" lists the table.
int runRoute(const std::string& root, const std::vector<std::string>& arguments);
// "ipconfig.exe": "/release" and "/renew" are recorded, in order, in <root>/sim/network/leases.
int runIpconfig(const std::string& root, const std::vector<std::string>& arguments);

}  // namespace halvern::sim
