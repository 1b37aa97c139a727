#include "sim/i2c/I2cDeviceModels.h"

#include <cstring>

#include "platform/Calendar.h"
#include "platform/sim/SimWlanDriver.h"

namespace halvern::sim {

namespace {

constexpr std::uint32_t kErrorIoDevice = 1117;

std::uint8_t toBcd(unsigned value)
{
    return static_cast<std::uint8_t>(((value / 10) % 10) << 4 | value % 10);
}

unsigned fromBcd(std::uint8_t value)
{
    return (value >> 4) * 10u + (value & 0x0F);
}

}  // namespace

std::uint32_t I2cRegisterDeviceC::transfer(const std::vector<std::uint8_t>& write, std::size_t readBytes,
                                           std::vector<std::uint8_t>& read)
{
    std::lock_guard<std::mutex> guard(m_lock);
    read.clear();
    if (m_broken || busy()) return kErrorIoDevice;
    const std::size_t size = m_registers.size();
    if (!write.empty()) {
        m_pointer = write[0];
        const std::uint8_t first = m_pointer;
        for (std::size_t i = 1; i < write.size(); ++i) {
            const std::size_t at = m_pointer % size;
            m_registers[at] = merge(static_cast<std::uint8_t>(at), m_registers[at], write[i]);
            m_pointer = nextWriteAddress(m_pointer);
        }
        if (write.size() > 1) afterWrite(first, static_cast<std::uint8_t>(m_pointer - 1));
    }
    if (readBytes != 0) {
        beforeRead(m_pointer);
        for (std::size_t i = 0; i < readBytes; ++i) {
            read.push_back(m_registers[m_pointer % size]);
            m_pointer = static_cast<std::uint8_t>(m_pointer + 1);
        }
    }
    return 0;
}

void I2cRegisterDeviceC::setBroken(bool broken)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_broken = broken;
}

bool I2cRegisterDeviceC::broken() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_broken;
}

std::uint8_t I2cRegisterDeviceC::peek(std::uint8_t address) const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_registers[address % m_registers.size()];
}

void I2cRegisterDeviceC::poke(std::uint8_t address, std::uint8_t value)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_registers[address % m_registers.size()] = value;
}

IoExpanderModelC::IoExpanderModelC() : I2cRegisterDeviceC(4)
{
    // Power-on: every pin an input, the outputs latched high (the devices powered).
    m_registers[kOutput] = 0xE0;
    m_registers[kConfiguration] = 0xFF;
}

void IoExpanderModelC::setRevision(unsigned revision)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_registers[kInput] = static_cast<std::uint8_t>((m_registers[kInput] & ~0x07u) | (revision & 0x07u));
}

void IoExpanderModelC::setWlanStartUp(std::chrono::milliseconds startUp)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_wlanStartUp = startUp;
}

void IoExpanderModelC::attach(const std::string& root)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_root = root;
    // A module powered from the start is up; a moment left by an earlier run (or boot) does not count.
    if (m_wlanPowered) platform::sim::writeWlanReadyAt(m_root, platform::sim::monotonicMs());
}

void IoExpanderModelC::afterWrite(std::uint8_t first, std::uint8_t last)
{
    if (first > kOutput || last < kOutput) return;
    const bool powered = (m_registers[kOutput] & kWlanPower) != 0;
    if (powered && !m_wlanPowered && !m_root.empty())
        platform::sim::writeWlanReadyAt(
            m_root, platform::sim::monotonicMs() + static_cast<std::uint64_t>(m_wlanStartUp.count()));
    m_wlanPowered = powered;
}

EepromModelC::EepromModelC(std::chrono::milliseconds writeCycle) : I2cRegisterDeviceC(256), m_writeCycle(writeCycle)
{
    const char identity[] = "VANT-SIM-BOARD rev.A SN:00000001 trace:0000";
    std::memcpy(m_registers.data(), identity, sizeof identity);
    std::memset(m_registers.data() + 48, 0xFF, 256 - 48);
}

void EepromModelC::afterWrite(std::uint8_t, std::uint8_t)
{
    m_busyUntil = std::chrono::steady_clock::now() + m_writeCycle;
}

std::uint8_t EepromModelC::nextWriteAddress(std::uint8_t address) const
{
    const std::uint8_t page = address & static_cast<std::uint8_t>(~(kPageBytes - 1));
    return static_cast<std::uint8_t>(page | ((address + 1) & (kPageBytes - 1)));
}

bool EepromModelC::busy() const
{
    return std::chrono::steady_clock::now() < m_busyUntil;
}

RtcModelC::RtcModelC(std::function<std::int64_t()> nowSeconds, std::int64_t unixTime)
    : I2cRegisterDeviceC(0x40), m_nowSeconds(std::move(nowSeconds))
{
    m_registers[kExtension] = 0xC0;
    m_registers[kControl1] = 0x14;
    showLocked(unixTime);
}

void RtcModelC::loseData()
{
    std::lock_guard<std::mutex> guard(m_lock);
    std::fill(m_registers.begin(), m_registers.end(), 0);
    m_registers[kFlags] = kFlagVlf;
    m_stopped = false;
    showLocked(platform::daysFromCivil(2000, 1, 1) * 86400);
}

std::int64_t RtcModelC::unixTime() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return shownLocked();
}

std::int64_t RtcModelC::shownLocked() const
{
    if (m_stopped) return m_shown;
    return m_shown + (m_nowSeconds() - m_at);
}

void RtcModelC::showLocked(std::int64_t unixTime)
{
    m_shown = unixTime;
    m_at = m_nowSeconds();
}

void RtcModelC::beforeRead(std::uint8_t first)
{
    if (first > kTime + 6) return;
    const std::int64_t now = shownLocked();
    std::int64_t days = now / 86400;
    std::int64_t seconds = now % 86400;
    if (seconds < 0) {
        seconds += 86400;
        --days;
    }
    std::int64_t year = 0;
    unsigned month = 0, day = 0;
    platform::civilFromDays(days, year, month, day);
    const unsigned weekday = platform::weekdayFromDays(days);
    m_registers[kTime + 0] = toBcd(static_cast<unsigned>(seconds % 60));
    m_registers[kTime + 1] = toBcd(static_cast<unsigned>(seconds / 60 % 60));
    m_registers[kTime + 2] = toBcd(static_cast<unsigned>(seconds / 3600));
    m_registers[kTime + 3] = static_cast<std::uint8_t>(1u << weekday);
    m_registers[kTime + 4] = toBcd(day);
    m_registers[kTime + 5] = toBcd(month);
    m_registers[kTime + 6] = toBcd(static_cast<unsigned>(year - 2000));
}

void RtcModelC::afterWrite(std::uint8_t first, std::uint8_t last)
{
    if (first <= kControl0 && last >= kControl0) {
        // Stopping freezes what it shows; running again counts on from there.
        const bool stopped = (m_registers[kControl0] & kControl0Stop) != 0;
        if (stopped != m_stopped) {
            m_shown = shownLocked();
            m_at = m_nowSeconds();
            m_stopped = stopped;
        }
    }
    if (first > kTime + 6 || last < kTime) return;
    const std::int64_t days = platform::daysFromCivil(2000 + fromBcd(m_registers[kTime + 6]),
                                                      fromBcd(m_registers[kTime + 5]), fromBcd(m_registers[kTime + 4]));
    m_shown = days * 86400 + fromBcd(m_registers[kTime + 2]) * 3600 + fromBcd(m_registers[kTime + 1]) * 60 +
              fromBcd(m_registers[kTime + 0]);
    m_at = m_nowSeconds();
}

std::uint8_t RtcModelC::merge(std::uint8_t address, std::uint8_t old, std::uint8_t written)
{
    // Flags are cleared by writing 0 and left alone by writing 1.
    if (address == kFlags) return old & written;
    return written;
}

}  // namespace halvern::sim
