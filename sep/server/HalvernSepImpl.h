#pragma once
// The instrument's SEP command set: the reply header, error replies and the handlers registered on each
// server's channel.
#include <cstdint>
#include <initializer_list>
#include <string>

#include "framework/InstrumentEvents.h"
#include "framework/SerializableI.h"
#include "sep/ChannelC.h"
#include "sep/CommandSet.h"

class HalvernSepImpl {
public:
    static constexpr std::int32_t kApiLevel = HalvernRpc::kApiLevel;
    // The detail of the error reply (code 6) that answers a command whose success reply the coding
    // refused.
    static constexpr const char* kReplyNotEncodable =
        "reply not encodable: a text holds a control character or a byte above 0x7E";

    // The command table's name of `messageId` (HalvernRpc::commandName).
    static const char* CommandName(std::uint16_t messageId) { return HalvernRpc::commandName(messageId); }
    // One handler per command id of the table and the default callback for every other id.
    static void RegisterHandlers(SEP::ChannelC& channel);

    // Header 1097/10/0, then the record (nothing for a command without a reply record). When the coding
    // refuses the record, the error reply with code 6 and kReplyNotEncodable goes instead.
    static bool SendSuccess(SEP::ReceivedCommandC& command, MAL::UTI::SerializableI* record);
    // Logs the composed text and sends it with header 889/10/1.
    static bool SendError(SEP::ReceivedCommandC& command, int code, const std::string& detail = {},
                          const std::int32_t* failureNumber = nullptr);
    // Header 889/10/1 with `text`, its characters that no coding carries written as "\xNN".
    static bool SendText(SEP::ReceivedCommandC& command, const std::string& text);
    // Decodes the request; on failure answers and returns false: code 4 with the name given for a string
    // field (in the record's order of strings) that does not fit its buffer, else code 0 naming the command.
    // A handler names every string of its request record, reply buffers included.
    // Events: each goes to every running server, first started first, and stops at the first server that
    // cannot write it (logged); true when every server took it, also when none runs.
    // The lower layers' events as SEP events (StartSepServer installs it).
    static halvern::InstrumentEventsI& instrumentEvents();
    static bool raiseEfiBtnPressed();
    static bool raiseEfiBtnReleased();
    // Reads the power-source register at this moment; nothing is sent when that fails.
    static bool raisePwrSrcStatus();
    static bool raiseSuperIntervetion();
    static bool raiseShutdownNotif(std::uint32_t value);
    static bool raiseUsbDeviceAttachNotif(bool attached);
    static bool raiseWlanChanSelected(bool selected, std::uint32_t channel, std::int32_t result);
    static bool raiseUWFOverlayStateNotif(std::int32_t first, std::uint32_t second, std::uint32_t third);
    static bool raiseWlanRadarEvent(std::int32_t value);

    // The 11 power-source flags of the controller's register, one per bit from the lowest.
    static void PowerSourceFlags(std::int32_t reg, bool (&flags)[11]);

    static bool DecodeRequest(SEP::ReceivedCommandC& command, MAL::UTI::SerializableI& request,
                              std::initializer_list<const char*> stringNames = {});
};
