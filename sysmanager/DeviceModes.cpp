// The switch between customer mode and production or service mode. Both switches run the same steps and
// differ only in their texts. Production mode collects the failures of its features and goes on, so that a
// factory station gets as much of the device opened as it can; customer mode stops at its first failing
// feature after the two services, so that a half-closed device is never reported as delivered.
#include <cstring>

#include "app/Log.h"
#include "net/NetManagerC.h"
#include "platform/FileSystem.h"
#include "platform/WinError.h"
#include "sysmanager/ChildProcessesC.h"
#include "sysmanager/DeviceModesC.h"
#include "sysmanager/NetworkObserverC.h"
#include "sysmanager/WriteFilterC.h"

struct DeviceModesC::DeviceModeTextsT {
    const char* tag;
    const char* entryLog;
    const char* flagFileFailure;
    const char* flagFileFailureLog;
    const char* uwfFailureLog;
    const char* configureLog;
    const char* gigabitFailure;
    bool logGigabit;
};

namespace {

constexpr int kSpeed100MbFullDuplex = 4;

const DeviceModesC::DeviceModeTextsT kProductionTexts = {
    "SysManagerC::productionMode",
    "productionMode %d",
    "Device Mode Change to Production mode: not successful completion, some features are not suitably configured.",
    "[ERROR]: %d: Device Mode Change to Production mode: not successful completion, some features are not suitably "
    "configured.",
    "[%s] [ERROR]: UWF configuration in production mode failed: %d",
    "Configure all features of Production Mode",
    "Internal error, failed to set ethernet speed to 1Gbps Full Duplex.",
    true,
};

const DeviceModesC::DeviceModeTextsT kServiceTexts = {
    "SysManagerC::serviceMode",
    "serviceMode %d",
    "Device Mode Change to Service mode: not successful completion, some features are not suitably configured.",
    "[ERROR]: %d: Device Mode Change to Service mode: not successful completion, some features are not suitably "
    "configured.",
    "[%s] [ERROR]: UWF configuration in service mode failed: %d",
    "Configure all features of Service Mode",
    "Internal error, failed to set Ethernet speed to 1Gbps Full Duplex.",
    false,
};

int lastErrorNumber()
{
    return static_cast<int>(platform::lastError());
}

}  // namespace

DeviceModesC::DeviceModesC(WriteFilterC& writeFilter, ChildProcessesC& childProcesses,
                           NetworkObserverC& networkObserver)
    : m_writeFilter(writeFilter), m_childProcesses(childProcesses), m_networkObserver(networkObserver)
{}

bool DeviceModesC::productionMode(bool enable, CurDevModeInfo& result)
{
    return switchDeviceMode(kProductionTexts, enable, result);
}

bool DeviceModesC::serviceMode(bool enable, CurDevModeInfo& result)
{
    return switchDeviceMode(kServiceTexts, enable, result);
}

void DeviceModesC::setModeField(char (&field)[CurDevModeInfo::kTextChars], const std::string& text)
{
    m_modeFieldText = text;
    const std::size_t copied = m_modeFieldText.copy(field, sizeof field - 1);
    field[copied] = '\0';
}

bool DeviceModesC::switchDeviceMode(const DeviceModeTextsT& texts, bool enable, CurDevModeInfo& result)
{
    std::lock_guard<std::recursive_mutex> guard(m_modeLock);
    // Whatever way the switch ends, the next one starts without this one's texts.
    struct ScratchReset {
        DeviceModesC& manager;
        ~ScratchReset()
        {
            manager.m_modeFieldText.clear();
            manager.m_modeRestartText.clear();
        }
    } scratchReset{*this};
    result = CurDevModeInfo{};
    const char* tag = texts.tag;
    WriteLog(texts.entryLog, enable ? 1 : 0);

    if (!m_childProcesses.IsInstrumentNameSet() && !enable) {
        setModeField(result.writeFilter, "Invalid instrument name, custom mode not allowed!");
        WriteLog("[ERROR]: Invalid instrument name, custom mode not allowed!");
        return false;
    }
    // An opened device may route beyond its own links again.
    if (enable) m_networkObserver.stopNetworkObserver(true);

    if (m_modeSwitchPending != 0) {
        WriteLog("[ERROR]: No switch possible before restarting device");
        setModeField(result.writeFilter, "No switch possible before restarting device!");
        return false;
    }

    bool succeeded = true;
    bool uwfActive = true;
    if (!m_writeFilter.GetUWFilter(uwfActive)) {
        setModeField(result.writeFilter, "Failed to get the current UWF configuration!");
        WriteLog("[%s] [ERROR]: GetUWFilter Failed.", tag);
        succeeded = false;
        if (!enable) return false;
        uwfActive = true;
    }
    result.restartRequired = uwfActive == enable;
    if (result.restartRequired) m_modeSwitchPending = 1;

    if (!uwfActive && !enable) {
        if (!SetUWFilter(true)) {
            setModeField(result.writeFilter, "Failed to configure the UWF");
            WriteLog("[%s] [ERROR]: UWF configuration in customer mode failed: %d", tag, lastErrorNumber());
            return false;
        }
        setModeField(result.writeFilter, "UWF: ON");
        WriteLog("UWF: ON!");
        m_modeRestartText = "A restart is required for the configuration of the UWF.";
    } else if (!uwfActive && enable) {
        setModeField(result.writeFilter, "UWF: OFF");
        m_modeRestartText = "UWF is already deactivated, no restart is required.";
        WriteLog("%s", m_modeRestartText.c_str());
    } else if (uwfActive && !enable) {
        setModeField(result.writeFilter, "UWF: ON");
        m_modeRestartText = "UWF is already activated, no restart is required.";
    } else {
        // The flag file sits outside the filter's protection: the next boot finds it and completes the switch
        // on an unprotected system.
        platform::UniqueHandle flagFile =
            platform::createFile(kProductionModeFlagFile, platform::kGenericRead | platform::kGenericWrite, 0, false,
                                 platform::kOpenAlways, platform::kFileAttributeNormal);
        if (!flagFile) {
            const int error = lastErrorNumber();
            setModeField(result.writeFilter, texts.flagFileFailure);
            WriteLog(texts.flagFileFailureLog, error);
            return false;
        }
        flagFile.reset();
        if (SetUWFilter(false)) {
            setModeField(result.writeFilter, "UWF: OFF");
            WriteLog("UWF: OFF!");
        } else {
            setModeField(result.writeFilter, "Failed to configure the UWF");
            WriteLog(texts.uwfFailureLog, tag, lastErrorNumber());
            succeeded = false;
        }
        m_modeRestartText = "A restart is required for the configuration of the UWF.";
    }
    const std::size_t copied = m_modeRestartText.copy(result.restart, sizeof result.restart - 1);
    result.restart[copied] = '\0';

    if (!configureModeFeatures(texts, enable, result)) succeeded = false;
    if (!succeeded) {
        // A customer-mode feature that failed has already ended the switch.
        if (!enable) return false;
    }
    setModeField(result.result, succeeded ? "Device Mode Change: successfully completed"
                                          : "Device Mode Change: Error during switching the mode!");
    return succeeded;
}

bool DeviceModesC::configureModeFeatures(const DeviceModeTextsT& texts, bool enable, CurDevModeInfo& result)
{
    const char* tag = texts.tag;
    if (enable) {
        bool succeeded = true;
        WriteLog("%s", texts.configureLog);
        // A service that cannot be enabled leaves its text; the device is still usable for the factory.
        const struct {
            const wchar_t* name;
            const char* failure;
        } services[] = {{L"LanmanWorkstation", "Could not activate WORKSTATION service"},
                        {L"SessionEnv", "Could not activate RDP CONFIG service"}};
        for (const auto& service : services) {
            if (SetServiceStatus(service.name, false)) {
                WriteLogWindows("Enabled Service: %ws", service.name);
            } else {
                WriteLogWindows("[ERROR]: Could not activate requested service %ws (Error:%d)", service.name,
                                lastErrorNumber());
                setModeField(result.servicesAndPortForwarding, service.failure);
            }
        }
        if (PortForwardingActivation()) {
            setModeField(result.servicesAndPortForwarding, "Port Forwarding: ON");
            WriteLog("Port Forwarding: ON!");
        } else {
            const int error = lastErrorNumber();
            setModeField(result.servicesAndPortForwarding,
                         "Internal error, failed to configure port forwarding table.");
            WriteLog("[%s] [ERROR]: PortForwarding function failed: %d", tag, error);
            succeeded = false;
        }
        if (RestartExplorer()) {
            setModeField(result.fileExplorer, "File Explorer: ON");
            WriteLog("File Explorer: ON!");
        } else {
            const int error = lastErrorNumber();
            setModeField(result.fileExplorer, "Internal error, failed to configure remote windows file explorer.");
            WriteLog("[%s] [ERROR]:: RestartExplorer function failed: %d", tag, error);
            succeeded = false;
        }
        if (SetRemoteDesktopStatus(true)) {
            setModeField(result.remoteDesktop, "Remote Desktop: ON");
            WriteLog("Remote Desktop: ON!");
        } else {
            const int error = lastErrorNumber();
            setModeField(result.remoteDesktop, "Internal error, failed to configure remote desktop.");
            WriteLog("[%s] [ERROR]: SetRemoteDesktopStatus function failed!, ERROR(%d)", tag, error);
            succeeded = false;
        }
        if (SetWinFirewall(platform::FirewallProfileE::Private, false)) {
            setModeField(result.firewall, "Windows Firewall: OFF");
            WriteLog("Windows Firewall: OFF!");
        } else {
            const int error = lastErrorNumber();
            setModeField(result.firewall, "Internal error, failed to configure windows firewall.");
            WriteLog("[%s] [ERROR]: SetWinFirewall function failed: %d", tag, error);
            succeeded = false;
        }
        if (halvern::net::NetManagerC::SetAdapterSpeed(halvern::net::kSpeedGigabitFullDuplex)) {
            setModeField(result.ethernetSpeed, "Ethernet Adapter Speed: 1Gbps Full Duplex");
            if (texts.logGigabit) WriteLog("Ethernet Adapter Speed: 1Gbps Full Duplex");
        } else {
            setModeField(result.ethernetSpeed, texts.gigabitFailure);
            WriteLog("[%s] [ERROR]: SetAdapterSpeed Failed. Cannot set speed to 1Gbps Full Duplex in production mode.",
                     tag);
            succeeded = false;
        }
        return succeeded;
    }

    WriteLog("Configure all features of Customer Mode");
    if (SetServiceStatus(L"SessionEnv", true)) {
        WriteLogWindows("Disabled Service: %ws", L"SessionEnv");
    } else {
        WriteLogWindows("[ERROR]:Could not disable requested service %ws (Error:%d)", L"SessionEnv", lastErrorNumber());
        setModeField(result.servicesAndPortForwarding, "Could not disable RDP CONFIG service");
    }
    if (SetServiceStatus(L"LanmanWorkstation", true)) {
        WriteLogWindows("Disabled Service: %ws", L"LanmanWorkstation");
    } else {
        WriteLogWindows("[ERROR]: Could not disable requested service %ws (Error:%d)", L"LanmanWorkstation",
                        lastErrorNumber());
        setModeField(result.servicesAndPortForwarding, "Could not disable WORKSTATION service");
    }
    if (!PortForwardingDeactivation()) {
        const int error = lastErrorNumber();
        setModeField(result.servicesAndPortForwarding, "Internal error, failed to configure port forwarding table.");
        WriteLog("[%s] [ERROR]: PortForwarding function failed: %d", tag, error);
        return false;
    }
    setModeField(result.servicesAndPortForwarding, "Port Forwarding: OFF");
    WriteLog("Port Forwarding: OFF!");
    if (!TerminateExplorer()) {
        const int error = lastErrorNumber();
        setModeField(result.fileExplorer, "Internal error, failed to configure remote windows file explorer.");
        WriteLog("[%s] [ERROR]: TerminateExplorer function failed: %d", tag, error);
        return false;
    }
    setModeField(result.fileExplorer, "File Explorer: OFF");
    WriteLog("File Explorer: OFF!");
    if (!halvern::net::NetManagerC::SetAdapterSpeed(kSpeed100MbFullDuplex)) {
        setModeField(result.ethernetSpeed, "Internal error, failed to set ethernet speed to 100Mbps Full Duplex.");
        WriteLog("[%s] [ERROR]: SetAdapterSpeed Failed. Cannot set speed to 100Mbps Full Duplex in customer mode.",
                 tag);
        return false;
    }
    setModeField(result.ethernetSpeed, "Ethernet Adapter Speed: 100Mbps Full Duplex");
    WriteLog("Ethernet Adapter Speed: 100Mbps Full Duplex");
    if (!SetRemoteDesktopStatus(false)) {
        const int error = lastErrorNumber();
        setModeField(result.remoteDesktop, "Internal error, failed to configure remote desktop.");
        WriteLog("[%s] [ERROR]: SetRemoteDesktopStatus function failed: %d", tag, error);
        return false;
    }
    setModeField(result.remoteDesktop, "Remote Desktop: OFF");
    WriteLog("Remote Desktop: OFF!");
    if (!SetWinFirewall(platform::FirewallProfileE::Private, true)) {
        const int error = lastErrorNumber();
        setModeField(result.firewall, "Internal error, failed to configure windows firewall.");
        WriteLog("[%s] [ERROR]: SetWinFirewall function failed!: %d", tag, error);
        return false;
    }
    setModeField(result.firewall, "Windows Firewall: ON");
    WriteLog("Windows Firewall: ON!");
    return true;
}
