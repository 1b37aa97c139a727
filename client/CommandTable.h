#pragma once
// Every command of the instrument's command table with the halvernctl sub-command that sends it and the
// fields of its reply record. `send` finds commands here by id or name and reads their replies without
// --reply.
#include <cstdint>
#include <string>
#include <vector>

namespace SEP {

struct CommandInfoT {
    std::uint16_t id;
    // The server's name for the id ("EFI_GET_BAT_STATUS"); empty for the ids it does not name.
    std::string serverName;
    // The named sub-command as typed, with the option that selects this id where one sub-command sends
    // several ("power-off --legacy").
    std::string subcommand;
    // Read specs of the reply record after the header ("i32", "str", "bytes:6"), taken from the record.
    std::vector<std::string> replyFields;
    // The names of those values, and the same two lists for the request record.
    std::vector<std::string> replyNames;
    std::vector<std::string> requestFields;
    std::vector<std::string> requestNames;
};

const std::vector<CommandInfoT>& commandTable();

// Every event the instrument pushes, with the name halvernctl shows for it and its record's values.
struct EventInfoT {
    std::uint16_t id;
    std::string name;
    std::vector<std::string> fields;
    std::vector<std::string> names;
};
const std::vector<EventInfoT>& eventTable();
// By decimal id, server name (any case) or sub-command as listed; nullptr when none matches.
const CommandInfoT* findCommand(const std::string& nameOrId);
// A decimal id or a listed name; false otherwise.
bool resolveCommandId(const std::string& nameOrId, std::uint16_t& id);
// What to call the command in printed output: the server's name, else the sub-command.
std::string commandLabel(const CommandInfoT& command);

}  // namespace SEP
