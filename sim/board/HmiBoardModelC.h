#pragma once
// The display and touch board on COM5: it answers a register read "Gxx" with "Rxx=NNNN" (four hex
// digits) and takes a bare line end as a wake-up. It keeps the results of the touch (0x2B) and screen
// voltage (0x29) calibrations; both say "the last run stored new settings" until told otherwise.
#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "sim/board/PseudoTerminalC.h"

namespace halvern::sim {

constexpr std::uint8_t kHmiTouchRegister = 0x2B;
constexpr std::uint8_t kHmiVoltageRegister = 0x29;
constexpr std::uint16_t kHmiStoredSettings = 0x0010;

class HmiBoardModelC {
public:
    HmiBoardModelC();
    ~HmiBoardModelC() { stop(); }
    HmiBoardModelC(const HmiBoardModelC&) = delete;
    HmiBoardModelC& operator=(const HmiBoardModelC&) = delete;

    bool start(const std::string& root, std::string& error);
    void stop();

    void setRegister(std::uint8_t address, std::uint16_t value);
    std::uint16_t registerValue(std::uint8_t address);
    // A silent board takes what it is sent and answers nothing.
    void setSilent(bool silent);
    std::string describe();
    // What the board answers to one request line (without its line end); empty for no answer.
    std::string answer(const std::string& request);

private:
    void onInput(const std::string& bytes);

    std::mutex m_lock;
    PseudoTerminalC m_port;
    std::map<std::uint8_t, std::uint16_t> m_registers;
    bool m_silent = false;
    std::string m_line;
};

}  // namespace halvern::sim
