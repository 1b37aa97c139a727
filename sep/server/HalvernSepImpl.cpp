#include "sep/server/HalvernSepImpl.h"

#include <exception>
#include <functional>

#include "app/Log.h"
#include "platform/WinError.h"
#include "sep/CoderBaseC.h"
#include "sep/RecordCoding.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {

EFIServiceIPC& efiService()
{
    return SysManagerC::Instance()->GetEFIServiceIPC();
}

void sendEfiFailure(SEP::ReceivedCommandC& command)
{
    HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_EFI);
}

const char* failureOrBusy(const char* failed, const char* busy)
{
    return platform::lastError() == platform::kErrorBusy ? busy : failed;
}

}  // namespace HalvernSepHandlers

namespace {

using Handler = std::function<void(SEP::ReceivedCommandC&)>;

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

void HalvernSepImpl::RegisterHandlers(SEP::ChannelC& channel)
{
    std::vector<HalvernSepHandlers::HandlerEntryT> completed;
    for (auto group :
         {HalvernSepHandlers::systemHandlers, HalvernSepHandlers::efiHandlers, HalvernSepHandlers::timeHandlers,
          HalvernSepHandlers::linkHandlers, HalvernSepHandlers::networkHandlers, HalvernSepHandlers::wlanHandlers,
          HalvernSepHandlers::updateHandlers, HalvernSepHandlers::modeHandlers, HalvernSepHandlers::infoHandlers,
          HalvernSepHandlers::usbHandlers}) {
        const auto entries = group();
        completed.insert(completed.end(), entries.begin(), entries.end());
    }
    for (const auto& entry : completed)
        channel.registerCommandHandler(entry.id, guarded(entry.handler));
    channel.setDefaultCallback(guarded(handleDefault));
}

bool HalvernSepImpl::SendSuccess(SEP::ReceivedCommandC& command, MAL::UTI::SerializableI* record)
{
    const auto result = command.reply([record](SEP::DataWriterI& writer) {
        return writeHeader(writer, true) && (record == nullptr || SEP::encodeRecord(writer, *record));
    });
    if (result != SEP::ReceivedCommandC::ReplyResultE::NotEncoded)
        return result == SEP::ReceivedCommandC::ReplyResultE::Sent;
    // Texts in replies often come from outside (a board's or a program's output, a client's own label):
    // one the coding cannot carry must not leave the command unanswered.
    return SendError(command, HalvernRpc::SEP_ERR_GENERAL, kReplyNotEncodable);
}

bool HalvernSepImpl::SendText(SEP::ReceivedCommandC& command, const std::string& text)
{
    // The text may carry a detail from outside; what the coding refuses is sent as "\xNN".
    const std::string sent = SEP::carriableText(text).substr(0, HalvernRpc::kErrorTextMax);
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
    if (result == SEP::DecodeResultE::NotTerminated) {
        // Every handler names its strings; a missing name still answers code 4, with the string's position.
        const bool named = badString >= 0 && badString < static_cast<int>(stringNames.size()) &&
                           stringNames.begin()[badString] != nullptr;
        SendError(command, HalvernRpc::SEP_ERR_NOT_TERMINATED,
                  named ? std::string(stringNames.begin()[badString]) : "string " + std::to_string(badString + 1));
        return false;
    }
    SendError(command, HalvernRpc::SEP_ERR_DECODE,
              std::string(CommandName(command.messageId())) + " (" + std::to_string(command.messageId()) + ")");
    return false;
}
