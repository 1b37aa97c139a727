#include "efi/EFIServiceIPCStatusControlCommand.h"

#include <stdexcept>
#include <unordered_map>

#include "app/Log.h"

EFIServiceIPCStatusControlCommand::EFIServiceIPCStatusControlCommand(int itemId, int access, std::int32_t value)
    : m_access(access), m_value(value)
{
    static const std::unordered_map<int, std::wstring> table{
        {0, L"PWRSELECT"},   {1, L"PWRSUPPLY"}, {2, L"PWRSOURCE"}, {3, L"SYSTEM"},
        {4, L"WAKEUPTIMER"}, {5, L"SMBUS"},     {6, L"AUTORUN"},
    };
    const bool set = access == EFI_SC_SET;
    try {
        const std::wstring& keyword = table.at(itemId);
        if (set)
            SetRequest(halvern::efi::formatRequest(L"%S:SET:%.2x", keyword.c_str(), static_cast<unsigned>(value)));
        else
            SetRequest(halvern::efi::formatRequest(L"%S:GET", keyword.c_str()));
    } catch (const std::exception& error) {
        NotFound(itemId, set, error.what());
    } catch (...) {
        NotFound(itemId, set, "Unknown exception");
    }
}

void EFIServiceIPCStatusControlCommand::NotFound(int itemId, bool set, const char* reason)
{
    WriteLog("[%s] [ERROR]: Status/Control command ID %d:%s not found (%s)!",
             "EFIServiceIPCStatusControlCommand::EFIServiceIPCStatusControlCommand", itemId, set ? "SET" : "GET",
             reason);
    FreeRequest();
}

bool EFIServiceIPCStatusControlCommand::ParseReply()
{
    if (!EFIServiceIPCMessageI::ParseReply()) return false;
    if (m_access == EFI_SC_GET) m_value = halvern::efi::replyAsInteger(GetReplyText());
    return true;
}
