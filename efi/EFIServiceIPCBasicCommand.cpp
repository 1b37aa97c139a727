#include "efi/EFIServiceIPCBasicCommand.h"

#include <cwchar>
#include <stdexcept>
#include <unordered_map>

#include "app/Log.h"

namespace {

const std::unordered_map<int, std::wstring>& basicTable()
{
    static const std::unordered_map<int, std::wstring> table{
        {0, L"PING"},  {1, L"FWVERSION"},  {2, L"SERVICEVERSION"}, {3, L"REBOOT"},
        {4, L"CLOSE"}, {5, L"UPDATE_LDR"}, {6, L"UPDATE_FW"},      {7, L"HWSTATUS"},
    };
    return table;
}

}  // namespace

EFIServiceIPCBasicCommand::EFIServiceIPCBasicCommand(int commandId) : m_commandId(commandId)
{
    try {
        SetRequest(halvern::efi::formatRequest(L"BASIC:%S", basicTable().at(commandId).c_str()));
    } catch (const std::exception& error) {
        NotFound(commandId, error.what());
    } catch (...) {
        NotFound(commandId, "Unknown exception");
    }
}

void EFIServiceIPCBasicCommand::NotFound(int commandId, const char* reason)
{
    WriteLog("[%s] [ERROR]: BASIC command ID %d not found (%s)!",
             "EFIServiceIPCBasicCommand::EFIServiceIPCBasicCommand", commandId, reason);
    FreeRequest();
}

bool parseHwStatus(const EFIServiceIPCMessageI& message, EFIHwStatus& status)
{
    status = EFIHwStatus{};
    const auto* basic = dynamic_cast<const EFIServiceIPCBasicCommand*>(&message);
    if (basic == nullptr || basic->GetCommandId() != EFI_BASIC_HWSTATUS) {
        WriteLog("[%s] [ERROR]: tried to parse HW status, but command ID is %d", "parseHwStatus",
                 basic != nullptr ? basic->GetCommandId() : -1);
        return false;
    }
    const std::wstring reply = message.GetReplyText();
    const std::size_t replyChars = message.GetReplySize() / sizeof(char16_t);
    // A reply that fills the buffer without its terminator is not a text.
    if (reply.empty() || reply.size() >= replyChars) {
        WriteLog("[%s] [ERROR]: invalid reply buffer", "parseHwStatus");
        return false;
    }
    WriteLog("Got EFI service HW status: %ls", reply.c_str());
    int fpga = 0;
    int hps = 0;
    int telo = 0;
    if (std::swscanf(reply.c_str(), L"EFIRunningMode:%*d,FPGAReady:%d,HPSReady:%d,TELOReady:%d,", &fpga, &hps, &telo) !=
        3) {
        WriteLog("[%s] [ERROR]: Failed to parse Hw status reply from EFI!", "parseHwStatus");
        return false;
    }
    status.fpgaReady = fpga != 0;
    status.hpsReady = hps != 0;
    status.teloReady = telo != 0;
    return true;
}
