#include "efi/EFIServiceIPCExtSupplyCommand.h"

#include <stdexcept>
#include <unordered_map>

#include "app/Log.h"

void EFIServiceIPCExtSupplyCommand::NotFound(int itemId, const char* reason)
{
    WriteLog("[%s] [ERROR]: ExtSupply command ID %d not found (%s)!",
             "EFIServiceIPCExtSupplyCommand::EFIServiceIPCExtSupplyCommand", itemId, reason);
    FreeRequest();
}

EFIServiceIPCExtSupplyCommand::EFIServiceIPCExtSupplyCommand(int itemId)
{
    static const std::unordered_map<int, std::wstring> table{{0, L"VOLTAGE"}, {1, L"PEAK"}, {2, L"BAT_VOLT"}};
    try {
        SetRequest(halvern::efi::formatRequest(L"EXT:%S", table.at(itemId).c_str()));
    } catch (const std::exception& error) {
        NotFound(itemId, error.what());
    } catch (...) {
        NotFound(itemId, "Unknown exception");
    }
}
