#include "client/MessagePrinter.h"

#include "client/CommandTable.h"
#include "client/EventPrinter.h"

namespace SEP {
namespace {

constexpr std::int32_t kSuccessCode = 1097;
constexpr std::int32_t kFacility = 10;

const char* kindName(std::uint32_t kind)
{
    switch (kind) {
        case MESSAGE_KIND_COMMAND:
            return "command";
        case MESSAGE_KIND_EVENT:
            return "event";
        case MESSAGE_KIND_REPLY:
            return "reply";
        default:
            return "?";
    }
}

std::string addressText(const AddressC& address, bool json)
{
    if (!address.isValid()) return json ? "null" : "-";
    const std::string node = std::to_string(address.getNodeId());
    const std::string channel = std::to_string(address.getChannelId());
    return json ? "{\"node\":" + node + ",\"channel\":" + channel + "}" : node + "." + channel;
}

}  // namespace

PrintedMessageT printMessage(DecodedFrameT& frame, const std::vector<TypedValueT>& fieldSpecs, bool json)
{
    PrintedMessageT printed;
    DataReaderI& reader = *frame.coder;
    const CommandInfoT* command =
        frame.kind == MESSAGE_KIND_EVENT ? nullptr : findCommand(std::to_string(frame.messageId));
    const std::string name = command != nullptr                 ? commandLabel(*command)
                             : frame.kind == MESSAGE_KIND_EVENT ? eventName(frame.messageId)
                                                                : std::string();
    const char* coding = frame.coding == CodingE::Ascii ? "ascii" : "binary";

    std::int32_t code = 0, facility = 0;
    std::uint16_t level = 0;
    const bool header = reader.readI32(code) && reader.readI32(facility) && reader.readU16(level);
    std::vector<TypedValueT> fields;
    std::string errorText;
    bool fieldsOk = header;
    const bool success = header && code == kSuccessCode && facility == kFacility;
    if (header && success) {
        for (TypedValueT field : fieldSpecs) {
            if (!readTypedValue(reader, field)) {
                fieldsOk = false;
                break;
            }
            fields.push_back(field);
        }
    } else if (header) {
        fieldsOk = reader.readString(errorText);
    }
    printed.ok = fieldsOk;
    printed.errorReply = header && !success;
    printed.errorText = errorText;

    std::string& out = printed.text;
    if (json) {
        out = "{\"kind\":\"" + std::string(kindName(frame.kind)) + "\",\"id\":" + std::to_string(frame.messageId);
        if (!name.empty()) out += ",\"name\":" + jsonString(name);
        out += ",\"coding\":\"" + std::string(coding) + "\",\"source\":" + addressText(frame.source, true) +
               ",\"destination\":" + addressText(frame.destination, true);
        if (header)
            out += ",\"returnCode\":" + std::to_string(code) + ",\"facility\":" + std::to_string(facility) +
                   ",\"level\":" + std::to_string(level);
        out += ",\"fields\":[";
        for (std::size_t i = 0; i < fields.size(); ++i) {
            if (i > 0) out += ",";
            out += "{\"type\":\"" + std::string(valueTypeName(fields[i].type)) +
                   "\",\"value\":" + formatJsonValue(fields[i]) + "}";
        }
        out += "]";
        if (header && !success) out += ",\"error\":" + jsonString(errorText);
        if (!fieldsOk) out += ",\"complete\":false";
        out += "}\n";
        return printed;
    }
    out = std::string(kindName(frame.kind)) + " " + std::to_string(frame.messageId);
    if (!name.empty()) out += " (" + name + ")";
    out += " coding " + std::string(coding) + " from " + addressText(frame.source, false) + " to " +
           addressText(frame.destination, false) + "\n";
    if (header)
        out += "  return code: " + std::to_string(code) + "\n  facility: " + std::to_string(facility) +
               "\n  level: " + std::to_string(level) + "\n";
    for (std::size_t i = 0; i < fields.size(); ++i)
        out += "  field " + std::to_string(i + 1) + " (" + valueTypeName(fields[i].type) +
               "): " + formatValue(fields[i]) + "\n";
    if (header && !success) out += "  error: " + errorText + "\n";
    if (!fieldsOk) out += "  (the message ends before the fields that were asked for)\n";
    return printed;
}

}  // namespace SEP
