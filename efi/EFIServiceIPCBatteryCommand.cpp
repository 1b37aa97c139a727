#include "efi/EFIServiceIPCBatteryCommand.h"

#include <stdexcept>
#include <unordered_map>

#include "app/Log.h"

namespace {

const std::unordered_map<int, std::wstring>& batteryTable()
{
    static const std::unordered_map<int, std::wstring> table{{0, L"L"}, {1, L"H"}};
    return table;
}

const std::unordered_map<int, std::wstring>& batteryItemTable()
{
    static const std::unordered_map<int, std::wstring> table{
        {0, L"STATUS"}, {1, L"RSOC"}, {2, L"VOLTAGE"}, {3, L"TEMP"}};
    return table;
}

}  // namespace

EFIServiceIPCBatteryCommand::EFIServiceIPCBatteryCommand(int batteryId, int itemId)
{
    try {
        SetRequest(halvern::efi::formatRequest(L"BAT:%S:%S", batteryTable().at(batteryId).c_str(),
                                               batteryItemTable().at(itemId).c_str()));
    } catch (const std::exception& error) {
        NotFound(batteryId, itemId, error.what());
    } catch (...) {
        NotFound(batteryId, itemId, "Unknown exception");
    }
}

void EFIServiceIPCBatteryCommand::NotFound(int batteryId, int itemId, const char* reason)
{
    WriteLog("[%s] [ERROR]: Battery command ID %d:%d not found (%s)!",
             "EFIServiceIPCBatteryCommand::EFIServiceIPCBatteryCommand", batteryId, itemId, reason);
    FreeRequest();
}

bool EFIServiceIPCBatteryCommand::ParseReply()
{
    if (!EFIServiceIPCMessageI::ParseReply()) return false;
    m_value = halvern::efi::replyAsInteger(GetReplyText());
    return true;
}
