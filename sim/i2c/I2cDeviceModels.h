#pragma once
// The instrument's I2C devices as register models: the IO expander (device power lines and the board's
// hardware revision), the real-time clock and the board identity EEPROM. A transfer addresses a register
// with its first written byte; further bytes are written from there on and reads continue from there,
// as these parts do. Each model can be broken on demand: every transfer then fails as a device that
// does not acknowledge its address.
#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace halvern::sim {

class I2cRegisterDeviceC {
public:
    explicit I2cRegisterDeviceC(std::size_t registers) : m_registers(registers, 0) {}
    virtual ~I2cRegisterDeviceC() = default;

    // One bus transaction: `write` first, then `readBytes` bytes into `read`. Answers a Windows error
    // number, 0 on success.
    std::uint32_t transfer(const std::vector<std::uint8_t>& write, std::size_t readBytes,
                           std::vector<std::uint8_t>& read);
    void setBroken(bool broken);
    bool broken() const;
    // The sim root the model is served on, for what it shows beyond the bus.
    virtual void attach(const std::string&) {}
    std::uint8_t peek(std::uint8_t address) const;
    void poke(std::uint8_t address, std::uint8_t value);

protected:
    // Called with the lock held, before a read from `first` and after a write that ended at `last`.
    virtual void beforeRead(std::uint8_t) {}
    virtual void afterWrite(std::uint8_t, std::uint8_t) {}
    // Where the byte after one written at `address` lands.
    virtual std::uint8_t nextWriteAddress(std::uint8_t address) const { return static_cast<std::uint8_t>(address + 1); }
    // A part that does not acknowledge its address for now (called with the lock held).
    virtual bool busy() const { return false; }
    // How a written byte lands in its register (plain store by default).
    virtual std::uint8_t merge(std::uint8_t, std::uint8_t, std::uint8_t written) { return written; }

    mutable std::mutex m_lock;
    std::vector<std::uint8_t> m_registers;

private:
    bool m_broken = false;
    std::uint8_t m_pointer = 0;
};

// Port 0 of the expander is its input (bits 0..2 the hardware revision), 1 its output (the power lines
// on bits 5..7), 3 its configuration. The WLAN module on bit 6 takes a while from power-on until it is up
// (its interface appears): that moment goes to the sim root for Halvern's WLAN client to see.
class IoExpanderModelC final : public I2cRegisterDeviceC {
public:
    static constexpr std::uint8_t kInput = 0x00;
    static constexpr std::uint8_t kOutput = 0x01;
    static constexpr std::uint8_t kConfiguration = 0x03;
    static constexpr std::uint8_t kWlanPower = 0x40;
    IoExpanderModelC();
    void setRevision(unsigned revision);
    // From the next power-on; 0 by default.
    void setWlanStartUp(std::chrono::milliseconds startUp);
    void attach(const std::string& root) override;

private:
    void afterWrite(std::uint8_t first, std::uint8_t last) override;

    std::string m_root;
    std::chrono::milliseconds m_wlanStartUp{0};
    bool m_wlanPowered = true;
};

// 256 bytes addressed by one byte; a fresh part carries a board identity in its first 48 bytes. As a
// 2-Kbit serial EEPROM it writes in pages of 8 bytes: a write that runs past its page's end wraps to the
// page's start. While it programs what it was sent it acknowledges nothing.
class EepromModelC final : public I2cRegisterDeviceC {
public:
    static constexpr std::uint8_t kPageBytes = 8;
    static constexpr std::chrono::milliseconds kWriteCycle{5};

    explicit EepromModelC(std::chrono::milliseconds writeCycle = kWriteCycle);

private:
    void afterWrite(std::uint8_t first, std::uint8_t last) override;
    std::uint8_t nextWriteAddress(std::uint8_t address) const override;
    bool busy() const override;

    std::chrono::milliseconds m_writeCycle;
    std::chrono::steady_clock::time_point m_busyUntil{};
};

// The RTC keeps counting from the time last written to it while its control register 0 does not stop it.
// Losing its supply (VLF) loses the time and the configuration.
class RtcModelC final : public I2cRegisterDeviceC {
public:
    static constexpr std::uint8_t kTime = 0x10;
    static constexpr std::uint8_t kExtension = 0x1C;
    static constexpr std::uint8_t kFlags = 0x1D;
    static constexpr std::uint8_t kControl0 = 0x1E;
    static constexpr std::uint8_t kControl1 = 0x1F;
    static constexpr std::uint8_t kDigitalOffset = 0x30;
    static constexpr std::uint8_t kFlagVlf = 0x02;
    static constexpr std::uint8_t kControl0Stop = 0x40;

    // `nowSeconds` is the time base the clock counts on (seconds, any epoch); `unixTime` what it shows now.
    RtcModelC(std::function<std::int64_t()> nowSeconds, std::int64_t unixTime);
    void loseData();
    // The time it shows, in seconds since 1970-01-01 (UTC as kept on the instrument).
    std::int64_t unixTime() const;

private:
    void beforeRead(std::uint8_t first) override;
    void afterWrite(std::uint8_t first, std::uint8_t last) override;
    std::uint8_t merge(std::uint8_t address, std::uint8_t old, std::uint8_t written) override;
    std::int64_t shownLocked() const;
    void showLocked(std::int64_t unixTime);

    std::function<std::int64_t()> m_nowSeconds;
    std::int64_t m_shown = 0;
    std::int64_t m_at = 0;
    bool m_stopped = false;
};

}  // namespace halvern::sim
