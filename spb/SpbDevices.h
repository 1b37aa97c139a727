#pragma once
// The IO expander, RTC and EEPROM operations behind the exported SPB_* functions. The caller holds
// spbMutex() for every call here.
#include <cstdint>
#include <ctime>
#include <mutex>
#include <ostream>
#include <vector>

#include "spb/SPBLogger.h"

namespace halvern::spb {

// The device power lines of the IO expander.
constexpr unsigned kDevicePowerCount = 3;
// The power line of the WLAN module.
constexpr unsigned kWlanPowerDevice = 0;

// Results of SPB_getRtcStatus / SPB_getTime / SPB_initRTClock.
constexpr int kRtcOk = 0;
constexpr int kRtcFailure = 1;
constexpr int kRtcDataLost = 2;
constexpr int kRtcTimeNotSet = 3;
// EEPROM statuses.
constexpr std::uint32_t kEepromOk = 0;
constexpr std::uint32_t kEepromFailure = 1;
constexpr std::uint32_t kEepromOutOfRange = 4;
constexpr std::size_t kBoardIdBytes = 48;

std::mutex& spbMutex();
// Points the four diagnostic streams at the logger (callback set) or back at standard output (null).
void redirectDiagnostics(SPBLoggerCallback callback, void* context);

bool openDevices();
bool closeDevices();
bool readIOExpander(std::uint8_t& value);
bool setDevPower(unsigned device, bool on);
bool getDevPower(unsigned device, bool& on);
bool getHWRevision(std::uint32_t& revision);
bool writeRTClock(std::uint8_t address, const std::vector<std::uint8_t>& data);
bool readRTClock(std::uint8_t address, std::size_t count, std::vector<std::uint8_t>& data);
int initRTClock(const std::tm& time);
int getRtcStatus();
int getTime(std::tm& time);
std::uint32_t readBoardIdContent(std::uint8_t* content);
std::uint32_t readEEPROMData(std::uint16_t offset, std::uint16_t length, std::vector<std::uint8_t>& data);
std::uint32_t writeEEPROMData(std::uint16_t offset, const std::vector<std::uint8_t>& data);

}  // namespace halvern::spb
