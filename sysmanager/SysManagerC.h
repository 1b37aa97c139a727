#pragma once
// The process-wide system manager: created on first use, destroyed once at teardown. It is a facade: it
// keeps what the start-up, the main window and the command server share (the main window, the EFI service
// and the instrument application's shutdown answer) and forwards every other call to the component that
// answers it. The components get what they need from each other through their constructors; none of them
// reaches for the instance.
//
// | component            | header                            | facade members it answers                              |
// |----------------------|-----------------------------------|--------------------------------------------------------|
// | ChildProcessesC      | sysmanager/ChildProcessesC.h      | Set/GetBackendToFrontendDelay,                         |
// |   (child processes)  |                                   | Set/GetAllowMxApplicationStartup,                      |
// |                      |                                   | SetZentorApplicationProcess,                           |
// |                      |                                   | IsZentorApplicationRunning, StartComApplication,       |
// |                      |                                   | RequestComApplicationExit, CreateChildProcess,         |
// |                      |                                   | IsRunnigFromUserAccount, VerifyAndCloseProcess,        |
// |                      |                                   | ShutdownDiagnosticsService, IsInstrumentNameSet,       |
// |                      |                                   | SetInstrumentName, ShowDesktop                         |
// | DeviceModesC         | sysmanager/DeviceModesC.h         | productionMode, serviceMode, CurDevModeInfo,           |
// |   (device modes)     |                                   | HoldModeChanges, SetUWFilter, SetServiceStatus,        |
// |                      |                                   | PortForwardingActivation, PortForwardingDeactivation,  |
// |                      |                                   | GetPortForwardingStatus, portForwardCfgCMD,            |
// |                      |                                   | Set/GetRemoteDesktopStatus, hideMousePointer,          |
// |                      |                                   | writeMousePointerToRegistry, RestartExplorer,          |
// |                      |                                   | TerminateExplorer, SetWinFirewall,                     |
// |                      |                                   | kProductionModeFlagFile                                |
// | TimeKeepingC         | sysmanager/TimeKeepingC.h         | GetI2cRtcTime, IsRtcValid, startW32TimeService,        |
// |   (time)             |                                   | GetRtcSystemTime, Get/SetWindowsTimeInformation,       |
// |                      |                                   | deleteTimeOffsetFile,                                  |
// |                      |                                   | CalculateAndSaveOffsetTzStdDlght,                      |
// |                      |                                   | GetCalcOffsetTzStdNameDlght,                           |
// |                      |                                   | AddCalculatedOffsetToCurTimeDate,                      |
// |                      |                                   | GetTzDisplayWndKeyAndStdName, SetWindowsTimeZoneInfo,  |
// |                      |                                   | SetWindowsDateTime                                     |
// | WriteFilterC         | sysmanager/WriteFilterC.h         | GetUWFilter, CommitRegistryValue,                      |
// |   (write filter)     |                                   | ConfigureUnifiedWriteFilter                            |
// | FirmwareUpdateC      | sysmanager/FirmwareUpdateC.h      | readFwUpdateState, isFwUpdatePending,                  |
// |   (firmware update)  |                                   | GetPendingUpdateImage, isAutoUpdateFileAvailable,      |
// |                      |                                   | startUpdater, startFirmwareUpdate,                     |
// |                      |                                   | showFirmwareUpdaterErrorMsg, GetFirmwareObjectInfo,    |
// |                      |                                   | GetFirmwareUpdateInfo, kFwUpdateStateBytes,            |
// |                      |                                   | kAutoUpdateImage, kInternalImage                       |
// | UsbDevicesC          | sysmanager/UsbDevicesC.h          | RefreshUsbDevices, GetUsbDeviceCount, GetUsbDeviceAt,  |
// |   (USB, overlay)     |                                   | ResetUsbDevice, RecycleUsbPort, FormatUsbDevice,       |
// |                      |                                   | kFormatWaitMs, ReadUWFOverlay, startOverlayWatch,      |
// |                      |                                   | stopOverlayWatch                                       |
// | PowerControlC        | sysmanager/PowerControlC.h        | PowerCycleScannerDevice, RequestSensorboardHalt,       |
// |   (power)            |                                   | Set/GetSensorBoardAddress, ApplySensorBoardEndpoint,   |
// |                      |                                   | ConfigurePowerCycleRequest,                            |
// |                      |                                   | GetApplicationPowerRequestType, GetPowerRequestForce,  |
// |                      |                                   | GetPowerRequestTimeout, SendCloseEvent                 |
// | NetworkObserverC     | sysmanager/NetworkObserverC.h     | startNetworkObserver, stopNetworkObserver,             |
// |   (network observer) |                                   | removeGateways, runIpconfigCMD                         |
// | HardwareInformationC | sysmanager/HardwareInformationC.h | GetHwComponentInfo, kHwComponent*, BoardContentT,      |
// |   (hardware info)    |                                   | GetBoardContent, GetWindowsOsInfo,                     |
// |                      |                                   | DisableSerialMouseService, DisableSsdWriteCache        |
// | SysManagerC itself   | sysmanager/SysManagerC.h          | Instance, DestroyInstance, SetBeforeTeardown,          |
// |                      |                                   | Set/GetMainWindow, GetEFIServiceIPC,                   |
// |                      |                                   | Set/GetAppShutdownAnswer                               |
//
// Wiring (constructor arguments): ChildProcessesC and TimeKeepingC use the write filter; DeviceModesC the
// write filter, the child processes and the network observer; FirmwareUpdateC the EFI service (power source
// and batteries) and the child processes; PowerControlC the child processes and the main window; UsbDevicesC
// the main window and the write filter.
#include <array>
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>

#include "efi/EFIServiceIPC.h"
#include "platform/Handle.h"
#include "platform/Process.h"
#include "platform/Window.h"
#include "sysmanager/ChildProcessesC.h"
#include "sysmanager/DeviceModesC.h"
#include "sysmanager/FirmwareUpdateC.h"
#include "sysmanager/HardwareInformationC.h"
#include "sysmanager/MainWindowSourceI.h"
#include "sysmanager/NetworkObserverC.h"
#include "sysmanager/PowerControlC.h"
#include "sysmanager/TimeKeepingC.h"
#include "sysmanager/UsbDevicesC.h"
#include "sysmanager/WriteFilterC.h"

// The instrument application's answer to the shutdown notification.
enum AppShutdownAnswer : std::int32_t {
    APP_SHUTDOWN_NO_ANSWER = 0,
    APP_SHUTDOWN_NOT_STARTED = 1,
    APP_SHUTDOWN_STARTED = 2,
};

class SysManagerC : private MainWindowSourceI {
public:
    static SysManagerC* Instance();
    // Tears the instance down; runs once however many of the teardown paths call it.
    static void DestroyInstance();
    // Runs at the start of every DestroyInstance(), before the instance goes (the SEP servers install their
    // stop here, so that no command still uses the instance); nullptr: nothing.
    static void SetBeforeTeardown(void (*beforeTeardown)());

    // The main window also becomes the target of the EFI notifications.
    void SetMainWindow(platform::WindowHandle window);
    platform::WindowHandle GetMainWindow() const override;

    EFIServiceIPC& GetEFIServiceIPC() { return m_efiServiceIPC; }

    // Set by the command server when the instrument application reports on its shutdown.
    void SetAppShutdownAnswer(std::int32_t answer) { m_appShutdownAnswer = answer; }
    std::int32_t GetAppShutdownAnswer() const { return m_appShutdownAnswer; }

    // Child processes.
    void SetBackendToFrontendDelay(std::uint32_t milliseconds)
    {
        m_childProcesses.SetBackendToFrontendDelay(milliseconds);
    }
    std::uint32_t GetBackendToFrontendDelay() const { return m_childProcesses.GetBackendToFrontendDelay(); }
    void SetAllowMxApplicationStartup(bool allow) { m_childProcesses.SetAllowMxApplicationStartup(allow); }
    bool GetAllowMxApplicationStartup() const { return m_childProcesses.GetAllowMxApplicationStartup(); }
    void SetZentorApplicationProcess(platform::UniqueHandle process)
    {
        m_childProcesses.SetZentorApplicationProcess(std::move(process));
    }
    bool IsZentorApplicationRunning() { return m_childProcesses.IsZentorApplicationRunning(); }
    bool StartComApplication() { return m_childProcesses.StartComApplication(); }
    bool RequestComApplicationExit() { return m_childProcesses.RequestComApplicationExit(); }
    bool CreateChildProcess(const std::wstring& application, const std::wstring& commandLine,
                            std::uint32_t creationFlags, const platform::StartupInfoT& startup,
                            platform::ProcessInformationT* started, bool useWinlogonToken)
    {
        return m_childProcesses.CreateChildProcess(application, commandLine, creationFlags, startup, started,
                                                   useWinlogonToken);
    }
    int IsRunnigFromUserAccount() { return m_childProcesses.IsRunnigFromUserAccount(); }
    bool VerifyAndCloseProcess(platform::ProcessInformationT* process)
    {
        return m_childProcesses.VerifyAndCloseProcess(process);
    }
    void ShutdownDiagnosticsService() { m_childProcesses.ShutdownDiagnosticsService(); }
    bool IsInstrumentNameSet() { return m_childProcesses.IsInstrumentNameSet(); }
    bool SetInstrumentName(const std::wstring& name) { return m_childProcesses.SetInstrumentName(name); }
    bool ShowDesktop() { return m_childProcesses.ShowDesktop(); }

    // Write filter.
    std::uint32_t ConfigureUnifiedWriteFilter() { return m_writeFilter.ConfigureUnifiedWriteFilter(); }
    bool GetUWFilter(bool& active) { return m_writeFilter.GetUWFilter(active); }
    bool CommitRegistryValue(const std::wstring& key, const std::wstring& valueName)
    {
        return m_writeFilter.CommitRegistryValue(key, valueName);
    }

    // Power control.
    bool PowerCycleScannerDevice() { return m_powerControl.PowerCycleScannerDevice(); }
    bool RequestSensorboardHalt() { return m_powerControl.RequestSensorboardHalt(); }
    void SetSensorBoardAddress(const std::string& address) { m_powerControl.SetSensorBoardAddress(address); }
    std::string GetSensorBoardAddress() const { return m_powerControl.GetSensorBoardAddress(); }
    void ApplySensorBoardEndpoint() const { m_powerControl.ApplySensorBoardEndpoint(); }
    void ConfigurePowerCycleRequest(std::int32_t type, bool force, std::uint32_t timeoutSeconds)
    {
        m_powerControl.ConfigurePowerCycleRequest(type, force, timeoutSeconds);
    }
    std::int32_t GetApplicationPowerRequestType() const { return m_powerControl.GetApplicationPowerRequestType(); }
    bool GetPowerRequestForce() const { return m_powerControl.GetPowerRequestForce(); }
    std::uint32_t GetPowerRequestTimeout() const { return m_powerControl.GetPowerRequestTimeout(); }
    bool SendCloseEvent() { return m_powerControl.SendCloseEvent(); }

    // USB devices and the write filter's overlay.
    bool RefreshUsbDevices(bool verifyEnumeration) { return m_usbDevices.RefreshUsbDevices(verifyEnumeration); }
    void GetUsbDeviceCount(std::uint32_t& devices, std::uint32_t& enumerated) const
    {
        m_usbDevices.GetUsbDeviceCount(devices, enumerated);
    }
    bool GetUsbDeviceAt(std::uint32_t index, platform::UsbDeviceT& device) const
    {
        return m_usbDevices.GetUsbDeviceAt(index, device);
    }
    bool ResetUsbDevice(std::uint32_t port) { return m_usbDevices.ResetUsbDevice(port); }
    bool RecycleUsbPort(std::uint16_t portId) { return m_usbDevices.RecycleUsbPort(portId); }
    static constexpr std::uint32_t kFormatWaitMs = UsbDevicesC::kFormatWaitMs;
    bool FormatUsbDevice() { return m_usbDevices.FormatUsbDevice(); }
    bool ReadUWFOverlay(std::uint32_t& consumptionMb, std::uint32_t& availableMb)
    {
        return m_usbDevices.ReadUWFOverlay(consumptionMb, availableMb);
    }
    bool startOverlayWatch(OverlayWatchC::PauseFn pause = {})
    {
        return m_usbDevices.startOverlayWatch(std::move(pause));
    }
    bool stopOverlayWatch() { return m_usbDevices.stopOverlayWatch(); }

    // Time keeping.
    bool GetI2cRtcTime(platform::SystemTime& rtcTime) { return m_timeKeeping.GetI2cRtcTime(rtcTime); }
    bool IsRtcValid() const { return m_timeKeeping.IsRtcValid(); }
    bool startW32TimeService() { return m_timeKeeping.startW32TimeService(); }
    bool GetRtcSystemTime() { return m_timeKeeping.GetRtcSystemTime(); }
    bool GetWindowsTimeInformation(WindowsTimeInfo& info) { return m_timeKeeping.GetWindowsTimeInformation(info); }
    bool SetWindowsTimeInformation(const WindowsTimeInfo& info)
    {
        return m_timeKeeping.SetWindowsTimeInformation(info);
    }
    bool deleteTimeOffsetFile() { return m_timeKeeping.deleteTimeOffsetFile(); }
    bool CalculateAndSaveOffsetTzStdDlght() { return m_timeKeeping.CalculateAndSaveOffsetTzStdDlght(); }
    bool GetCalcOffsetTzStdNameDlght(std::int64_t& offset, std::string& standardName, bool& daylightSaving)
    {
        return m_timeKeeping.GetCalcOffsetTzStdNameDlght(offset, standardName, daylightSaving);
    }
    bool AddCalculatedOffsetToCurTimeDate(const platform::SystemTime& rtcTime, std::int64_t offset,
                                          platform::SystemTime& corrected)
    {
        return m_timeKeeping.AddCalculatedOffsetToCurTimeDate(rtcTime, offset, corrected);
    }
    bool GetTzDisplayWndKeyAndStdName(const std::wstring& standardName, TimeZoneDescription& zone)
    {
        return m_timeKeeping.GetTzDisplayWndKeyAndStdName(standardName, zone);
    }
    bool SetWindowsTimeZoneInfo(const WindowsTimeInfo& info) { return m_timeKeeping.SetWindowsTimeZoneInfo(info); }
    bool SetWindowsDateTime(const WindowsTimeInfo& info, bool local)
    {
        return m_timeKeeping.SetWindowsDateTime(info, local);
    }

    // Device modes.
    using CurDevModeInfo = DeviceModesC::CurDevModeInfo;
    using DeviceModeTextsT = DeviceModesC::DeviceModeTextsT;
    bool productionMode(bool enable, CurDevModeInfo& result) { return m_deviceModes.productionMode(enable, result); }
    std::unique_lock<std::recursive_mutex> HoldModeChanges() { return m_deviceModes.HoldModeChanges(); }
    bool serviceMode(bool enable, CurDevModeInfo& result) { return m_deviceModes.serviceMode(enable, result); }
    bool SetUWFilter(bool enable) { return m_deviceModes.SetUWFilter(enable); }
    bool SetServiceStatus(const std::wstring& serviceName, bool disable)
    {
        return m_deviceModes.SetServiceStatus(serviceName, disable);
    }
    bool PortForwardingActivation() { return m_deviceModes.PortForwardingActivation(); }
    bool PortForwardingDeactivation() { return m_deviceModes.PortForwardingDeactivation(); }
    bool GetPortForwardingStatus(bool& active) { return m_deviceModes.GetPortForwardingStatus(active); }
    static bool portForwardCfgCMD(const std::wstring& parameters)
    {
        return DeviceModesC::portForwardCfgCMD(parameters);
    }
    bool SetRemoteDesktopStatus(bool enable) { return m_deviceModes.SetRemoteDesktopStatus(enable); }
    bool GetRemoteDesktopStatus(bool& enabled) { return m_deviceModes.GetRemoteDesktopStatus(enabled); }
    bool hideMousePointer(bool hide) { return m_deviceModes.hideMousePointer(hide); }
    bool writeMousePointerToRegistry(bool hidden) { return m_deviceModes.writeMousePointerToRegistry(hidden); }
    bool RestartExplorer() { return m_deviceModes.RestartExplorer(); }
    bool TerminateExplorer() { return m_deviceModes.TerminateExplorer(); }
    bool SetWinFirewall(platform::FirewallProfileE profile, bool enable)
    {
        return m_deviceModes.SetWinFirewall(profile, enable);
    }
    static constexpr const wchar_t* kProductionModeFlagFile = DeviceModesC::kProductionModeFlagFile;

    // Firmware update.
    static constexpr std::size_t kFwUpdateStateBytes = FirmwareUpdateC::kFwUpdateStateBytes;
    static constexpr const wchar_t* kAutoUpdateImage = FirmwareUpdateC::kAutoUpdateImage;
    static constexpr const wchar_t* kInternalImage = FirmwareUpdateC::kInternalImage;
    bool readFwUpdateState() { return m_firmwareUpdate.readFwUpdateState(); }
    bool isFwUpdatePending() const { return m_firmwareUpdate.isFwUpdatePending(); }
    std::wstring GetPendingUpdateImage() const { return m_firmwareUpdate.GetPendingUpdateImage(); }
    bool isAutoUpdateFileAvailable() { return m_firmwareUpdate.isAutoUpdateFileAvailable(); }
    bool startUpdater(const std::wstring& imagePath, bool force, bool& shutdownRequired)
    {
        return m_firmwareUpdate.startUpdater(imagePath, force, shutdownRequired);
    }
    bool startFirmwareUpdate(const std::wstring& imagePath, const std::wstring& extraArgument, bool& shutdownRequired,
                             bool batteryCheck)
    {
        return m_firmwareUpdate.startFirmwareUpdate(imagePath, extraArgument, shutdownRequired, batteryCheck);
    }
    bool showFirmwareUpdaterErrorMsg(const std::wstring& componentList)
    {
        return m_firmwareUpdate.showFirmwareUpdaterErrorMsg(componentList);
    }
    bool GetFirmwareObjectInfo(std::uint32_t objectId, FwObjectInfoT& info)
    {
        return m_firmwareUpdate.GetFirmwareObjectInfo(objectId, info);
    }
    bool GetFirmwareUpdateInfo(const std::wstring& imagePath, FwUpdateInfoT& info)
    {
        return m_firmwareUpdate.GetFirmwareUpdateInfo(imagePath, info);
    }

    // Network observer.
    bool startNetworkObserver() { return m_networkObserver.startNetworkObserver(); }
    bool stopNetworkObserver(bool renew) { return m_networkObserver.stopNetworkObserver(renew); }
    static bool removeGateways() { return NetworkObserverC::removeGateways(); }
    static bool runIpconfigCMD(const std::wstring& parameters) { return NetworkObserverC::runIpconfigCMD(parameters); }

    // Hardware and system information.
    static constexpr std::uint32_t kHwComponentWlan = HardwareInformationC::kHwComponentWlan;
    static constexpr std::uint32_t kHwComponentMoraEthernet = HardwareInformationC::kHwComponentMoraEthernet;
    static constexpr std::uint32_t kHwComponentLemoEthernet = HardwareInformationC::kHwComponentLemoEthernet;
    static constexpr std::uint32_t kHwComponentDma = HardwareInformationC::kHwComponentDma;
    static constexpr std::uint16_t kHwComponentMissing = HardwareInformationC::kHwComponentMissing;
    static constexpr std::uint16_t kHwComponentWorking = HardwareInformationC::kHwComponentWorking;
    static constexpr std::uint16_t kHwComponentFailing = HardwareInformationC::kHwComponentFailing;
    bool GetHwComponentInfo(std::uint32_t componentId, std::uint16_t& state, std::string& description)
    {
        return m_hardwareInformation.GetHwComponentInfo(componentId, state, description);
    }
    using BoardContentT = HardwareInformationC::BoardContentT;
    bool GetBoardContent(BoardContentT& content) { return m_hardwareInformation.GetBoardContent(content); }
    bool GetWindowsOsInfo(std::array<std::string, 6>& info) { return m_hardwareInformation.GetWindowsOsInfo(info); }
    bool DisableSerialMouseService(bool& changed) { return m_hardwareInformation.DisableSerialMouseService(changed); }
    bool DisableSsdWriteCache(std::wstring& diskKey, bool& changed)
    {
        return m_hardwareInformation.DisableSsdWriteCache(diskKey, changed);
    }

private:
    SysManagerC();
    ~SysManagerC() override;

    // The main window is set by the main thread and read by the command server's and the components.
    mutable std::mutex m_lock;
    platform::WindowHandle m_mainWindow;
    std::atomic<std::int32_t> m_appShutdownAnswer{APP_SHUTDOWN_NO_ANSWER};
    EFIServiceIPC m_efiServiceIPC;
    // A component is declared after those it is given, so that it goes before them.
    WriteFilterC m_writeFilter;
    HardwareInformationC m_hardwareInformation;
    ChildProcessesC m_childProcesses{m_writeFilter};
    TimeKeepingC m_timeKeeping{m_writeFilter};
    PowerControlC m_powerControl{m_childProcesses, *this};
    FirmwareUpdateC m_firmwareUpdate{m_efiServiceIPC, m_childProcesses};
    // The network observer is declared after the device modes that it is given to; the device modes only
    // use it in a switch.
    DeviceModesC m_deviceModes{m_writeFilter, m_childProcesses, m_networkObserver};
    // Second to last: the overlay watch's thread has ended before anything but the observer goes.
    UsbDevicesC m_usbDevices{*this, m_writeFilter};
    // Last member: it goes first, so the observer's thread has ended before anything else of the instance goes.
    NetworkObserverC m_networkObserver;
};
