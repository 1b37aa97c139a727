#pragma once
// Power control: the pending power request of the instrument's applications, the configured reboot or
// shutdown of the whole instrument (the sensor board's Linux halted over SSH, the clients told, Windows shut
// down), the close request to the main window, and where the sensor board is reached.
#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>

class ChildProcessesC;
class MainWindowSourceI;

// What the power sequence does once the applications have exited.
enum ApplicationPowerRequestType : std::int32_t {
    POWER_REQUEST_QUIT = 0,
    POWER_REQUEST_REBOOT = 1,
    POWER_REQUEST_SHUTDOWN = 2,
};

class PowerControlC {
public:
    // The halt starts ssh through the launcher; the close request goes to the main window.
    PowerControlC(ChildProcessesC& childProcesses, const MainWindowSourceI& mainWindow);

    bool PowerCycleScannerDevice();
    bool RequestSensorboardHalt();
    // Where the sensor board is reached (its Ethernet address as dotted quad): 192.168.2.1 unless the
    // machine's setting "SensorBoardAddress" (REG_SZ) of HKLM "SOFTWARE\Vexar\Halvern" names another, or
    // a test has set one.
    void SetSensorBoardAddress(const std::string& address);
    std::string GetSensorBoardAddress() const;
    // Points the sensor board's telnet client at the board's address and at its telnet port: 23 unless the
    // machine's setting "SensorBoardTelnetPort" (REG_DWORD) names another, as the simulated board does.
    // Logs one line when the endpoint is not 192.168.2.1:23.
    void ApplySensorBoardEndpoint() const;

    void ConfigurePowerCycleRequest(std::int32_t type, bool force, std::uint32_t timeoutSeconds);
    std::int32_t GetApplicationPowerRequestType() const { return m_applicationPowerRequestType; }
    bool GetPowerRequestForce() const { return m_powerRequestForce; }
    std::uint32_t GetPowerRequestTimeout() const { return m_powerRequestTimeout; }
    // Posts WM_CLOSE to the main window, which starts the close sequence; false without a window.
    bool SendCloseEvent();

private:
    ChildProcessesC& m_childProcesses;
    const MainWindowSourceI& m_mainWindow;
    mutable std::mutex m_lock;
    // Empty: the configured address (see GetSensorBoardAddress).
    std::string m_sensorBoardAddress;
    // Written by the command server's thread, read by the main thread.
    std::atomic<std::int32_t> m_applicationPowerRequestType{POWER_REQUEST_QUIT};
    std::atomic<bool> m_powerRequestForce{false};
    std::atomic<std::uint32_t> m_powerRequestTimeout{0};
};
