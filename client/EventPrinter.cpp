#include "client/EventPrinter.h"

#include "client/CommandTable.h"
#include "client/CtlReports.h"
#include "client/ReportC.h"
#include "client/SepExchangeC.h"
#include "sep/RecordCoding.h"
#include "sep/HalvernSepRecords.h"

namespace SEP {
namespace {

namespace REC = Varda::SEP::HALVERN;
using ctl::kChannelWidths;
using ctl::wordOf;

template <typename Record, typename Print>
bool decodeAndPrint(DataReaderI& reader, Print print)
{
    Record record;
    if (decodeRecord(reader, record) != DecodeResultE::Ok) return false;
    print(record);
    return true;
}

bool fillReport(std::uint16_t id, DataReaderI& reader, ReportC& report)
{
    switch (id) {
        case 1000:
            return decodeAndPrint<REC::EfiBtn>(reader, [&](const REC::EfiBtn& r) {
                const char* what = r.code == 1 ? "pressed" : r.code == 2 ? "released" : "unknown";
                report.choice("button", "power button", what, r.code);
            });
        case 1001:
            return decodeAndPrint<REC::EfiPwrSrc>(reader,
                                                  [&](const REC::EfiPwrSrc& r) { reportPowerSource(report, r.flags); });
        case 1002:
            report.note("the power controller's supervisor intervened");
            return true;
        case 1003:
            return decodeAndPrint<REC::ShutdownEvent>(
                reader, [&](const REC::ShutdownEvent& r) { report.number("timeoutMs", "shutdown in", r.value, "ms"); });
        case 1004:
            return decodeAndPrint<REC::UsbMonitorEvent>(reader, [&](const REC::UsbMonitorEvent& r) {
                report.flag("attached", "USB device", r.attached, "attached", "removed");
            });
        case 1005:
            return decodeAndPrint<REC::WlanChannelSelection>(reader, [&](const REC::WlanChannelSelection& r) {
                report.flag("selected", "channel selected", r.a);
                report.number("channel", "channel", r.b);
                report.choice("width", "width", wordOf(kChannelWidths, r.c), r.c);
            });
        case 1006:
            return decodeAndPrint<REC::UWFOverlayStateEvent>(reader, [&](const REC::UWFOverlayStateEvent& r) {
                const char* what = r.first == 1   ? "normal"
                                   : r.first == 2 ? "warning"
                                   : r.first == 3 ? "critical"
                                                  : "unknown";
                report.choice("state", "write filter overlay", what, r.first);
                report.number("usedMb", "overlay used", r.second, "MB");
                report.number("availableMb", "overlay available", r.third, "MB");
            });
        case 1007:
            return decodeAndPrint<REC::WlanRadarEvent>(
                reader, [&](const REC::WlanRadarEvent& r) { report.number("value", "radar", r.value); });
        default:
            return false;
    }
}

}  // namespace

void reportPowerSource(ReportC& report, const bool (&flags)[11])
{
    std::int64_t value = 0;
    for (int bit = 0; bit < 11; ++bit)
        if (flags[bit]) value |= std::int64_t{1} << bit;
    report.number("register", "power-source register", value);
    report.bits("flags", "power-source flag", flags, 11);
}

std::string eventName(std::uint16_t id)
{
    for (const auto& event : eventTable())
        if (event.id == id) return event.name;
    return {};
}

bool printKnownEvent(DecodedFrameT& event, bool json, std::string& printed)
{
    const std::string name = eventName(event.messageId);
    if (name.empty()) return false;
    // The reader is consumed as it goes; a second one leaves the frame readable for the generic printer.
    auto reader = event.coder->clone();
    reader->setReadFrame(event.bytes.data(), event.bytes.size());
    std::uint32_t kind = 0;
    std::uint16_t id = 0;
    AddressC source, destination;
    bool success = false;
    if (!reader->readHeader(kind, id, source, destination) || !readReplyHeader(*reader, success) || !success)
        return false;
    ReportC report("event", name, event.messageId);
    report.setTime(utcTimestamp());
    if (!fillReport(event.messageId, *reader, report)) return false;
    printed = report.render(json);
    return true;
}

}  // namespace SEP
