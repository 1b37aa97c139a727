#include "app/Log.h"
#include "efi/EFIServiceIPCStatusControlCommand.h"
#include "framework/InstrumentEvents.h"
#include "sep/RecordCoding.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
#include "sep/server/SepServer.h"
#include "sysmanager/SysManagerC.h"

namespace {

namespace REC = Varda::SEP::HALVERN;

constexpr std::uint16_t kEventEfiButton = 1000;
constexpr std::uint16_t kEventPowerSource = 1001;
constexpr std::uint16_t kEventSupervisor = 1002;
constexpr std::uint16_t kEventShutdown = 1003;
constexpr std::uint16_t kEventUsbDevice = 1004;
constexpr std::uint16_t kEventWlanChannel = 1005;
constexpr std::uint16_t kEventUwfOverlay = 1006;
constexpr std::uint16_t kEventWlanRadar = 1007;

bool raise(const char* function, std::uint16_t eventId, MAL::UTI::SerializableI* record)
{
    const auto fields = [record](SEP::DataWriterI& writer) {
        return writer.writeI32(HalvernRpc::kReturnCodeSuccess) && writer.writeI32(HalvernRpc::kFacility) &&
               writer.writeU16(0) && (record == nullptr || SEP::encodeRecord(writer, *record));
    };
    return halvern::forEachSepServer([&](HalvernRpc::TcpIpServerChannelSetupC& server) {
        if (server.readerWriter().sendToAll(eventId, SEP::MESSAGE_KIND_EVENT, fields)) return true;
        const std::string text = server.name() + ": failed to write command";
        WriteLog("[%s]: Got exception: %s", function, text.c_str());
        return false;
    });
}

bool raiseButton(const char* function, std::int32_t code)
{
    REC::EfiBtn record;
    record.code = code;
    return raise(function, kEventEfiButton, &record);
}

// The events the lower layers raise, as SEP events to every client.
class SepInstrumentEventsC final : public halvern::InstrumentEventsI {
public:
    void wlanChannelSelected(bool selected, std::uint32_t channel, std::int32_t width) override
    {
        HalvernSepImpl::raiseWlanChanSelected(selected, channel, width);
    }
    void wlanRadarEvent(std::int32_t eventCode) override { HalvernSepImpl::raiseWlanRadarEvent(eventCode); }
    void shutdownAnnounced(std::uint32_t timeoutMs) override { HalvernSepImpl::raiseShutdownNotif(timeoutMs); }
};

}  // namespace

halvern::InstrumentEventsI& HalvernSepImpl::instrumentEvents()
{
    // Never destroyed: a thread may still raise an event while the process exits.
    static auto* events = new SepInstrumentEventsC();
    return *events;
}

bool HalvernSepImpl::raiseEfiBtnPressed()
{
    return raiseButton("HalvernSepImpl::raiseEfiBtnPressed", 1);
}

bool HalvernSepImpl::raiseEfiBtnReleased()
{
    return raiseButton("HalvernSepImpl::raiseEfiBtnReleased", 2);
}

bool HalvernSepImpl::raisePwrSrcStatus()
{
    auto message =
        SysManagerC::Instance()->GetEFIServiceIPC().ExecuteStatusControlCommand(EFI_SC_PWRSOURCE, EFI_SC_GET, 0, true);
    if (!message) {
        WriteLog("Failed to get PowerSource register from EFI, can't raise event!");
        return false;
    }
    REC::EfiPwrSrc record;
    PowerSourceFlags(message->GetValue(), record.flags);
    return raise("HalvernSepImpl::raisePwrSrcStatus", kEventPowerSource, &record);
}

bool HalvernSepImpl::raiseSuperIntervetion()
{
    return raise("HalvernSepImpl::raiseSuperIntervetion", kEventSupervisor, nullptr);
}

bool HalvernSepImpl::raiseShutdownNotif(std::uint32_t value)
{
    REC::ShutdownEvent record;
    record.value = value;
    return raise("HalvernSepImpl::raiseShutdownNotif", kEventShutdown, &record);
}

bool HalvernSepImpl::raiseUsbDeviceAttachNotif(bool attached)
{
    REC::UsbMonitorEvent record;
    record.attached = attached;
    return raise("HalvernSepImpl::raiseUsbDeviceAttachNotif", kEventUsbDevice, &record);
}

bool HalvernSepImpl::raiseWlanChanSelected(bool selected, std::uint32_t channel, std::int32_t result)
{
    REC::WlanChannelSelection record;
    record.a = selected;
    record.b = channel;
    record.c = result;
    return raise("HalvernSepImpl::raiseWlanChanSelected", kEventWlanChannel, &record);
}

bool HalvernSepImpl::raiseUWFOverlayStateNotif(std::int32_t first, std::uint32_t second, std::uint32_t third)
{
    REC::UWFOverlayStateEvent record;
    record.first = first;
    record.second = second;
    record.third = third;
    return raise("HalvernSepImpl::raiseUWFOverlayStateNotif", kEventUwfOverlay, &record);
}

bool HalvernSepImpl::raiseWlanRadarEvent(std::int32_t value)
{
    REC::WlanRadarEvent record;
    record.value = value;
    return raise("HalvernSepImpl::raiseWlanRadarEvent", kEventWlanRadar, &record);
}
