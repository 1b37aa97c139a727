#include "spb/SpbDevices.h"

#include <algorithm>
#include <iostream>

#include "platform/Calendar.h"
#include "platform/Clock.h"
#include "spb/SPB_I2cDev.h"

namespace halvern::spb {

namespace {

constexpr std::uint8_t kExpanderOutput = 0x01;
constexpr std::uint8_t kExpanderConfiguration = 0x03;
// Pins 0..4 inputs (the revision and spare lines), 5..7 the power outputs.
constexpr std::uint8_t kExpanderConfigurationValue = 0x1F;
constexpr std::uint8_t kPowerBits[kDevicePowerCount] = {6, 7, 5};

constexpr std::uint8_t kRtcTime = 0x10;
constexpr std::size_t kRtcTimeBytes = 7;
constexpr std::uint8_t kRtcExtension = 0x1C;
constexpr std::uint8_t kRtcFlags = 0x1D;
constexpr std::uint8_t kRtcControl0 = 0x1E;
constexpr std::uint8_t kRtcControl1 = 0x1F;
constexpr std::uint8_t kRtcDigitalOffset = 0x30;
constexpr std::uint8_t kRtcFlagVlf = 0x02;
constexpr std::uint8_t kRtcFlagEvent = 0x04;
constexpr std::uint8_t kRtcControl1Value = 0x14;
constexpr int kVlfClearTries = 100;

constexpr std::size_t kEepromBytes = 256;
// The board's 2-Kbit serial EEPROM programs one page per write: bytes sent past a page's end wrap to the
// page's start and overwrite it. 8 bytes is the smallest page of such parts, and 8-byte writes aligned to
// 8 never cross the boundary of a 16-byte page either.
constexpr std::size_t kEepromPageBytes = 8;
// While it programs a page the part acknowledges nothing (5 ms at most on such parts); the next page
// waits for it with a margin.
constexpr std::uint32_t kEepromWriteCycleMs = 10;

// The library's four diagnostic streams: the IO expander's, the RTC's, the EEPROM's and its own.
struct DiagnosticsS {
    SPBLogger logger;
    std::ostream ioExpander{std::cout.rdbuf()};
    std::ostream rtc{std::cout.rdbuf()};
    std::ostream eeprom{std::cout.rdbuf()};
    std::ostream library{std::cout.rdbuf()};
};

DiagnosticsS& diagnostics()
{
    static auto* streams = new DiagnosticsS();
    return *streams;
}

struct DevicesS {
    SPB_I2cDev ioExpander{diagnostics().ioExpander};
    SPB_I2cDev rtc{diagnostics().rtc};
    SPB_I2cDev eeprom{diagnostics().eeprom};
};

DevicesS& devices()
{
    static auto* all = new DevicesS();
    return *all;
}

std::uint8_t toBcd(int value)
{
    const auto v = static_cast<unsigned>(static_cast<std::uint8_t>(value));
    return static_cast<std::uint8_t>(((v / 10) % 10) << 4 | v % 10);
}

int fromBcd(std::uint8_t value)
{
    return (value >> 4) * 10 + (value & 0x0F);
}

// Fills weekday and day of year from the date, as the C runtime's normalisation does.
void completeDate(std::tm& time)
{
    const std::int64_t days = platform::daysFromCivil(1900 + time.tm_year, static_cast<unsigned>(time.tm_mon + 1),
                                                      static_cast<unsigned>(time.tm_mday));
    time.tm_wday = static_cast<int>(platform::weekdayFromDays(days));
    time.tm_yday = static_cast<int>(days - platform::daysFromCivil(1900 + time.tm_year, 1, 1));
}

// The record as the seven time registers hold it: seconds, minutes, hours, weekday, day, month, year.
std::vector<std::uint8_t> encodeTime(const std::tm& time)
{
    return {static_cast<std::uint8_t>(toBcd(time.tm_sec) & 0x7F),
            static_cast<std::uint8_t>(toBcd(time.tm_min) & 0x7F),
            static_cast<std::uint8_t>(toBcd(time.tm_hour) & 0x3F),
            0,
            static_cast<std::uint8_t>(toBcd(time.tm_mday) & 0x3F),
            static_cast<std::uint8_t>(toBcd(time.tm_mon + 1) & 0x1F),
            toBcd(time.tm_year - 100)};
}

bool decodeTime(const std::vector<std::uint8_t>& bytes, std::tm& time)
{
    time = std::tm{};
    time.tm_sec = fromBcd(bytes[0]);
    time.tm_min = fromBcd(bytes[1]);
    time.tm_hour = fromBcd(bytes[2]);
    time.tm_mday = fromBcd(bytes[4]);
    time.tm_mon = fromBcd(bytes[5]) - 1;
    time.tm_year = fromBcd(bytes[6]) + 100;
    time.tm_isdst = 0;
    if (time.tm_mon < 0 || time.tm_mday < 1) return false;
    completeDate(time);
    return true;
}

// A record names one real moment: its fields are in range and the day exists in its month.
bool isNormalised(const std::tm& time)
{
    if (time.tm_sec < 0 || time.tm_sec > 59 || time.tm_min < 0 || time.tm_min > 59 || time.tm_hour < 0 ||
        time.tm_hour > 23 || time.tm_mon < 0 || time.tm_mon > 11 || time.tm_mday < 1)
        return false;
    const std::int64_t days = platform::daysFromCivil(1900 + time.tm_year, static_cast<unsigned>(time.tm_mon + 1),
                                                      static_cast<unsigned>(time.tm_mday));
    std::int64_t year = 0;
    unsigned month = 0, day = 0;
    platform::civilFromDays(days, year, month, day);
    return year == 1900 + time.tm_year && month == static_cast<unsigned>(time.tm_mon + 1) &&
           day == static_cast<unsigned>(time.tm_mday);
}

bool sameTime(const std::tm& a, const std::tm& b)
{
    return a.tm_sec == b.tm_sec && a.tm_min == b.tm_min && a.tm_hour == b.tm_hour && a.tm_mday == b.tm_mday &&
           a.tm_mon == b.tm_mon && a.tm_year == b.tm_year;
}

bool readExpanderRegister(std::uint8_t address, std::uint8_t& value)
{
    std::vector<std::uint8_t> read;
    if (!devices().ioExpander.writeRead({address}, 1, read) || read.size() != 1) return false;
    value = read[0];
    return true;
}

bool readRtcRegister(std::uint8_t address, std::uint8_t& value)
{
    std::vector<std::uint8_t> read;
    if (!readRTClock(address, 1, read)) return false;
    value = read[0];
    return true;
}

bool writeRtcRegister(std::uint8_t address, std::uint8_t value)
{
    return writeRTClock(address, {value});
}

bool setRtcTime(const std::tm& time)
{
    std::ostream& log = diagnostics().rtc;
    if (time.tm_sec < 0 || !isNormalised(time)) {
        log << "Requested to set invalid time!" << std::endl;
        return false;
    }
    const std::vector<std::uint8_t> bytes = encodeTime(time);
    std::tm decoded{};
    if (!decodeTime(bytes, decoded) || !sameTime(decoded, time)) {
        log << "Failed to convert supplied time in RT clock format!" << std::endl;
        return false;
    }
    return writeRTClock(kRtcTime, bytes);
}

}  // namespace

std::mutex& spbMutex()
{
    static auto* lock = new std::mutex();
    return *lock;
}

void redirectDiagnostics(SPBLoggerCallback callback, void* context)
{
    DiagnosticsS& streams = diagnostics();
    streams.logger.set(callback, context);
    std::streambuf* target = callback != nullptr ? static_cast<std::streambuf*>(&streams.logger) : std::cout.rdbuf();
    for (std::ostream* stream : {&streams.ioExpander, &streams.rtc, &streams.eeprom, &streams.library})
        stream->rdbuf(target);
}

bool openDevices()
{
    DevicesS& all = devices();
    std::ostream& log = diagnostics().library;
    if (!all.ioExpander.open("\\\\.\\IOExpander")) {
        log << "Failed to open IO Expander!" << std::endl;
        return false;
    }
    if (!all.rtc.open("\\\\.\\RTClock")) {
        log << "Failed to open RT Clock!" << std::endl;
        all.ioExpander.close();
        return false;
    }
    if (!all.eeprom.open("\\\\.\\EEPROM")) {
        log << "Failed to open EEPROM!" << std::endl;
        all.rtc.close();
        all.ioExpander.close();
        return false;
    }
    return true;
}

bool closeDevices()
{
    DevicesS& all = devices();
    std::ostream& log = diagnostics().library;
    bool closed = true;
    if (!all.rtc.close()) {
        log << "Failed to close RT Clock!" << std::endl;
        closed = false;
    }
    if (!all.ioExpander.close()) {
        log << "Failed to close IO Expander!" << std::endl;
        closed = false;
    }
    if (!all.eeprom.close()) {
        log << "Failed to close EEPROM!" << std::endl;
        closed = false;
    }
    return closed;
}

bool readIOExpander(std::uint8_t& value)
{
    if (readExpanderRegister(kExpanderOutput, value)) return true;
    diagnostics().ioExpander << "Failed to read IOExpander!" << std::endl;
    return false;
}

bool setDevPower(unsigned device, bool on)
{
    std::ostream& log = diagnostics().ioExpander;
    if (device >= kDevicePowerCount) {
        log << "SPBCommImlp: reuqested to set power for invalid device: 0x" << std::hex << device << std::dec
            << std::endl;
        return false;
    }
    std::uint8_t output = 0;
    if (!readIOExpander(output)) return false;
    const auto bit = static_cast<std::uint8_t>(1u << kPowerBits[device]);
    output = on ? static_cast<std::uint8_t>(output | bit) : static_cast<std::uint8_t>(output & ~bit);
    // The level first, then the direction: a line turned into an output drives the level already set.
    if (!devices().ioExpander.write({kExpanderOutput, output}) ||
        !devices().ioExpander.write({kExpanderConfiguration, kExpanderConfigurationValue})) {
        log << "SPBCommImpl: failed to set device power in IOExpander!" << std::endl;
        return false;
    }
    return true;
}

bool getDevPower(unsigned device, bool& on)
{
    if (device >= kDevicePowerCount) {
        diagnostics().ioExpander << "SPBCommImlp: reuqested to set power for invalid device: 0x" << std::hex << device
                                 << std::dec << std::endl;
        return false;
    }
    std::uint8_t output = 0;
    if (!readIOExpander(output)) return false;
    on = (output >> kPowerBits[device] & 1u) != 0;
    return true;
}

bool getHWRevision(std::uint32_t& revision)
{
    std::uint8_t input = 0;
    if (!readExpanderRegister(0x00, input)) {
        diagnostics().ioExpander << "Failed to read IOExpander!" << std::endl;
        return false;
    }
    revision = input & 0x07u;
    return true;
}

bool writeRTClock(std::uint8_t address, const std::vector<std::uint8_t>& data)
{
    if (address >= 0x80) {
        diagnostics().rtc << "Invalid offset requested for RT Clock: 0x" << std::hex << unsigned{address} << std::dec
                          << std::endl;
        return false;
    }
    std::vector<std::uint8_t> bytes{address};
    bytes.insert(bytes.end(), data.begin(), data.end());
    return devices().rtc.write(bytes);
}

bool readRTClock(std::uint8_t address, std::size_t count, std::vector<std::uint8_t>& data)
{
    std::ostream& log = diagnostics().rtc;
    if (address >= 0x80) {
        log << "Invalid offset requested for RT Clock: 0x" << std::hex << unsigned{address} << std::dec << std::endl;
        return false;
    }
    if (count != 1) {
        log << "Invalid amount of data read from RT Clock (" << count << " instead of 1)" << std::endl;
        return false;
    }
    if (!devices().rtc.writeRead({address}, 1, data) || data.size() != 1) {
        log << "Failed to read RT Clock register!" << std::endl;
        return false;
    }
    return true;
}

int getRtcStatus()
{
    std::ostream& log = diagnostics().rtc;
    std::uint8_t flags = 0;
    if (!readRtcRegister(kRtcFlags, flags)) {
        log << "Failed to read Flag Register in RT Clock!" << std::endl;
        return kRtcFailure;
    }
    if (flags & kRtcFlagVlf) {
        log << "VLF bit set, RTC data loss in RT Clock!" << std::endl;
        return kRtcDataLost;
    }
    return kRtcOk;
}

int initRTClock(const std::tm& time)
{
    std::ostream& log = diagnostics().rtc;
    std::uint8_t flags = 0;
    if (!readRtcRegister(kRtcFlags, flags)) return kRtcFailure;
    bool vlfCleared = false;
    bool eventSet = false;
    for (int attempt = 0;; ++attempt) {
        if (attempt == kVlfClearTries) return kRtcFailure;
        eventSet = (flags & kRtcFlagEvent) != 0;
        if ((flags & kRtcFlagVlf) == 0) break;
        vlfCleared = true;
        if (!writeRtcRegister(kRtcFlags, 0xFD)) return kRtcFailure;
        platform::sleepMs(10);
        if (!readRtcRegister(kRtcFlags, flags)) return kRtcFailure;
    }
    bool flagsWritten = true;
    if (vlfCleared) {
        // The clock lost its supply: its configuration went with the time.
        if (!writeRtcRegister(kRtcDigitalOffset, 0x00)) {
            log << "Failed to configure Digital Offset in RT Clock!" << std::endl;
            return kRtcFailure;
        }
        if (!writeRtcRegister(kRtcExtension, 0xC0)) {
            log << "Failed to configure Extension Register in RT Clock!" << std::endl;
            return kRtcFailure;
        }
        flagsWritten = writeRtcRegister(kRtcFlags, 0x00);
        if (flagsWritten && !writeRtcRegister(kRtcControl1, kRtcControl1Value)) {
            log << "Failed to configure Control Register 1 in RT Clock!" << std::endl;
            return kRtcFailure;
        }
    } else if (eventSet) {
        flagsWritten = writeRtcRegister(kRtcFlags, 0xFB);
    }
    if (!flagsWritten) {
        log << "Failed to configure Flag Register in RT Clock!" << std::endl;
        return kRtcFailure;
    }
    std::uint8_t control1 = 0;
    if (!readRtcRegister(kRtcControl1, control1)) {
        log << "Failed to read Ctrl. Register in RT Clock!" << std::endl;
        return kRtcFailure;
    }
    if ((control1 & kRtcControl1Value) != kRtcControl1Value && !writeRtcRegister(kRtcControl1, kRtcControl1Value)) {
        log << "Failed to configure Ctrl. Flag Register in RT Clock!" << std::endl;
        return kRtcFailure;
    }
    if (!writeRtcRegister(kRtcControl0, 0x40)) {
        log << "Failed to configure Control Register 0 in RT Clock!" << std::endl;
        return kRtcFailure;
    }
    const bool timeSet = setRtcTime(time);
    if (!writeRtcRegister(kRtcControl0, 0x00)) {
        log << "Failed to configure Control Register 0 in RT Clock!" << std::endl;
        return kRtcFailure;
    }
    if (!timeSet) {
        log << "Failed to set time in RT Clock!" << std::endl;
        return kRtcTimeNotSet;
    }
    return kRtcOk;
}

int getTime(std::tm& time)
{
    const int status = getRtcStatus();
    if (status != kRtcOk) return status;
    std::ostream& log = diagnostics().rtc;
    std::vector<std::uint8_t> bytes;
    if (!devices().rtc.writeRead({kRtcTime}, kRtcTimeBytes, bytes)) {
        log << "Failed to read time from RT clock!" << std::endl;
        return kRtcFailure;
    }
    if (bytes.size() < kRtcTimeBytes) {
        log << "Failed to read time from RT clock! Got " << bytes.size() << " out of expected " << kRtcTimeBytes
            << " bytes." << std::endl;
        return kRtcFailure;
    }
    if (!decodeTime(bytes, time)) {
        log << "Failed to read time from RT clock!" << std::endl;
        return kRtcFailure;
    }
    return kRtcOk;
}

std::uint32_t readEEPROMData(std::uint16_t offset, std::uint16_t length, std::vector<std::uint8_t>& data)
{
    data.clear();
    if (std::size_t{offset} + length > kEepromBytes) {
        diagnostics().eeprom << "readEEPROMTraceId: Try to read data above address-offset 255!" << std::endl;
        return kEepromOutOfRange;
    }
    if (length == 0) return kEepromOk;
    if (!devices().eeprom.writeRead({static_cast<std::uint8_t>(offset)}, length, data) || data.size() != length)
        return kEepromFailure;
    return kEepromOk;
}

std::uint32_t writeEEPROMData(std::uint16_t offset, const std::vector<std::uint8_t>& data)
{
    if (std::size_t{offset} + data.size() > kEepromBytes) {
        diagnostics().eeprom << "writeEEPROMTraceId: Try to write data above address-offset 255!" << std::endl;
        return kEepromOutOfRange;
    }
    std::size_t written = 0;
    while (written < data.size()) {
        const std::size_t address = offset + written;
        const std::size_t chunk = std::min(data.size() - written, kEepromPageBytes - address % kEepromPageBytes);
        std::vector<std::uint8_t> bytes{static_cast<std::uint8_t>(address)};
        bytes.insert(bytes.end(), data.begin() + static_cast<std::ptrdiff_t>(written),
                     data.begin() + static_cast<std::ptrdiff_t>(written + chunk));
        if (!devices().eeprom.write(bytes)) return kEepromFailure;
        platform::sleepMs(kEepromWriteCycleMs);
        written += chunk;
    }
    return kEepromOk;
}

std::uint32_t readBoardIdContent(std::uint8_t* content)
{
    std::vector<std::uint8_t> data;
    const std::uint32_t status = readEEPROMData(0, kBoardIdBytes, data);
    if (status != kEepromOk) {
        diagnostics().eeprom << "Read EEPROM error: " << status << std::endl;
        return status;
    }
    std::copy(data.begin(), data.end(), content);
    return kEepromOk;
}

}  // namespace halvern::spb
