// Commands answered by the power controller through the EFI service.
#include <cstring>

#include "app/Log.h"
#include "efi/EFIServiceIPC.h"
#include "efi/EFIServiceIPCBatteryCommand.h"
#include "efi/EFIServiceIPCDirectCommand.h"
#include "efi/EFIServiceIPCExtSupplyCommand.h"
#include "efi/EFIServiceIPCStatusControlCommand.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/server/HalvernSepRecords.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;

std::shared_ptr<EFIServiceIPCStatusControlCommand> readStatusRegister(int item)
{
    return efiService().ExecuteStatusControlCommand(item, EFI_SC_GET, 0, true);
}

void handleBatteryStatus(SEP::ReceivedCommandC& command)
{
    // Status and charge of the first battery, then of the second.
    const int items[4][2] = {{EFI_BATTERY_L, EFI_BATTERY_STATUS},
                             {EFI_BATTERY_L, EFI_BATTERY_RSOC},
                             {EFI_BATTERY_H, EFI_BATTERY_STATUS},
                             {EFI_BATTERY_H, EFI_BATTERY_RSOC}};
    REC::EfiBatStatus reply;
    for (int i = 0; i < 4; ++i) {
        auto message = efiService().ExecuteBatteryCommand(items[i][0], items[i][1], true);
        if (!message) {
            sendEfiFailure(command);
            return;
        }
        reply.values[i] = static_cast<std::uint32_t>(message->GetValue());
    }
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleExtSupply(SEP::ReceivedCommandC& command)
{
    const int items[2] = {EFI_EXT_VOLTAGE, EFI_EXT_PEAK};
    REC::EfiExtSup reply;
    for (int i = 0; i < 2; ++i) {
        auto message = efiService().ExecuteExtSupplyCommand(items[i], true);
        if (!message) {
            sendEfiFailure(command);
            return;
        }
        reply.values[i] = static_cast<std::uint32_t>(halvern::efi::replyAsInteger(message->GetReplyText()));
    }
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handlePowerSelectSet(SEP::ReceivedCommandC& command)
{
    REC::EfiPwrSelect request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    std::int32_t value = 0;
    for (int bit = 0; bit < 3; ++bit)
        if (request.selection[bit]) value |= 1 << bit;
    if (!efiService().ExecuteStatusControlCommand(EFI_SC_PWRSELECT, EFI_SC_SET, value, true)) {
        sendEfiFailure(command);
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handlePowerSelectGet(SEP::ReceivedCommandC& command)
{
    auto message = readStatusRegister(EFI_SC_PWRSELECT);
    if (!message) {
        sendEfiFailure(command);
        return;
    }
    REC::EfiPwrSelect reply;
    for (int bit = 0; bit < 3; ++bit)
        reply.selection[bit] = ((message->GetValue() >> bit) & 1) != 0;
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleEfiServiceCommand(SEP::ReceivedCommandC& command)
{
    REC::EfiSrvcCmd request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"EFI command", nullptr})) return;
    const std::string text(request.command);
    if (text.size() + 1 > EFIServiceIPCMessageI::kRequestChars) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "EFI command too long");
        return;
    }
    EFIServiceIPCDirectCommand message(platform::widen(text));
    platform::setLastError(0);
    if (!efiService().ExecuteCommandTransaction(message)) {
        const std::int32_t failure = static_cast<std::int32_t>(platform::lastError());
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_EFI, {}, &failure);
        return;
    }
    const std::string reply = platform::narrow(message.GetReplyText()).value_or(std::string());
    REC::EfiSrvcCmd answer;
    if (reply.size() + 1 > sizeof answer.reply) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "EFI reply too long to return");
        return;
    }
    std::memcpy(answer.command, request.command, sizeof answer.command);
    std::memcpy(answer.reply, reply.c_str(), reply.size() + 1);
    HalvernSepImpl::SendSuccess(command, &answer);
}

void handlePowerSource(SEP::ReceivedCommandC& command)
{
    auto message = readStatusRegister(EFI_SC_PWRSOURCE);
    if (!message) {
        WriteLog("Failed to obtain PowerSource register value from EFI!");
        sendEfiFailure(command);
        return;
    }
    REC::EfiPwrSrc reply;
    HalvernSepImpl::PowerSourceFlags(message->GetValue(), reply.flags);
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleAutoRunGet(SEP::ReceivedCommandC& command)
{
    auto message = readStatusRegister(EFI_SC_AUTORUN);
    if (!message) {
        sendEfiFailure(command);
        return;
    }
    REC::EfiAutoRun reply;
    reply.enabled = message->GetValue() != 0;
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleAutoRunSet(SEP::ReceivedCommandC& command)
{
    REC::EfiAutoRun request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    if (!efiService().ExecuteStatusControlCommand(EFI_SC_AUTORUN, EFI_SC_SET, request.enabled ? 1 : 0, true)) {
        sendEfiFailure(command);
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

}  // namespace

std::vector<HandlerEntryT> efiHandlers()
{
    return {
        {1004, handleBatteryStatus},  {1005, handleExtSupply},         {1006, handlePowerSelectSet},
        {1007, handlePowerSelectGet}, {1009, handlePowerSource},       {1022, handleAutoRunSet},
        {1023, handleAutoRunGet},     {1030, handleEfiServiceCommand},
    };
}

}  // namespace HalvernSepHandlers
