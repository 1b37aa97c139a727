#include "sim/efi/EfiControllerModel.h"

#include <cwchar>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <vector>

#include "platform/Text.h"

namespace halvern::sim {

namespace {

std::vector<std::wstring> split(const std::wstring& text)
{
    std::vector<std::wstring> parts;
    std::wstring part;
    for (wchar_t c : text) {
        if (c == L':') {
            parts.push_back(part);
            part.clear();
        } else {
            part.push_back(c);
        }
    }
    parts.push_back(part);
    return parts;
}

bool parseNumber(const std::wstring& text, int base, std::int32_t& value)
{
    if (text.empty()) return false;
    wchar_t* end = nullptr;
    const long number = std::wcstol(text.c_str(), &end, base);
    if (end == nullptr || *end != L'\0') return false;
    value = static_cast<std::int32_t>(number);
    return true;
}

std::wstring number(std::int32_t value)
{
    return std::to_wstring(value);
}

const std::wstring kOk = L"OK";

std::wstring unknown(const std::wstring& request)
{
    return L"[ERROR] Unknown command: " + request;
}

std::wstring upper(const std::string& text)
{
    std::wstring result;
    for (char c : text)
        result.push_back(static_cast<wchar_t>(std::toupper(static_cast<unsigned char>(c))));
    return result;
}

}  // namespace

EfiControllerModelC::EfiControllerModelC()
{
    m_batteries[0] = {0, 85, 16200, 2981};
    m_batteries[1] = {0, 80, 16100, 2979};
    m_extSupply = {{L"VOLTAGE", 19000}, {L"PEAK", 19400}, {L"BAT_VOLT", 16200}};
    m_statusControl = {{L"PWRSELECT", 7}, {L"PWRSUPPLY", 1},   {L"PWRSOURCE", kPowerSourceMains},
                       {L"SYSTEM", 1},    {L"WAKEUPTIMER", 0}, {L"SMBUS", 0},
                       {L"AUTORUN", 0}};
    for (int reg = 74; reg <= 81; ++reg)
        m_batteryRegisters[reg] = 0;
}

std::wstring EfiControllerModelC::answer(const std::wstring& request)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_commandHistory.push_back(request);
    if (m_commandHistory.size() > kCommandHistoryLimit) m_commandHistory.pop_front();
    if (!m_commandFile.empty())
        std::ofstream(m_commandFile, std::ios::app) << platform::narrow(request).value_or("?") << "\n";
    return answerLocked(request);
}

std::vector<std::wstring> EfiControllerModelC::commandHistory()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return {m_commandHistory.begin(), m_commandHistory.end()};
}

void EfiControllerModelC::recordCommandsTo(const std::string& path)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_commandFile = path;
    std::error_code ignored;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), ignored);
    std::ofstream(m_commandFile, std::ios::trunc);
}

std::wstring EfiControllerModelC::answerLocked(const std::wstring& request)
{
    static const std::set<std::wstring> kBasic{L"PING",  L"FWVERSION",  L"SERVICEVERSION", L"REBOOT",
                                               L"CLOSE", L"UPDATE_LDR", L"UPDATE_FW",      L"HWSTATUS"};
    static const std::set<std::wstring> kLedModes{L"OFF",
                                                  L"ON",
                                                  L"BLINK",
                                                  L"BLINK_2_5HZ",
                                                  L"BLINK_1_25HZ",
                                                  L"BLINK_0_833HZ",
                                                  L"BLINK_FAST_1_66HZ",
                                                  L"BLINK_FAST_1_25HZ"};
    const std::vector<std::wstring> parts = split(request);
    const std::wstring& head = parts[0];

    if (head == L"BASIC" && parts.size() == 2 && kBasic.count(parts[1]) != 0) {
        const std::wstring& what = parts[1];
        if (what == L"REBOOT") m_rebootRequested = true;
        if (what == L"FWVERSION") return L"2.14";
        if (what == L"SERVICEVERSION") return L"1.7";
        if (what == L"HWSTATUS") {
            if (!m_hwStatus.rawText.empty()) return m_hwStatus.rawText;
            return L"EFIRunningMode:" + number(m_hwStatus.runningMode) + L",FPGAReady:" + number(m_hwStatus.fpgaReady) +
                   L",HPSReady:" + number(m_hwStatus.hpsReady) + L",TELOReady:" + number(m_hwStatus.teloReady) + L",";
        }
        return kOk;
    }
    if (head == L"LED" && parts.size() == 4 && kLedModes.count(parts[1]) != 0 && kLedModes.count(parts[2]) != 0 &&
        kLedModes.count(parts[3]) != 0) {
        m_leds = parts[1] + L":" + parts[2] + L":" + parts[3];
        m_ledHistory.push_back(m_leds);
        return kOk;
    }
    if (head == L"BAT" && parts.size() == 3 && (parts[1] == L"L" || parts[1] == L"H")) {
        const EfiBatteryState& battery = m_batteries[parts[1] == L"L" ? 0 : 1];
        if (parts[2] == L"STATUS") return number(battery.status);
        if (parts[2] == L"RSOC") return number(battery.rsoc);
        if (parts[2] == L"VOLTAGE") return number(battery.voltage);
        if (parts[2] == L"TEMP") return number(battery.temp);
        return unknown(request);
    }
    if (head == L"EXT" && parts.size() == 2 && m_extSupply.count(parts[1]) != 0) return number(m_extSupply[parts[1]]);
    if (head == L"REG" && parts.size() >= 3) {
        std::int32_t reg = 0;
        if (!parseNumber(parts[2], 10, reg) || m_batteryRegisters.count(reg) == 0) return unknown(request);
        if (parts[1] == L"GET" && parts.size() == 3) return number(m_batteryRegisters[reg]);
        std::int32_t value = 0;
        const bool writable = reg == 74 || reg == 75 || reg == 78 || reg == 79;
        if (parts[1] == L"SET" && parts.size() == 4 && writable && parseNumber(parts[3], 10, value)) {
            m_batteryRegisters[reg] = value;
            return kOk;
        }
        return unknown(request);
    }
    auto reg = m_statusControl.find(head);
    if (reg != m_statusControl.end()) {
        if (parts.size() == 2 && parts[1] == L"GET") return number(reg->second);
        std::int32_t value = 0;
        if (parts.size() == 3 && parts[1] == L"SET" && parseNumber(parts[2], 16, value)) {
            reg->second = value;
            return kOk;
        }
    }
    return unknown(request);
}

bool EfiControllerModelC::setBattery(const std::string& battery, const std::string& item, std::int32_t value)
{
    const std::wstring which = upper(battery);
    if (which != L"L" && which != L"H") return false;
    std::lock_guard<std::mutex> guard(m_lock);
    EfiBatteryState& state = m_batteries[which == L"L" ? 0 : 1];
    const std::wstring field = upper(item);
    if (field == L"STATUS")
        state.status = value;
    else if (field == L"RSOC")
        state.rsoc = value;
    else if (field == L"VOLTAGE")
        state.voltage = value;
    else if (field == L"TEMP")
        state.temp = value;
    else
        return false;
    return true;
}

bool EfiControllerModelC::setExtSupply(const std::string& item, std::int32_t value)
{
    std::lock_guard<std::mutex> guard(m_lock);
    auto it = m_extSupply.find(upper(item));
    if (it == m_extSupply.end()) return false;
    it->second = value;
    return true;
}

void EfiControllerModelC::setMains(bool mains)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_statusControl[L"PWRSOURCE"] = mains ? kPowerSourceMains : kPowerSourceBattery;
    m_extSupply[L"VOLTAGE"] = mains ? 19000 : 0;
    m_extSupply[L"PEAK"] = mains ? 19400 : 0;
}

void EfiControllerModelC::setHwStatus(const EfiHwStatusState& status)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_hwStatus = status;
}

void EfiControllerModelC::setSensorBoardPowered(bool powered)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_hwStatus.fpgaReady = powered ? 1 : 0;
    m_hwStatus.hpsReady = powered ? 1 : 0;
}

bool EfiControllerModelC::setRegister(const std::wstring& keyword, std::int32_t value)
{
    std::lock_guard<std::mutex> guard(m_lock);
    // A number names one of the battery registers.
    std::int32_t reg = 0;
    if (parseNumber(keyword, 10, reg)) {
        auto battery = m_batteryRegisters.find(reg);
        if (battery == m_batteryRegisters.end()) return false;
        battery->second = value;
        return true;
    }
    auto it = m_statusControl.find(keyword);
    if (it == m_statusControl.end()) return false;
    it->second = value;
    return true;
}

std::wstring EfiControllerModelC::leds()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_leds;
}

bool EfiControllerModelC::takeRebootRequest()
{
    std::lock_guard<std::mutex> guard(m_lock);
    const bool requested = m_rebootRequested;
    m_rebootRequested = false;
    return requested;
}

std::vector<std::wstring> EfiControllerModelC::ledHistory()
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_ledHistory;
}

std::int32_t EfiControllerModelC::statusControl(const std::wstring& keyword)
{
    std::lock_guard<std::mutex> guard(m_lock);
    auto it = m_statusControl.find(keyword);
    return it != m_statusControl.end() ? it->second : -1;
}

std::string EfiControllerModelC::describe()
{
    std::lock_guard<std::mutex> guard(m_lock);
    std::ostringstream text;
    text << "source=" << (m_statusControl[L"PWRSOURCE"] == kPowerSourceMains ? "mains" : "battery")
         << " led=" << platform::narrow(m_leds).value_or("?") << " L=" << m_batteries[0].rsoc
         << " H=" << m_batteries[1].rsoc << " autorun=" << m_statusControl[L"AUTORUN"]
         << " wakeuptimer=" << m_statusControl[L"WAKEUPTIMER"];
    return text.str();
}

}  // namespace halvern::sim
