#include "sim/board/HmiBoardModelC.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>

namespace halvern::sim {

HmiBoardModelC::HmiBoardModelC()
{
    m_registers[kHmiTouchRegister] = kHmiStoredSettings;
    m_registers[kHmiVoltageRegister] = kHmiStoredSettings;
}

bool HmiBoardModelC::start(const std::string& root, std::string& error)
{
    return m_port.open(root, "COM5", error) &&
           m_port.start([this](const std::string& bytes) { onInput(bytes); }, nullptr, 100, error);
}

void HmiBoardModelC::stop()
{
    m_port.close();
}

void HmiBoardModelC::setRegister(std::uint8_t address, std::uint16_t value)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_registers[address] = value;
}

std::uint16_t HmiBoardModelC::registerValue(std::uint8_t address)
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_registers[address];
}

void HmiBoardModelC::setSilent(bool silent)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_silent = silent;
}

std::string HmiBoardModelC::describe()
{
    std::lock_guard<std::mutex> guard(m_lock);
    char text[64];
    std::snprintf(text, sizeof text, "touch=%04X voltage=%04X silent=%s", m_registers[kHmiTouchRegister],
                  m_registers[kHmiVoltageRegister], m_silent ? "on" : "off");
    return text;
}

std::string HmiBoardModelC::answer(const std::string& request)
{
    std::lock_guard<std::mutex> guard(m_lock);
    if (m_silent || request.empty()) return {};
    const bool read = request.size() == 3 && (request[0] == 'G' || request[0] == 'g') &&
                      std::isxdigit(static_cast<unsigned char>(request[1])) &&
                      std::isxdigit(static_cast<unsigned char>(request[2]));
    if (!read) return "ERR\r\n";
    const auto address = static_cast<std::uint8_t>(std::strtoul(request.substr(1).c_str(), nullptr, 16));
    auto it = m_registers.find(address);
    if (it == m_registers.end()) return "ERR\r\n";
    char reply[16];
    std::snprintf(reply, sizeof reply, "R%02X=%04X\r\n", address, it->second);
    return reply;
}

void HmiBoardModelC::onInput(const std::string& bytes)
{
    for (char c : bytes) {
        if (c != '\r' && c != '\n') {
            m_line += c;
            continue;
        }
        const std::string reply = answer(m_line);
        m_line.clear();
        if (!reply.empty()) m_port.send(reply);
    }
}

}  // namespace halvern::sim
