#include "sim/board/SensorBoardModelC.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "platform/Registry.h"
#include "platform/sim/SimRegistry.h"
#include "sim/board/MoraAdapterRecord.h"

namespace halvern::sim {

namespace {

constexpr int kTickMs = 10;
// The adapter record is a file: read it every few ticks, not on every one.
constexpr int kTicksPerAdapterCheck = 5;
constexpr std::uint32_t kHardwareVersionAddress = 0xFF200118;

const char* const kUBootPrompt = "=> ";
const char* const kLoginPrompt = "mora login: ";

const char* const kUBootBanner =
    "\r\nU-Boot SPL 2013.01.01 (Jan 31 2019 - 10:12:01)\r\n"
    "BOARD : MORA\r\nCLOCK: EOSC1 clock 25000 KHz\r\nSDRAM: Initializing MMR registers\r\n\r\n"
    "U-Boot 2013.01.01 (Jan 31 2019 - 10:12:01)\r\n\r\nCPU   : Altera SOCFPGA Platform\r\n"
    "DRAM:  1 GiB\r\nMMC:   ALTERA DWMMC: 0\r\nNet:   mii0\r\n";

const char* const kKernelMessages[] = {
    "Booting Linux on physical CPU 0x0",
    "Linux version 3.10.31-ltsi (oe-user@oe-host) (gcc version 4.8.2) #1 SMP",
    "CPU: ARMv7 Processor [413fc090] revision 0 (ARMv7), cr=10c5387d",
    "Freeing unused kernel memory: 344K (c06b3000 - c0709000)",
    "stmmac: eth0: link is up, 1000 Mbps/Full",
};

bool parseNumber(const std::string& text, int base, unsigned long& value)
{
    if (text.empty()) return false;
    char* end = nullptr;
    value = std::strtoul(text.c_str(), &end, base);
    return *end == '\0';
}

}  // namespace

const char* stageName(SensorBoardModelC::StageE stage)
{
    switch (stage) {
        case SensorBoardModelC::StageE::Off:
            return "off";
        case SensorBoardModelC::StageE::UBoot:
            return "u-boot";
        case SensorBoardModelC::StageE::Kernel:
            return "kernel";
        case SensorBoardModelC::StageE::Login:
            return "login";
        case SensorBoardModelC::StageE::Shell:
            return "shell";
    }
    return "?";
}

SensorBoardModelC::SensorBoardModelC() : m_telnet([this] { return makeShell(false); }) {}

SensorBoardModelC::~SensorBoardModelC()
{
    stop();
}

bool SensorBoardModelC::start(const std::string& root, std::string& error)
{
    m_root = root;
    m_folder = root + "/sim/sensorboard";
    BoardShellC::prepareFiles(m_folder);
    const MoraAdapterRecordT adapter = readMoraAdapterRecord(root);
    m_adapterEnabled = adapter.enabled;
    m_adapterRestarts = adapter.restarts;
    if (!m_console.open(root, "COM3", error) || !m_telnet.start(error)) return false;
    platform::sim::RegValueC port{platform::kRegDword, std::to_string(m_telnet.port())};
    if (!platform::sim::writeValue(platform::RegHive::LocalMachine, "SOFTWARE\\Vexar\\Halvern", "SensorBoardTelnetPort",
                                   port)) {
        error = "cannot record the sensor board's telnet port in the registry";
        return false;
    }
    if (!m_console.start([this](const std::string& bytes) { onConsoleInput(bytes); }, [this] { tick(); }, kTickMs,
                         error))
        return false;
    powerOn();
    return true;
}

void SensorBoardModelC::stop()
{
    m_console.close();
    m_telnet.stop();
}

std::unique_ptr<BoardShellC> SensorBoardModelC::makeShell(bool forConsole)
{
    BoardShellHostT host;
    host.boardFolder = m_folder;
    // The console's shell runs with the model locked already; the telnet sessions' shells on threads of
    // their own.
    if (forConsole) {
        host.writeKernelLog = [this](const std::string& line) { appendKernelLogLocked(line); };
        host.kernelLog = [this] { return m_kernelLog; };
    } else {
        host.writeKernelLog = [this](const std::string& line) { appendKernelLog(line); };
        host.kernelLog = [this] { return kernelLog(); };
    }
    return std::make_unique<BoardShellC>(std::move(host));
}

void SensorBoardModelC::powerOn()
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_stage != StageE::Off) return;
    m_powerOnAt = std::chrono::steady_clock::now();
    m_bootingDelayMs = m_bootDelayMs;
    m_kernelLog.clear();
    m_typeAhead.clear();
    m_inputLine.clear();
    enterStage(StageE::UBoot);
    if (m_powerObserver) m_powerObserver(true);
}

void SensorBoardModelC::powerOff()
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_stage == StageE::Off) return;
    enterStage(StageE::Off);
    if (m_powerObserver) m_powerObserver(false);
}

void SensorBoardModelC::setBootDelay(int milliseconds)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_bootDelayMs = milliseconds < 0 ? 0 : milliseconds;
}

void SensorBoardModelC::setUBootOnly(bool only)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_ubootOnly = only;
}

void SensorBoardModelC::setEthernetPlugged(bool plugged)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_plugged = plugged;
    updateLinkLocked();
}

void SensorBoardModelC::setPowerObserver(std::function<void(bool)> observer)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_powerObserver = std::move(observer);
}

SensorBoardModelC::StageE SensorBoardModelC::stage()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_stage;
}

bool SensorBoardModelC::linkUp()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_stage >= StageE::Login && m_plugged && m_adapterEnabled;
}

std::vector<std::string> SensorBoardModelC::kernelLog()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_kernelLog;
}

std::string SensorBoardModelC::describe()
{
    std::lock_guard<std::mutex> guard(m_lock);
    std::ostringstream text;
    text << "power=" << (m_stage == StageE::Off ? "off" : "on") << " stage=" << stageName(m_stage)
         << " link=" << (m_stage >= StageE::Login && m_plugged && m_adapterEnabled ? "up" : "down")
         << " eth=" << (m_plugged ? "plugged" : "unplugged")
         << " adapter=" << (m_adapterEnabled ? "enabled" : "disabled") << " telnet=127.0.0.1:" << m_telnet.port()
         << " sessions=" << m_telnet.sessions() << " boot-delay=" << m_bootDelayMs
         << " uboot-only=" << (m_ubootOnly ? "on" : "off");
    return text.str();
}

void SensorBoardModelC::appendKernelLog(const std::string& line)
{
    std::lock_guard<std::mutex> guard(m_lock);
    appendKernelLogLocked(line);
}

void SensorBoardModelC::appendKernelLogLocked(const std::string& line)
{
    // A board that is off has no kernel to write to.
    if (m_stage < StageE::Kernel) return;
    m_kernelLog.push_back(line);
    std::ofstream(m_folder + "/kmsg", std::ios::app) << line << "\n";
}

void SensorBoardModelC::updateLinkLocked()
{
    m_telnet.setReachable(m_stage >= StageE::Login && m_plugged && m_adapterEnabled);
}

void SensorBoardModelC::enterStage(StageE stage)
{
    m_stage = stage;
    switch (stage) {
        case StageE::Off:
            m_consoleShell.reset();
            break;
        case StageE::UBoot:
            m_console.send(std::string(kUBootBanner) + kUBootPrompt);
            break;
        case StageE::Kernel: {
            m_console.send("\r\n## Booting kernel from Legacy Image ...\r\nStarting kernel ...\r\n\r\n");
            const auto elapsed =
                std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - m_powerOnAt);
            for (const char* message : kKernelMessages) {
                char stamp[32];
                std::snprintf(stamp, sizeof stamp, "[%5lld.%06lld] ", static_cast<long long>(elapsed.count() / 1000000),
                              static_cast<long long>(elapsed.count() % 1000000));
                m_console.send(stamp + std::string(message) + "\r\n");
                appendKernelLogLocked(message);
            }
            break;
        }
        case StageE::Login: {
            m_console.send(std::string("\r\nPoky (Yocto Project Reference Distro) 1.5 mora ttyS0\r\n\r\n") +
                           kLoginPrompt);
            // What was typed during the boot now reaches the login prompt.
            const std::string typed = std::move(m_typeAhead);
            m_typeAhead.clear();
            onConsoleInputLocked(typed);
            break;
        }
        case StageE::Shell:
            m_consoleShell = makeShell(true);
            m_console.send(m_consoleShell->prompt());
            break;
    }
    updateLinkLocked();
}

void SensorBoardModelC::tick()
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (--m_ticksToAdapterCheck <= 0) {
        m_ticksToAdapterCheck = kTicksPerAdapterCheck;
        const MoraAdapterRecordT adapter = readMoraAdapterRecord(m_root);
        // A restarted adapter renegotiates the link, which is what brings an unplugged one back here.
        const bool restarted = adapter.restarts > m_adapterRestarts;
        if (adapter.enabled != m_adapterEnabled || restarted) {
            m_adapterEnabled = adapter.enabled;
            m_adapterRestarts = adapter.restarts;
            if (restarted) m_plugged = true;
            updateLinkLocked();
        }
    }
    const auto elapsed =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - m_powerOnAt).count();
    if (m_stage == StageE::UBoot && !m_ubootOnly && elapsed >= m_bootingDelayMs / 5) enterStage(StageE::Kernel);
    if (m_stage == StageE::Kernel && elapsed >= m_bootingDelayMs) enterStage(StageE::Login);
}

void SensorBoardModelC::onConsoleInput(const std::string& bytes)
{
    std::lock_guard<std::mutex> guard(m_lock);
    onConsoleInputLocked(bytes);
}

void SensorBoardModelC::onConsoleInputLocked(const std::string& bytes)
{
    if (m_stage == StageE::Off) return;
    if (m_stage == StageE::Kernel) {
        m_typeAhead += bytes;
        return;
    }
    // The console echoes what it takes, as a serial terminal's line editor does.
    std::string echo;
    for (char c : bytes) {
        const bool afterCr = m_afterCr;
        m_afterCr = c == '\r';
        if (afterCr && c == '\n') continue;
        if (c == '\r' || c == '\n') {
            m_console.send(echo + "\r\n");
            echo.clear();
            const std::string line = std::move(m_inputLine);
            m_inputLine.clear();
            consoleLine(line);
        } else if (c == '\b' || c == 0x7F) {
            if (!m_inputLine.empty()) {
                m_inputLine.pop_back();
                echo += "\b \b";
            }
        } else if (static_cast<unsigned char>(c) >= 32) {
            m_inputLine += c;
            echo += c;
        }
    }
    m_console.send(echo);
}

void SensorBoardModelC::consoleLine(const std::string& line)
{
    switch (m_stage) {
        case StageE::UBoot:
            m_console.send(ubootCommand(line) + kUBootPrompt);
            break;
        case StageE::Login:
            if (line == "root")
                enterStage(StageE::Shell);
            else if (line.empty())
                m_console.send(kLoginPrompt);
            else
                m_console.send(std::string("\r\nLogin incorrect\r\n") + kLoginPrompt);
            break;
        case StageE::Shell: {
            m_console.send(terminalText(m_consoleShell->run(line)));
            if (m_consoleShell->exitRequested())
                enterStage(StageE::Login);
            else
                m_console.send(m_consoleShell->prompt());
            break;
        }
        case StageE::Off:
        case StageE::Kernel:
            break;
    }
}

std::string SensorBoardModelC::ubootCommand(const std::string& line)
{
    std::istringstream words(line);
    std::string command;
    if (!(words >> command)) return {};
    if (command == "md" || command == "md.l") {
        std::string addressText;
        std::string countText = "1";
        words >> addressText >> countText;
        unsigned long address = 0;
        unsigned long count = 0;
        if (!parseNumber(addressText, 16, address) || !parseNumber(countText, 16, count) || count == 0)
            return "Usage:\r\nmd - memory display\r\n";
        std::string text;
        for (unsigned long word = 0; word < count && word < 64; ++word) {
            const unsigned long at = address + word * 4;
            char field[32];
            if (word % 4 == 0) {
                std::snprintf(field, sizeof field, "%s%08lx:", word == 0 ? "" : "    ....\r\n", at);
                text += field;
            }
            std::snprintf(field, sizeof field, " %08x", at == kHardwareVersionAddress ? kBoardHardwareVersion : 0u);
            text += field;
        }
        return text + "    ....\r\n";
    }
    return "Unknown command '" + command + "' - try 'help'\r\n";
}

}  // namespace halvern::sim
