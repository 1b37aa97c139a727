#include "sep/server/HalvernSepImpl.h"

#include <cstring>
#include <exception>
#include <functional>

#include "app/Log.h"
#include "efi/EFIServiceIPCBatteryCommand.h"
#include "efi/EFIServiceIPCDirectCommand.h"
#include "efi/EFIServiceIPCExtSupplyCommand.h"
#include "efi/EFIServiceIPCStatusControlCommand.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "sep/RecordCoding.h"
#include "sep/server/HalvernSepRecords.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernRpc {

std::string composeErrorText(int code, const std::string& detail, const std::int32_t* failureNumber)
{
    static const char* const kTexts[] = {
        "Failed to decode SEP request!",
        "Internal error, failed to communicate with EFI!",
        "Internal error, failed to set WiFi AP configuration!",
        "Internal error, failed to obtain WiFi AP configuration",
        "Received string is not NULL terminated",
        "Failed to access RTC",
        "General failure",
        "Value out of range",
    };
    std::string text =
        code >= 0 && code < static_cast<int>(sizeof kTexts / sizeof kTexts[0]) ? kTexts[code] : "Unknown error";
    if (!detail.empty()) text += " ( " + detail + ")";
    if (failureNumber != nullptr) text += "error code: " + std::to_string(*failureNumber);
    return text;
}

}  // namespace HalvernRpc

namespace {

namespace REC = Varda::SEP::HALVERN;
using Handler = std::function<void(SEP::ReceivedCommandC&)>;

struct NamedIdT {
    std::uint16_t id;
    const char* name;
};

const NamedIdT kNames[] = {
    {1000, "ECHO"},
    {1001, "GET_API_LVL"},
    {1002, "WLAN_CFG_SET"},
    {1003, "WLAN_CFG_GET"},
    {1004, "EFI_GET_BAT_STATUS"},
    {1005, "EFI_GET_EXT_VOLT"},
    {1006, "EFI_SET_PWR_SEL"},
    {1007, "EFI_GET_PWR_SEL"},
    {1008, "DO_POWER_OFF"},
    {1009, "EFI_GET_PWR_SRC"},
    {1010, "GET_BOARD_CONTENT"},
    {1011, "START_UPDATE"},
    {1012, "ERASE_CAL"},
    {1013, "CAL_TOUCH"},
    {1014, "PROD_FEATURES_SET"},
    {1015, "PROD_FEATURES_GET"},
    {1016, "WLAN_CC_SET"},
    {1017, "WLAN_CC_GET"},
    {1018, "RTC_GET"},
    {1019, "RTC_SET"},
    {1020, "HOSTNAME_CFG_GET"},
    {1021, "HOSTNAME_CFG_SET"},
    {1022, "EFI_AUTORUN_SET"},
    {1023, "EFI_AUTORUN_GET"},
    {1024, "WLAN_DRV_SET"},
    {1025, "EXE_CMD"},
    {1026, "WLAN_PWR_SET"},
    {1037, "USB_GET_DEV_COUNT"},
    {1038, "USB_GET_DEV_AT_IDX"},
    {1039, "USB_DEV_RESET"},
    {1042, "CAL_VLTG_SCRN"},
    {1057, "WLAN_RUN_CH_SEL"},
    {1064, "WLAN_CFG_EXT_SET"},
    {1065, "WLAN_CFG_EXT_GET"},
};

// Every id of the command set that has a handler; 1000 is named but deliberately left to the default.
constexpr std::uint16_t kFirstCommand = 1001;
constexpr std::uint16_t kLastCommand = 1065;
bool isCommandId(std::uint16_t id)
{
    return id >= kFirstCommand && id <= kLastCommand && id != 1045;
}

// The EFI service did not answer or refused it.
void sendEfiFailure(SEP::ReceivedCommandC& command)
{
    HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_EFI);
}

EFIServiceIPC& efiService()
{
    return SysManagerC::Instance()->GetEFIServiceIPC();
}

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

void handleApiLevel(SEP::ReceivedCommandC& command)
{
    REC::ApiLvl reply;
    reply.level = HalvernSepImpl::kApiLevel;
    HalvernSepImpl::SendSuccess(command, &reply);
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

void handlePowerCycle(SEP::ReceivedCommandC& command)
{
    std::int32_t type = 0;
    bool force = false;
    std::int32_t timeout = 0;
    if (command.messageId() == 1008) {
        REC::DoPowerOff request;
        if (!HalvernSepImpl::DecodeRequest(command, request)) return;
        WriteLog("Received power cycle request in legacy mode.");
        type = request.type;
    } else {
        REC::DoPowerOffExt request;
        if (!HalvernSepImpl::DecodeRequest(command, request)) return;
        WriteLog("Received power cycle request in standard mode.");
        type = request.type;
        force = request.force;
        timeout = request.timeout;
    }
    std::int32_t powerRequest = 0;
    if (type == 1) {
        powerRequest = POWER_REQUEST_SHUTDOWN;
    } else if (type == 2) {
        powerRequest = POWER_REQUEST_REBOOT;
    } else {
        HalvernSepImpl::SendText(command, "Invalid poweroff type: " + std::to_string(type));
        return;
    }
    // The client hears the answer before the close sequence can take the connection away.
    HalvernSepImpl::SendSuccess(command, nullptr);
    SysManagerC* manager = SysManagerC::Instance();
    manager->ConfigurePowerCycleRequest(powerRequest, force, static_cast<std::uint32_t>(timeout));
    WriteLog("Configured power cycle request: %d, force: %d, timeout: %d", powerRequest, force ? 1 : 0, timeout);
    manager->SendCloseEvent();
}

void handleShutdownState(SEP::ReceivedCommandC& command)
{
    REC::ShutdownStateHandle request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request %s Shutdown process.", request.start ? "to start" : "not to start");
    SysManagerC::Instance()->SetAppShutdownAnswer(request.start ? APP_SHUTDOWN_STARTED : APP_SHUTDOWN_NOT_STARTED);
    WriteLog(request.start ? "Configured shutdown state request: START"
                           : "Configured shutdown state request: NO START");
    HalvernSepImpl::SendSuccess(command, nullptr);
}

// A command whose subsystem has not landed says so instead of pretending to have done its work.
void handleNotAvailable(SEP::ReceivedCommandC& command)
{
    HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL,
                              std::string(HalvernSepImpl::CommandName(command.messageId())) + " (" +
                                  std::to_string(command.messageId()) + ") is not available on this build");
}

void handleDefault(SEP::ReceivedCommandC& command)
{
    WriteLog("Default SEP callback, msg id: %d\n", static_cast<int>(command.messageId()));
    WriteLog("Unknown command: %s", HalvernSepImpl::CommandName(command.messageId()));
}

// No exception leaves a handler: the server task must go on serving its clients.
Handler guarded(void (*handler)(SEP::ReceivedCommandC&))
{
    return [handler](SEP::ReceivedCommandC& command) {
        try {
            handler(command);
        } catch (const std::exception& error) {
            WriteLog("[ERROR]: Exception occured when tried to handle SEP request: %s", error.what());
        } catch (...) {
            WriteLog("[ERROR]: Uknown exception occured when tried to handle SEP request");
        }
    };
}

bool writeHeader(SEP::DataWriterI& writer, bool success)
{
    return writer.writeI32(success ? HalvernRpc::kReturnCodeSuccess : HalvernRpc::kReturnCodeError) &&
           writer.writeI32(HalvernRpc::kFacility) && writer.writeU16(success ? 0 : 1);
}

}  // namespace

void HalvernSepImpl::PowerSourceFlags(std::int32_t reg, bool (&flags)[11])
{
    for (int bit = 0; bit < 11; ++bit)
        flags[bit] = ((reg >> bit) & 1) != 0;
}

const char* HalvernSepImpl::CommandName(std::uint16_t messageId)
{
    for (const auto& entry : kNames)
        if (entry.id == messageId) return entry.name;
    return "UKNOWN SEP CMD";
}

void HalvernSepImpl::RegisterHandlers(SEP::ChannelC& channel)
{
    const struct {
        std::uint16_t id;
        void (*handler)(SEP::ReceivedCommandC&);
    } completed[] = {
        {1001, handleApiLevel},       {1004, handleBatteryStatus},  {1005, handleExtSupply},
        {1006, handlePowerSelectSet}, {1007, handlePowerSelectGet}, {1030, handleEfiServiceCommand},
        {1008, handlePowerCycle},     {1009, handlePowerSource},    {1022, handleAutoRunSet},
        {1023, handleAutoRunGet},     {1027, handlePowerCycle},     {1055, handleShutdownState},
    };
    for (std::uint16_t id = kFirstCommand; id <= kLastCommand; ++id) {
        if (!isCommandId(id)) continue;
        auto handler = handleNotAvailable;
        for (const auto& entry : completed)
            if (entry.id == id) handler = entry.handler;
        channel.registerCommandHandler(id, guarded(handler));
    }
    channel.setDefaultCallback(guarded(handleDefault));
}

bool HalvernSepImpl::SendSuccess(SEP::ReceivedCommandC& command, MAL::UTI::SerializableI* record)
{
    return command.sendReply([record](SEP::DataWriterI& writer) {
        return writeHeader(writer, true) && (record == nullptr || SEP::encodeRecord(writer, *record));
    });
}

bool HalvernSepImpl::SendText(SEP::ReceivedCommandC& command, const std::string& text)
{
    const std::string sent = text.substr(0, HalvernRpc::kErrorTextMax);
    return command.sendReply(
        [&sent](SEP::DataWriterI& writer) { return writeHeader(writer, false) && writer.writeString(sent.c_str()); });
}

bool HalvernSepImpl::SendError(SEP::ReceivedCommandC& command, int code, const std::string& detail,
                               const std::int32_t* failureNumber)
{
    const std::string text = HalvernRpc::composeErrorText(code, detail, failureNumber);
    WriteLog("%s", text.c_str());
    return SendText(command, text);
}

bool HalvernSepImpl::DecodeRequest(SEP::ReceivedCommandC& command, MAL::UTI::SerializableI& request,
                                   std::initializer_list<const char*> stringNames)
{
    int badString = -1;
    const SEP::DecodeResultE result = SEP::decodeRecord(command.reader(), request, &badString);
    if (result == SEP::DecodeResultE::Ok) return true;
    if (result == SEP::DecodeResultE::NotTerminated && badString >= 0 &&
        badString < static_cast<int>(stringNames.size()) && stringNames.begin()[badString] != nullptr) {
        SendError(command, HalvernRpc::SEP_ERR_NOT_TERMINATED, stringNames.begin()[badString]);
        return false;
    }
    SendError(command, HalvernRpc::SEP_ERR_DECODE,
              std::string(CommandName(command.messageId())) + " (" + std::to_string(command.messageId()) + ")");
    return false;
}
