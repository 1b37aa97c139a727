#pragma once
// The commands halvernctl knows by name, with the fields of their replies. A command not listed here is
// still sent by its id; its reply fields are then named on the command line.
#include <cstdint>
#include <string>
#include <vector>

namespace SEP {

struct CommandInfoT {
    std::uint16_t id;
    std::string name;
    // Read specs of the reply record after the header ("i32", "str", "bytes:6").
    std::vector<std::string> replyFields;
};

std::vector<CommandInfoT>& commandTable();
// By name or by decimal id; nullptr when neither matches a listed command.
const CommandInfoT* findCommand(const std::string& nameOrId);
// A decimal id or a listed name; false otherwise.
bool resolveCommandId(const std::string& nameOrId, std::uint16_t& id);

}  // namespace SEP
