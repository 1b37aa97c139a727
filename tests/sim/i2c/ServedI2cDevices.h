#pragma once
// The instrument's three I2C devices served on the test's sim root, as a fresh instrument has them: the IO
// expander with every device powered (the WLAN module too), the RTC and the EEPROM.
#include <chrono>
#include <string>

#include "platform/sim/SimRoot.h"
#include "sim/i2c/I2cDeviceServer.h"

namespace halvern::test {

class ServedI2cDevicesC {
public:
    bool start(std::string& error)
    {
        // A module switched on is up at once, unless a test asks for the wait.
        devices.ioExpander.setWlanStartUp(std::chrono::milliseconds(0));
        m_server.add("IOExpander", devices.ioExpander);
        m_server.add("RTClock", devices.rtc);
        m_server.add("EEPROM", devices.eeprom);
        m_started = m_server.start(platform::sim::root(), error);
        return m_started;
    }
    void stop() { m_server.stop(); }
    bool started() const { return m_started; }

    sim::I2cInstrumentDevicesS devices;

private:
    sim::I2cDeviceServerC m_server;
    bool m_started = false;
};

}  // namespace halvern::test
