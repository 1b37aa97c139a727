// Commands answered by the power controller through the EFI service.
#include <cstring>
#include <cwchar>
#include <string>

#include "app/Log.h"
#include "efi/EFIServiceIPC.h"
#include "efi/EFIServiceIPCBasicCommand.h"
#include "efi/EFIServiceIPCBatteryCommand.h"
#include "efi/EFIServiceIPCDirectCommand.h"
#include "efi/EFIServiceIPCExtSupplyCommand.h"
#include "efi/EFIServiceIPCLEDCommand.h"
#include "efi/EFIServiceIPCStatusControlCommand.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
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
    if (!HalvernSepImpl::DecodeRequest(command, request, {"EFI command", "EFI reply"})) return;
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

// Values of PowerLedCfg as the frontend sends them.
constexpr std::int32_t kLedSteady = 0;
constexpr std::int32_t kLedBlinking = 1;
constexpr std::int32_t kLedYellow = 0;
constexpr std::int32_t kLedGreen = 1;
constexpr std::int32_t kLedRed = 2;

// The EFI exchange failed: code 1 with the error number the transaction left behind.
void sendEfiFailureNumber(SEP::ReceivedCommandC& command)
{
    const std::int32_t failure = static_cast<std::int32_t>(platform::lastError());
    HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_EFI, {}, &failure);
}

void refuseLedRequest(SEP::ReceivedCommandC& command, const char* text)
{
    WriteLog("%s", text);
    HalvernSepImpl::SendText(command, text);
}

void handlePowerLed(SEP::ReceivedCommandC& command)
{
    REC::PowerLedCfg request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request to set Power LED Status.");
    if (request.state != kLedSteady && request.state != kLedBlinking) {
        refuseLedRequest(command, "Invalid set power led status command requested.");
        return;
    }
    if (request.colour != kLedYellow && request.colour != kLedGreen && request.colour != kLedRed) {
        refuseLedRequest(command, "Invalid set power led color command requested.");
        return;
    }
    WriteLog(request.state == kLedBlinking ? "LED State: 'Blinking'" : "LED State: 'Steady'");
    static const char* const kColourLines[] = {"LED Color: 'yellow'", "LED Color: 'green'", "LED Color: 'red'"};
    WriteLog("%s", kColourLines[request.colour]);
    // Yellow is red and green together.
    const int mode = request.state == kLedBlinking ? EFI_LED_BLINK : EFI_LED_ON;
    const int red = request.colour == kLedGreen ? EFI_LED_OFF : mode;
    const int green = request.colour == kLedRed ? EFI_LED_OFF : mode;
    platform::setLastError(0);
    if (!efiService().ExecuteLEDCommand(red, green, EFI_LED_OFF, true)) {
        sendEfiFailureNumber(command);
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

// The three ready flags of the status, then the next two "name:value," fields of the reply: the
// controller reports further critical parts after TELO, in a fixed order.
bool readCriticalFlags(const std::wstring& reply, bool (&flags)[5])
{
    const std::wstring marker = L"TELOReady:";
    std::size_t at = reply.find(marker);
    if (at == std::wstring::npos) return false;
    at = reply.find(L',', at);
    for (int extra = 3; extra < 5; ++extra) {
        flags[extra] = false;
        if (at == std::wstring::npos) continue;
        const std::size_t colon = reply.find(L':', at);
        if (colon == std::wstring::npos) {
            at = std::wstring::npos;
            continue;
        }
        flags[extra] = std::wcstol(reply.c_str() + colon + 1, nullptr, 10) != 0;
        at = reply.find(L',', colon);
    }
    return true;
}

void handleCriticalHwStatus(SEP::ReceivedCommandC& command)
{
    WriteLog("Got request to return current state of Critical HW Components");
    auto message = efiService().ExecuteBasicCommand(EFI_BASIC_HWSTATUS, true);
    if (!message) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to execute HW status EFI command");
        return;
    }
    EFIHwStatus status;
    REC::CriticalHwStatusInfo reply;
    if (!parseHwStatus(*message, status) || !readCriticalFlags(message->GetReplyText(), reply.flags)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to parse EFI's HW status");
        return;
    }
    reply.flags[0] = status.fpgaReady;
    reply.flags[1] = status.hpsReady;
    reply.flags[2] = status.teloReady;
    HalvernSepImpl::SendSuccess(command, &reply);
}

// Battery slots of the register commands: 1 is the first battery (registers 74 to 77), 2 the second
// (78 to 81).
constexpr std::uint32_t kFirstSlot = 1;
constexpr std::uint32_t kLastSlot = 2;
constexpr int kSlotRegisterStride = 4;

enum class RegisterResultE { Ok, EfiFailed, NotANumber };

RegisterResultE exchangeRegister(const std::string& request, std::int32_t* value)
{
    EFIServiceIPCDirectCommand message(platform::widen(request));
    platform::setLastError(0);
    if (!efiService().ExecuteCommandTransaction(message)) return RegisterResultE::EfiFailed;
    if (value == nullptr) return RegisterResultE::Ok;
    const std::string text = platform::narrow(message.GetReplyText()).value_or(std::string());
    std::size_t digits = text.size() > 0 && text[0] == '-' ? 1 : 0;
    if (digits == text.size() || text.size() > 10 || text.find_first_not_of("0123456789", digits) != std::string::npos)
        return RegisterResultE::NotANumber;
    *value = static_cast<std::int32_t>(std::stol(text));
    return RegisterResultE::Ok;
}

// Answers a failed exchange (code 1 with the number, or code 7 for a value that is no number or does
// not fit its field); true when the exchange succeeded.
bool registerExchanged(SEP::ReceivedCommandC& command, RegisterResultE result)
{
    if (result == RegisterResultE::EfiFailed) {
        sendEfiFailureNumber(command);
        return false;
    }
    if (result == RegisterResultE::NotANumber) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE);
        return false;
    }
    return true;
}

bool fitsByte(std::int32_t value)
{
    return value >= -128 && value <= 255;
}

void handleBatteryType(SEP::ReceivedCommandC& command)
{
    const int registers[4] = {76, 77, 80, 81};
    REC::EfiBatteryType reply;
    std::int32_t bytes[4] = {};
    for (int i = 0; i < 4; ++i) {
        if (!registerExchanged(command, exchangeRegister("REG:GET:" + std::to_string(registers[i]), &bytes[i]))) return;
        if (!fitsByte(bytes[i])) {
            HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE);
            return;
        }
        reply.types[i] = static_cast<std::int8_t>(bytes[i]);
    }
    // Each battery's type is its low and high byte together; the first battery in the low half.
    const auto type = [&](int low) {
        return static_cast<std::uint32_t>((bytes[low] & 0xFF) | ((bytes[low + 1] & 0xFF) << 8));
    };
    reply.a = type(0) | (type(2) << 16);
    HalvernSepImpl::SendSuccess(command, &reply);
}

// Offset commands: `firstRegister` is the first battery's register (74 or 75). A get may name the slot
// with a u32; without one it reads the first battery.
void getBatteryOffset(SEP::ReceivedCommandC& command, int firstRegister)
{
    struct SlotT : MAL::UTI::SerializableI {
        std::uint32_t slot = kFirstSlot;
        bool visit(MAL::UTI::FieldVisitorI& v) override { return v.field(slot); }
    } request;
    if (!command.reader().atEnd() && !HalvernSepImpl::DecodeRequest(command, request)) return;
    const std::uint32_t slot = request.slot;
    if (slot < kFirstSlot || slot > kLastSlot) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE);
        return;
    }
    const int reg = firstRegister + static_cast<int>(slot - kFirstSlot) * kSlotRegisterStride;
    std::int32_t value = 0;
    if (!registerExchanged(command, exchangeRegister("REG:GET:" + std::to_string(reg), &value))) return;
    if (!fitsByte(value)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE);
        return;
    }
    REC::EfiBatteryTypeOffset reply;
    reply.a = slot;
    reply.offset = static_cast<std::int8_t>(value);
    HalvernSepImpl::SendSuccess(command, &reply);
}

void setBatteryOffset(SEP::ReceivedCommandC& command, int firstRegister)
{
    REC::EfiBatteryTypeOffset request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    if (request.a < kFirstSlot || request.a > kLastSlot) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_RANGE);
        return;
    }
    const int reg = firstRegister + static_cast<int>(request.a - kFirstSlot) * kSlotRegisterStride;
    const std::string text = "REG:SET:" + std::to_string(reg) + ":" + std::to_string(request.offset);
    if (!registerExchanged(command, exchangeRegister(text, nullptr))) return;
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleFirstOffsetGet(SEP::ReceivedCommandC& command)
{
    getBatteryOffset(command, 74);
}
void handleFirstOffsetSet(SEP::ReceivedCommandC& command)
{
    setBatteryOffset(command, 74);
}
void handleSecondOffsetGet(SEP::ReceivedCommandC& command)
{
    getBatteryOffset(command, 75);
}
void handleSecondOffsetSet(SEP::ReceivedCommandC& command)
{
    setBatteryOffset(command, 75);
}

}  // namespace

std::vector<HandlerEntryT> efiHandlers()
{
    return {
        {1004, handleBatteryStatus},    {1005, handleExtSupply},         {1006, handlePowerSelectSet},
        {1007, handlePowerSelectGet},   {1009, handlePowerSource},       {1022, handleAutoRunSet},
        {1023, handleAutoRunGet},       {1030, handleEfiServiceCommand}, {1052, handlePowerLed},
        {1056, handleCriticalHwStatus}, {1059, handleBatteryType},       {1060, handleFirstOffsetGet},
        {1061, handleFirstOffsetSet},   {1062, handleSecondOffsetGet},   {1063, handleSecondOffsetSet},
    };
}

}  // namespace HalvernSepHandlers
