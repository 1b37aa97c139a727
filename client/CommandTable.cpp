#include "client/CommandTable.h"

#include <cstdlib>

namespace SEP {

std::vector<CommandInfoT>& commandTable()
{
    static std::vector<CommandInfoT> table;
    return table;
}

const CommandInfoT* findCommand(const std::string& nameOrId)
{
    for (const auto& command : commandTable())
        if (command.name == nameOrId || std::to_string(command.id) == nameOrId) return &command;
    return nullptr;
}

bool resolveCommandId(const std::string& nameOrId, std::uint16_t& id)
{
    if (const CommandInfoT* command = findCommand(nameOrId)) {
        id = command->id;
        return true;
    }
    if (nameOrId.empty() || nameOrId.size() > 5 || nameOrId.find_first_not_of("0123456789") != std::string::npos)
        return false;
    const unsigned long value = std::strtoul(nameOrId.c_str(), nullptr, 10);
    if (value > 65535) return false;
    id = static_cast<std::uint16_t>(value);
    return true;
}

}  // namespace SEP
