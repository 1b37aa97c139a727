#pragma once
// The sensor board as the computer module sees it: its serial console on COM3 with a boot time line
// (U-Boot, where "md" reads a register, then the Linux kernel, then a login prompt where "root" logs in
// without a password), its kernel log, and its telnet shell on the internal Ethernet link.
//
// The link is up while Linux runs, the cable is plugged and the computer module's adapter is enabled. An
// unplugged link comes back when the adapter is restarted (disabled, then enabled, with the device tool)
// or when it is plugged again. Type-ahead sent to the console while the kernel boots waits for the login
// prompt, as a terminal's input buffer does. The kernel log of the running boot is kept in the model and
// every record of every boot is appended to <root>/sim/sensorboard/kmsg.
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "sim/board/BoardShellC.h"
#include "sim/board/BoardTelnetServerC.h"
#include "sim/board/PseudoTerminalC.h"

namespace halvern::sim {

constexpr int kDefaultBoardBootDelayMs = 1000;
// The hardware version register U-Boot reads at 0xFF200118.
constexpr std::uint32_t kBoardHardwareVersion = 0x00000003;

class SensorBoardModelC {
public:
    enum class StageE { Off, UBoot, Kernel, Login, Shell };

    SensorBoardModelC();
    ~SensorBoardModelC();
    SensorBoardModelC(const SensorBoardModelC&) = delete;
    SensorBoardModelC& operator=(const SensorBoardModelC&) = delete;

    // Brings up COM3 and the telnet server in the sim root, records the telnet port in the registry
    // (HKLM\SOFTWARE\Vexar\Halvern "SensorBoardTelnetPort") and powers the board on.
    bool start(const std::string& root, std::string& error);
    void stop();

    void powerOn();
    void powerOff();
    // From power-on to the login prompt; the next power-on uses it.
    void setBootDelay(int milliseconds);
    // A board whose kernel never starts: it stays at the U-Boot prompt from the next power-on.
    void setUBootOnly(bool only);
    void setEthernetPlugged(bool plugged);
    // Called with true at power-on and false at power-off (the FPGA and HPS supplies).
    void setPowerObserver(std::function<void(bool powered)> observer);

    StageE stage();
    bool linkUp();
    std::uint16_t telnetPort() const { return m_telnet.port(); }
    std::vector<std::string> kernelLog();
    // One line for the control interface.
    std::string describe();

private:
    void onConsoleInput(const std::string& bytes);
    void onConsoleInputLocked(const std::string& bytes);
    void tick();
    void enterStage(StageE stage);
    void consoleLine(const std::string& line);
    std::string ubootCommand(const std::string& line);
    void appendKernelLogLocked(const std::string& line);
    void appendKernelLog(const std::string& line);
    void updateLinkLocked();
    std::unique_ptr<BoardShellC> makeShell(bool forConsole);

    std::mutex m_lock;
    std::string m_root;
    std::string m_folder;
    PseudoTerminalC m_console;
    BoardTelnetServerC m_telnet;
    std::function<void(bool)> m_powerObserver;

    StageE m_stage = StageE::Off;
    std::chrono::steady_clock::time_point m_powerOnAt;
    int m_bootDelayMs = kDefaultBoardBootDelayMs;
    int m_bootingDelayMs = kDefaultBoardBootDelayMs;
    bool m_ubootOnly = false;
    std::string m_inputLine;
    bool m_afterCr = false;
    std::string m_typeAhead;
    std::unique_ptr<BoardShellC> m_consoleShell;
    std::vector<std::string> m_kernelLog;

    bool m_plugged = true;
    bool m_adapterEnabled = true;
    unsigned m_adapterRestarts = 0;
    int m_ticksToAdapterCheck = 0;
};

const char* stageName(SensorBoardModelC::StageE stage);

}  // namespace halvern::sim
