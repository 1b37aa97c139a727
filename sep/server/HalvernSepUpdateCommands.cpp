// Commands of the firmware update: starting it, and what the installed firmware and an image hold.
#include "app/Log.h"
#include "platform/Text.h"
#include "sep/server/HalvernSepHandlers.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"
#include "sysmanager/SysManagerC.h"

namespace HalvernSepHandlers {
namespace {

namespace REC = Varda::SEP::HALVERN;

void handleStartUpdate(SEP::ReceivedCommandC& command)
{
    WriteLog("Got start update request, msg id: %d", static_cast<int>(command.messageId()));
    REC::StartUpdate request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"firmware path"})) return;
    WriteLog("Start update request in %s mode, force: %d, path: %s", command.messageId() == 1011 ? "legacy" : "regular",
             request.force ? 1 : 0, request.path);
    SysManagerC* manager = SysManagerC::Instance();
    bool shutdownRequired = false;
    if (!manager->startUpdater(platform::widen(request.path), request.force, shutdownRequired)) {
        HalvernSepImpl::SendError(
            command, HalvernRpc::SEP_ERR_GENERAL,
            failureOrBusy("Failed to start Firmware Upgrader",
                          "Failed to start Firmware Upgrader, an update is already being started"));
        return;
    }
    // The client hears the answer before the close sequence takes the connection away.
    HalvernSepImpl::SendSuccess(command, nullptr);
    if (shutdownRequired) {
        // The updater replaces Halvern's own files: Halvern quits through its close sequence.
        WriteLog("shutting down halvern for pending updates...");
        manager->ConfigurePowerCycleRequest(POWER_REQUEST_QUIT, false, 0);
        manager->SendCloseEvent();
    }
}

void fillFileInfo(const FwObjectInfoT& object, REC::FwFileInfo& record)
{
    object.name.copy(record.name, sizeof record.name - 1);
    record.a = object.objectId;
    record.b = object.versionMajor;
    record.c = object.versionMinor;
    record.d = object.build;
    record.e = object.sizeBytes;
    record.f = object.type;
}

// First the installed firmware's name, then the image's path and its header.
void sendUpdateInfo(SEP::ReceivedCommandC& command, const FwUpdateInfoT& info)
{
    REC::FwUpdateInfo reply;
    info.installedName.copy(reply.first, sizeof reply.first - 1);
    info.imagePath.copy(reply.second, sizeof reply.second - 1);
    reply.a = info.image.objectId;
    reply.b = info.image.versionMajor;
    reply.c = info.image.versionMinor;
    reply.d = info.image.build;
    reply.e = info.image.sizeBytes;
    reply.f = info.image.type;
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleUpdateInfo(SEP::ReceivedCommandC& command)
{
    FwUpdateInfoT info;
    if (!SysManagerC::Instance()->GetFirmwareUpdateInfo(L"", info)) {
        // The command table answers these with code 3.
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_GET);
        return;
    }
    sendUpdateInfo(command, info);
}

void handleUpdateInfoOfFile(SEP::ReceivedCommandC& command)
{
    REC::FwNewFileName request;
    if (!HalvernSepImpl::DecodeRequest(command, request, {"firmware file path"})) return;
    WriteLog("Got request to get update information, new fw file name: %s", request.name);
    FwUpdateInfoT info;
    if (request.name[0] == '\0' ||
        !SysManagerC::Instance()->GetFirmwareUpdateInfo(platform::widen(request.name), info)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to get Firmware Update Information.");
        return;
    }
    sendUpdateInfo(command, info);
}

void handleFirmwareInfo(SEP::ReceivedCommandC& command)
{
    FwObjectInfoT object;
    if (!SysManagerC::Instance()->GetFirmwareObjectInfo(0, object)) {
        // The command table answers these with code 3.
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_WIFI_GET);
        return;
    }
    REC::CurFWinfo reply;
    fillFileInfo(object, reply);
    HalvernSepImpl::SendSuccess(command, &reply);
}

void handleFirmwareObjectInfo(SEP::ReceivedCommandC& command)
{
    REC::FwObjectId request;
    if (!HalvernSepImpl::DecodeRequest(command, request)) return;
    WriteLog("Got request to get firmware POB information by using the object id: %d",
             static_cast<int>(request.objectId));
    FwObjectInfoT object;
    if (!SysManagerC::Instance()->GetFirmwareObjectInfo(request.objectId, object)) {
        HalvernSepImpl::SendError(command, HalvernRpc::SEP_ERR_GENERAL, "Failed to get firmware POB information.");
        return;
    }
    REC::CurFWinfo reply;
    fillFileInfo(object, reply);
    HalvernSepImpl::SendSuccess(command, &reply);
}

}  // namespace

std::vector<HandlerEntryT> updateHandlers()
{
    return {
        {1011, handleStartUpdate}, {1033, handleUpdateInfo},   {1034, handleUpdateInfoOfFile},
        {1035, handleStartUpdate}, {1040, handleFirmwareInfo}, {1041, handleFirmwareObjectInfo},
    };
}

}  // namespace HalvernSepHandlers
