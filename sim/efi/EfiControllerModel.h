#pragma once
// The power, LED and battery microcontroller as its Windows service presents it: what it answers to each
// request text and the state those answers come from. Thread-safe: the pipe sessions and the control
// interface use it at the same time.
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <vector>

namespace halvern::sim {

// Values of the power-source register.
constexpr std::int32_t kPowerSourceMains = 1;
constexpr std::int32_t kPowerSourceBattery = 2;

struct EfiBatteryState {
    std::int32_t status = 0;
    std::int32_t rsoc = 0;     // per cent
    std::int32_t voltage = 0;  // mV
    std::int32_t temp = 0;     // 0.1 K
};

struct EfiHwStatusState {
    int runningMode = 0;  // runware, the controller's normal firmware
    int fpgaReady = 1;
    int hpsReady = 1;
    int teloReady = 1;
    // Sent instead of the fields when set: a malformed status for tests.
    std::wstring rawText;
};

class EfiControllerModelC {
public:
    EfiControllerModelC();

    // The reply to one request text; "[ERROR]..." for a request it does not know.
    std::wstring answer(const std::wstring& request);

    // Battery "L" or "H", item "status", "rsoc", "voltage" or "temp"; false for an unknown name.
    bool setBattery(const std::string& battery, const std::string& item, std::int32_t value);
    // External supply item "voltage", "peak" or "bat_volt".
    bool setExtSupply(const std::string& item, std::int32_t value);
    // Switches the supply: mains (true) or battery (false).
    void setMains(bool mains);
    void setHwStatus(const EfiHwStatusState& status);
    // The sensor board's supplies: its FPGA and HPS are ready exactly while it is powered.
    void setSensorBoardPowered(bool powered);
    // One status/control register by keyword ("AUTORUN") or a battery register by number ("76"); false
    // for an unknown one.
    bool setRegister(const std::wstring& keyword, std::int32_t value);

    // A one-line account of the state, for the control interface.
    std::string describe();
    std::wstring leds();
    // Every LED setting the controller was given, oldest first ("RED:GREEN:BLUE").
    std::vector<std::wstring> ledHistory();
    // The request texts the controller received, oldest first: the last kCommandHistoryLimit of them.
    static constexpr std::size_t kCommandHistoryLimit = 1000;
    std::vector<std::wstring> commandHistory();
    // Empties this file, then appends every request text to it, one a line (UTF-8), so that what the
    // controller was told can be read after the instrument has gone.
    void recordCommandsTo(const std::string& path);
    std::int32_t statusControl(const std::wstring& keyword);
    // Whether Windows' coming shutdown is to end in a restart ("BASIC:REBOOT" since the last call); the
    // controller carries the distinction out, Windows is shut down either way. Reading it clears it.
    bool takeRebootRequest();

private:
    std::wstring answerLocked(const std::wstring& request);

    std::mutex m_lock;
    EfiBatteryState m_batteries[2];
    std::map<std::wstring, std::int32_t> m_extSupply;
    std::map<std::wstring, std::int32_t> m_statusControl;
    std::map<int, std::int32_t> m_batteryRegisters;
    std::wstring m_leds = L"OFF:ON:OFF";
    std::vector<std::wstring> m_ledHistory;
    std::deque<std::wstring> m_commandHistory;
    std::string m_commandFile;
    EfiHwStatusState m_hwStatus;
    bool m_rebootRequested = false;
};

}  // namespace halvern::sim
