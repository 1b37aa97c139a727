#include "sim/standin/ModeStandIns.h"

#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>

#include "platform/sim/SimRoot.h"
#include "platform/sim/SimWriteFilter.h"

namespace halvern::sim {

namespace {

// "key=value" words of a netsh command line.
std::map<std::string, std::string> namedValues(const std::vector<std::string>& words)
{
    std::map<std::string, std::string> values;
    for (const auto& word : words) {
        const auto equals = word.find('=');
        if (equals != std::string::npos) values[word.substr(0, equals)] = word.substr(equals + 1);
    }
    return values;
}

bool isPort(const std::string& text)
{
    const long port = std::strtol(text.c_str(), nullptr, 10);
    return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos && port > 0 && port < 65536;
}

struct EntryT {
    std::string listenPort;
    std::string address;
    std::string port;
};

std::vector<EntryT> readTable(const std::string& root)
{
    std::vector<EntryT> entries;
    std::ifstream in(portProxyTablePath(root));
    for (std::string line; std::getline(in, line);) {
        std::istringstream fields(line);
        EntryT entry;
        if (fields >> entry.listenPort >> entry.address >> entry.port) entries.push_back(entry);
    }
    return entries;
}

bool writeTable(const std::string& root, const std::vector<EntryT>& entries)
{
    if (!platform::sim::makeDirectories(root + "/sim/network")) return false;
    std::ofstream out(portProxyTablePath(root), std::ios::trunc);
    for (const auto& entry : entries)
        out << entry.listenPort << ' ' << entry.address << ' ' << entry.port << '\n';
    return static_cast<bool>(out);
}

void printTable(const std::vector<EntryT>& entries)
{
    if (entries.empty()) return;
    std::printf("\nListen on ipv4:             Connect to ipv4:\n\n");
    std::printf("Address         Port        Address         Port\n");
    std::printf("--------------- ----------  --------------- ----------\n");
    for (const auto& entry : entries)
        std::printf("%-15s %-10s  %-15s %s\n", "*", entry.listenPort.c_str(), entry.address.c_str(),
                    entry.port.c_str());
    std::printf("\n");
}

}  // namespace

std::string portProxyTablePath(const std::string& root)
{
    return root + "/sim/network/portproxy";
}

int runUwfmgr(const std::vector<std::string>& arguments)
{
    if (arguments.size() != 2 || arguments[0] != "filter" || (arguments[1] != "enable" && arguments[1] != "disable")) {
        std::printf("Unified Write Filter Configuration Utility\n\nUsage: uwfmgr filter enable|disable\n");
        return 1;
    }
    if (!platform::sim::setNextBootFilterState(arguments[1] == "enable")) {
        std::printf("Access is denied.\n");
        return 5;
    }
    std::printf("Unified Write Filter will be %s after system restart.\n",
                arguments[1] == "enable" ? "enabled" : "disabled");
    return 0;
}

int runNetsh(const std::string& root, const std::vector<std::string>& arguments, int failureCode)
{
    if (failureCode != 0) {
        std::printf("The requested operation requires elevation (Run as administrator).\n\n");
        return failureCode;
    }
    const bool portproxy = arguments.size() >= 3 && arguments[0] == "interface" && arguments[1] == "portproxy";
    if (!portproxy) {
        std::printf("The following command was not found: interface.\n");
        return 1;
    }
    std::vector<EntryT> entries = readTable(root);
    const std::string& verb = arguments[2];
    if (verb == "show" && arguments.size() == 4 && arguments[3] == "all") {
        printTable(entries);
        return 0;
    }
    const auto values = namedValues(arguments);
    const auto value = [&values](const char* name) {
        const auto it = values.find(name);
        return it == values.end() ? std::string() : it->second;
    };
    if (arguments.size() < 5 || arguments[3] != "v4tov4" || !isPort(value("listenport"))) {
        std::printf("The syntax supplied for this command is not valid. Check help for the correct syntax.\n\n");
        return 1;
    }
    const std::string listenPort = value("listenport");
    std::vector<EntryT> kept;
    bool found = false;
    for (const auto& entry : entries) {
        if (entry.listenPort == listenPort)
            found = true;
        else
            kept.push_back(entry);
    }
    if (verb == "add") {
        if (value("connectaddress").empty() || !isPort(value("connectport"))) {
            std::printf("The syntax supplied for this command is not valid. Check help for the correct syntax.\n\n");
            return 1;
        }
        kept.push_back({listenPort, value("connectaddress"), value("connectport")});
    } else if (verb == "delete") {
        if (!found) {
            std::printf("The system cannot find the file specified.\n\n");
            return 1;
        }
    } else {
        std::printf("The following command was not found: interface portproxy %s.\n", verb.c_str());
        return 1;
    }
    if (!writeTable(root, kept)) {
        std::printf("Access is denied.\n\n");
        return 5;
    }
    std::printf("\n");
    return 0;
}

int runExplorer(const std::string& root)
{
    const std::string entry = std::to_string(::getpid()) + " 1 explorer.exe\n";
    const bool listed = platform::sim::updateSharedFile(root + "/sim/session/processes", [&](const std::string& list) {
        // A session without a list has the system's own processes; the list must keep them.
        return (list.empty() ? std::string("4 0 System\n612 1 winlogon.exe\n") : list) + entry;
    });
    if (!listed) return 1;
    for (;;)
        ::pause();
}

}  // namespace halvern::sim
