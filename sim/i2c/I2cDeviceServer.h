#pragma once
// Serves the I2C device models on the sim root's dev/ sockets ("\\.\RTClock" is dev/RTClock), one thread
// for all of them. Host-only.
#include <chrono>
#include <cstdint>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/sim/UniqueFd.h"
#include "sim/i2c/I2cDeviceModels.h"

namespace halvern::sim {

class I2cDeviceServerC {
public:
    I2cDeviceServerC() = default;
    ~I2cDeviceServerC();
    I2cDeviceServerC(const I2cDeviceServerC&) = delete;
    I2cDeviceServerC& operator=(const I2cDeviceServerC&) = delete;

    // Before start(): the device NAME served from `model`, which must outlive the server.
    void add(const std::string& name, I2cRegisterDeviceC& model);
    // False with a message in `error` when a socket cannot be made.
    bool start(const std::string& root, std::string& error);
    void stop();

private:
    struct Endpoint {
        std::string path;
        I2cRegisterDeviceC* model;
        platform::sim::UniqueFd listener;
    };
    void serve();

    std::vector<Endpoint> m_endpoints;
    platform::sim::UniqueFd m_wakeRead;
    platform::sim::UniqueFd m_wakeWrite;
    std::thread m_thread;
};

// The instrument's three devices with halvern-sim's "rtc", "i2c" and "revision" control commands. Its
// WLAN module is up 1.5 s after it was switched on, as a PCIe card whose driver has to load.
struct I2cInstrumentDevicesS {
    static constexpr std::chrono::milliseconds kWlanModuleStartUp{1500};
    IoExpanderModelC ioExpander;
    RtcModelC rtc;
    EepromModelC eeprom;
    I2cInstrumentDevicesS();
};

}  // namespace halvern::sim
