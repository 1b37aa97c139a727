// Commands of the USB devices and the USB stick. The records' fields, in wire order:
//   USB_GET_DEV_COUNT (1037) answers UsbDeviceCountInfo: a = the number of attached USB devices, b = how many
//     of them completed their enumeration (the list is the one the last device change left).
//   USB_GET_DEV_AT_IDX (1038) answers UsbDeviceInfo of the device at an index from 0: a = vendor id,
//     b = product id, c = a mass-storage device (a stick or a disk), d = its port on its hub (the port that
//     USB_DEV_RESET takes).
//   USB_DEV_RESET (1039) restarts the device on a port, as unplugging and plugging it would.
//   1058 quick-formats the USB stick F: under its own label; no stick attached is a failure, and so is a
//     second format while one runs (said in the reply).
#include "app/Log.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;

void handleUsbDeviceCount(SEP::ReceivedCommandC& command)
{
    REC::UsbDeviceCountInfo reply;
    SysManagerC::Instance()->GetUsbDeviceCount(reply.a, reply.b);
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleUsbDeviceAtIndex(SEP::ReceivedCommandC& command)
{
    REC::UsbDeviceIndex request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request to return USB device at index %d", static_cast<int>(request.index));
    platform::UsbDeviceT device;
    if (!SysManagerC::Instance()->GetUsbDeviceAt(request.index, device)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL,
                                  "Failed to retrieve USB Device at given index.");
        return;
    }
    REC::UsbDeviceInfo reply;
    reply.a = device.vendorId;
    reply.b = device.productId;
    reply.c = device.massStorage;
    reply.d = device.port;
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleUsbDeviceReset(SEP::ReceivedCommandC& command)
{
    REC::UsbDeviceResetCmd request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request to perform Reset USB device on port %d", static_cast<int>(request.portId));
    if (!SysManagerC::Instance()->ResetUsbDevice(request.portId)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to reset the USB Device.");
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

void handleFormatUsbDevice(SEP::ReceivedCommandC& command)
{
    if (!SysManagerC::Instance()->FormatUsbDevice()) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL,
                                  failureOrBusy("failed to run format usb device",
                                                "failed to run format usb device, a format is already running"));
        return;
    }
    HalvernSepImpl::SendSuccess(command, nullptr);
}

}  // namespace

std::vector<HandlerEntryT> usbHandlers()
{
    return {
        {1037, handleUsbDeviceCount},
        {1038, handleUsbDeviceAtIndex},
        {1039, handleUsbDeviceReset},
        {1058, handleFormatUsbDevice},
    };
}

}  // namespace HalvernSepHandlers
