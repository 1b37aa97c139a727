#include "spb/SpbApi.h"

#include <algorithm>
#include <vector>

#include "spb/SpbDevices.h"

namespace spb = halvern::spb;

namespace {

using Guard = std::lock_guard<std::mutex>;

}  // namespace

bool SPB_init()
{
    Guard guard(spb::spbMutex());
    return spb::openDevices();
}

bool SPB_deinit()
{
    Guard guard(spb::spbMutex());
    return spb::closeDevices();
}

bool SPB_readIOExpander(std::uint8_t* value)
{
    Guard guard(spb::spbMutex());
    return value != nullptr && spb::readIOExpander(*value);
}

bool SPB_setDevPower(std::uint32_t device, bool on)
{
    Guard guard(spb::spbMutex());
    return spb::setDevPower(device, on);
}

bool SPB_getDevPower(std::uint32_t device, bool* on)
{
    Guard guard(spb::spbMutex());
    return on != nullptr && spb::getDevPower(device, *on);
}

bool SPB_getHWRevision(std::uint32_t* revision)
{
    Guard guard(spb::spbMutex());
    return revision != nullptr && spb::getHWRevision(*revision);
}

bool SPB_writeRTClock(std::uint8_t address, const std::uint8_t* data, std::uint32_t length)
{
    Guard guard(spb::spbMutex());
    if (data == nullptr && length != 0) return false;
    return spb::writeRTClock(address, std::vector<std::uint8_t>(data, data + length));
}

bool SPB_readRTClock(std::uint8_t address, std::uint32_t count, std::uint8_t* data)
{
    Guard guard(spb::spbMutex());
    std::vector<std::uint8_t> read;
    if (data == nullptr || !spb::readRTClock(address, count, read)) return false;
    std::copy(read.begin(), read.end(), data);
    return true;
}

int SPB_initRTClock(const std::tm* time)
{
    Guard guard(spb::spbMutex());
    return time != nullptr ? spb::initRTClock(*time) : spb::kRtcFailure;
}

int SPB_getRtcStatus()
{
    Guard guard(spb::spbMutex());
    return spb::getRtcStatus();
}

int SPB_getTime(std::tm* time)
{
    Guard guard(spb::spbMutex());
    return time != nullptr ? spb::getTime(*time) : spb::kRtcFailure;
}

std::uint32_t SPB_readBoardIdContent(std::uint8_t* content)
{
    Guard guard(spb::spbMutex());
    return content != nullptr ? spb::readBoardIdContent(content) : spb::kEepromFailure;
}

std::uint32_t SPB_readEEPROMData(std::uint16_t offset, std::uint16_t length, std::uint8_t* data)
{
    Guard guard(spb::spbMutex());
    if (data == nullptr) return spb::kEepromFailure;
    std::vector<std::uint8_t> read;
    const std::uint32_t status = spb::readEEPROMData(offset, length, read);
    std::copy(read.begin(), read.end(), data);
    return status;
}

std::uint32_t SPB_writeEEPROMData(std::uint16_t offset, const std::uint8_t* data, std::uint32_t length)
{
    Guard guard(spb::spbMutex());
    if (data == nullptr && length != 0) return spb::kEepromFailure;
    return spb::writeEEPROMData(offset, std::vector<std::uint8_t>(data, data + length));
}

int SPB_RegisterLogger(spb::SPBLoggerCallback callback, void* context)
{
    Guard guard(spb::spbMutex());
    spb::redirectDiagnostics(callback, context);
    return 0;
}

int SPB_UnRegisterLogger()
{
    Guard guard(spb::spbMutex());
    spb::redirectDiagnostics(nullptr, nullptr);
    return 0;
}
