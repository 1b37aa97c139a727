#pragma once
// The flat SPB API that Halvern.exe exports for the instrument's other processes. Every call holds the
// library's lock for its whole duration.
#include <cstdint>
#include <ctime>

#include "platform/Export.h"
#include "spb/SPBLogger.h"

HALVERN_EXPORT bool SPB_init();
HALVERN_EXPORT bool SPB_deinit();
HALVERN_EXPORT bool SPB_readIOExpander(std::uint8_t* value);
HALVERN_EXPORT bool SPB_setDevPower(std::uint32_t device, bool on);
HALVERN_EXPORT bool SPB_getDevPower(std::uint32_t device, bool* on);
HALVERN_EXPORT bool SPB_getHWRevision(std::uint32_t* revision);
HALVERN_EXPORT bool SPB_writeRTClock(std::uint8_t address, const std::uint8_t* data, std::uint32_t length);
HALVERN_EXPORT bool SPB_readRTClock(std::uint8_t address, std::uint32_t count, std::uint8_t* data);
HALVERN_EXPORT int SPB_initRTClock(const std::tm* time);
HALVERN_EXPORT int SPB_getRtcStatus();
HALVERN_EXPORT int SPB_getTime(std::tm* time);
HALVERN_EXPORT std::uint32_t SPB_readBoardIdContent(std::uint8_t* content);
HALVERN_EXPORT std::uint32_t SPB_readEEPROMData(std::uint16_t offset, std::uint16_t length, std::uint8_t* data);
HALVERN_EXPORT std::uint32_t SPB_writeEEPROMData(std::uint16_t offset, const std::uint8_t* data, std::uint32_t length);
HALVERN_EXPORT int SPB_RegisterLogger(halvern::spb::SPBLoggerCallback callback, void* context);
HALVERN_EXPORT int SPB_UnRegisterLogger();
