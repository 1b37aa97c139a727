#include "efi/EFIServiceIPCExtSupplyCommand.h"

#include <stdexcept>
#include <unordered_map>

#include "app/Log.h"

EFIServiceIPCExtSupplyCommand::EFIServiceIPCExtSupplyCommand(int itemId)
{
    static const std::unordered_map<int, std::wstring> table{{0, L"VOLTAGE"}, {1, L"PEAK"}, {2, L"BAT_VOLT"}};
    try {
        SetRequest(L"EXT:" + table.at(itemId));
    } catch (const std::exception& error) {
        WriteLog("[%s] [ERROR]: ExtSupply command ID %d not found (%s)!",
                 "EFIServiceIPCExtSupplyCommand::EFIServiceIPCExtSupplyCommand", itemId, error.what());
        FreeRequest();
    }
}
