#include "sim/SimBoot.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

#include "platform/sim/SimHostedNetwork.h"

namespace halvern::sim {
namespace {

std::string firstLine(const std::string& path)
{
    std::ifstream in(path);
    std::string line;
    std::getline(in, line);
    return line;
}

bool exists(const std::string& path)
{
    return std::ifstream(path).good();
}

}  // namespace

void forgetSepPorts(const std::string& root)
{
    for (const char* port : {"55557", "55558"})
        std::remove((root + "/sim/sep/" + port).c_str());
}

bool windowsShutDown(const std::string& root)
{
    return !firstLine(root + "/sim/power/shutdown").empty();
}

bool bootAgain(const std::string& root, std::string& error)
{
    const std::string computer = root + "/sim/computer/";
    // Windows takes the DNS host name of the rename; its NetBIOS name follows from it.
    const std::string pending = exists(computer + "pending-dns") ? firstLine(computer + "pending-dns")
                                                                 : firstLine(computer + "pending-netbios");
    if (!pending.empty()) {
        std::ofstream name(computer + "name", std::ios::trunc);
        name << pending << "\n";
        if (!name) {
            error = "cannot write " + computer + "name: " + std::strerror(errno);
            return false;
        }
    }
    std::remove((computer + "pending-dns").c_str());
    std::remove((computer + "pending-netbios").c_str());
    if (!platform::sim::updateHostedNetwork(root, [](platform::sim::SimHostedNetworkS& network) {
            if (network.state == "active") network.state = "idle";
        })) {
        error = "cannot reset the hosted network in " + root + "/sim/wlan";
        return false;
    }
    if (std::remove((root + "/sim/power/shutdown").c_str()) != 0 && errno != ENOENT) {
        error = "cannot remove " + root + "/sim/power/shutdown: " + std::strerror(errno);
        return false;
    }
    return true;
}

std::string earlyExitReason(const std::string& root, const std::string& logPath, int exitCode)
{
    if (exitCode == 0 || exists(root + "/sim/sep/55557")) return {};
    std::ifstream log(logPath);
    std::vector<std::string> errors;
    bool portFailed = false;
    for (std::string line; std::getline(log, line);) {
        if (line.find("Could not start port!") != std::string::npos || line.find("error on bind") != std::string::npos)
            portFailed = true;
        if (line.find("ERROR") != std::string::npos || line.find("Could not") != std::string::npos)
            errors.push_back(line);
    }
    std::ostringstream reason;
    if (portFailed) {
        reason << "Halvern could not open its SEP ports (55557, 55558): another instrument or program listens "
                  "there.\n  fix: run this one on free ports: HALVERN_SEP_PORT_55557=0 HALVERN_SEP_PORT_55558=0 "
                  "halvern-sim ...; halvernctl finds them with --root "
               << root << "\n";
    } else {
        reason << "Halvern ended with code " << exitCode << " before it served SEP.\n";
    }
    const std::size_t shown = errors.size() < 5 ? errors.size() : 5;
    if (shown > 0) reason << "  its last errors:\n";
    for (std::size_t i = errors.size() - shown; i < errors.size(); ++i)
        reason << "    " << errors[i] << "\n";
    return reason.str();
}

}  // namespace halvern::sim
