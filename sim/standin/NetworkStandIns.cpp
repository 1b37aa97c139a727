#include "sim/standin/NetworkStandIns.h"

#include <cstdio>
#include <fstream>
#include <iterator>
#include <sstream>

namespace halvern::sim {

std::string routeTablePath(const std::string& root)
{
    return root + "/sim/network/routes";
}

int runRoute(const std::string& root, const std::vector<std::string>& arguments)
{
    if (arguments.size() == 1 && arguments[0] == "print") {
        std::ifstream in(routeTablePath(root));
        std::printf("%s", std::string(std::istreambuf_iterator<char>(in), {}).c_str());
        return 0;
    }
    std::vector<std::string> words = arguments;
    if (words.size() >= 2 && words[1] == "-p") words.erase(words.begin() + 1);
    if (words.size() != 2 || words[0] != "delete") {
        std::printf("Manipulates network routing tables.\n\nROUTE [-f] [-p] [-4|-6] command [destination]\n");
        return 1;
    }
    std::ifstream in(routeTablePath(root));
    std::string kept;
    bool removed = false;
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        std::string destination;
        fields >> destination;
        if (destination == words[1]) {
            removed = true;
            continue;
        }
        kept += line + "\n";
    }
    in.close();
    if (!removed) {
        std::printf("The route deletion failed: Element not found.\n\n");
        return 1;
    }
    // Replaced in one step: whoever reads the table meanwhile sees the old one or the new one.
    const std::string partial = routeTablePath(root) + ".new";
    if (!(std::ofstream(partial, std::ios::trunc) << kept) ||
        std::rename(partial.c_str(), routeTablePath(root).c_str()) != 0) {
        std::printf("The route deletion failed: Access is denied.\n\n");
        return 1;
    }
    std::printf(" OK!\n");
    return 0;
}

int runIpconfig(const std::string& root, const std::vector<std::string>& arguments)
{
    if (arguments.size() != 1 || (arguments[0] != "/release" && arguments[0] != "/renew")) {
        std::printf("USAGE:\n    ipconfig [/release | /renew]\n");
        return 1;
    }
    std::ofstream(root + "/sim/network/leases", std::ios::app) << arguments[0].substr(1) << "\n";
    std::printf("\nWindows IP Configuration\n\n");
    return 0;
}

}  // namespace halvern::sim
