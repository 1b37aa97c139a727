#pragma once
// Device modes: customer mode (the delivered state: write filter on, no remote access, shell and port
// forwarding off, firewall on, 100 Mbit/s) and production or service mode (all of it opened for the
// factory or for service, 1 Gbit/s), with the features each switch sets. A write-filter change takes effect
// at the next boot only.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>

#include "platform/Firewall.h"

class ChildProcessesC;
class NetworkObserverC;
class WriteFilterC;

class DeviceModesC {
public:
    // A switch reads the write filter, asks whether the instrument is named, starts the shell through the
    // launcher and stops the network observer when it opens the device.
    DeviceModesC(WriteFilterC& writeFilter, ChildProcessesC& childProcesses, NetworkObserverC& networkObserver);

    struct CurDevModeInfo {
        static constexpr std::size_t kTextChars = 256;
        char result[kTextChars] = {};
        char servicesAndPortForwarding[kTextChars] = {};
        char remoteDesktop[kTextChars] = {};
        char fileExplorer[kTextChars] = {};
        char firewall[kTextChars] = {};
        char ethernetSpeed[kTextChars] = {};
        char writeFilter[kTextChars] = {};
        char restart[kTextChars] = {};
        // The requested mode needs another write-filter state than the running one.
        bool restartRequired = false;
    };
    // The texts that tell the two switches apart.
    struct DeviceModeTextsT;
    // `enable` 1: production (service) mode, 0: customer mode. False when the switch was refused or a
    // feature failed; `result` says which. Once a switch changed the write filter for the next boot, every
    // further switch is refused until Halvern restarts.
    bool productionMode(bool enable, CurDevModeInfo& result);
    bool serviceMode(bool enable, CurDevModeInfo& result);
    // Held by a client's setting of several features for its whole run: a mode switch sets the same
    // features, and one running between two of the settings would leave a mix of both requests.
    std::unique_lock<std::recursive_mutex> HoldModeChanges()
    {
        return std::unique_lock<std::recursive_mutex>(m_modeLock);
    }
    // The write filter for the next boot, set with "uwfmgr.exe filter enable|disable".
    bool SetUWFilter(bool enable);
    // Start type of a Windows service: automatic and started, or disabled (it stops at the next boot).
    bool SetServiceStatus(const std::wstring& serviceName, bool disable);
    // Port forwarding to the sensor board for every port of "C:\vexarBatches\Halvern\portsConfiguration.txt".
    bool PortForwardingActivation();
    bool PortForwardingDeactivation();
    // `active`: the port proxy table lists entries. False when the table cannot be read.
    bool GetPortForwardingStatus(bool& active);
    // netsh elevated with `parameters`; true when it ran and ended with 0.
    static bool portForwardCfgCMD(const std::wstring& parameters);
    // Remote desktop connections allowed or denied ("fDenyTSConnections"), with the matching mouse pointer.
    bool SetRemoteDesktopStatus(bool enable);
    bool GetRemoteDesktopStatus(bool& enabled);
    // The hidden pointer scheme in customer mode (no mouse on the instrument's touch screen), the
    // standard one otherwise.
    bool hideMousePointer(bool hide);
    bool writeMousePointerToRegistry(bool hidden);
    // The shell: back in Winlogon's "Userinit" and running, or removed from it and ended.
    bool RestartExplorer();
    bool TerminateExplorer();
    bool SetWinFirewall(platform::FirewallProfileE profile, bool enable);
    // Left by a switch to production mode while the filter protects; start-up finishes that switch.
    static constexpr const wchar_t* kProductionModeFlagFile = L"C:\\vexarBatches\\Unprotected\\toProdMode.txt";

private:
    // One switch at a time; the latch holds from a switch that changed the write filter for the next boot
    // until Halvern restarts. The scratch texts are the step's field text and the restart text.
    bool switchDeviceMode(const DeviceModeTextsT& texts, bool enable, CurDevModeInfo& result);
    bool configureModeFeatures(const DeviceModeTextsT& texts, bool enable, CurDevModeInfo& result);
    void setModeField(char (&field)[CurDevModeInfo::kTextChars], const std::string& text);

    WriteFilterC& m_writeFilter;
    ChildProcessesC& m_childProcesses;
    NetworkObserverC& m_networkObserver;
    std::recursive_mutex m_modeLock;
    std::atomic<std::uint8_t> m_modeSwitchPending{0};
    std::string m_modeFieldText;
    std::string m_modeRestartText;
};
