// Events reach the clients of both running ports, with the controller's power source as it is when the
// event is raised.
#include <gtest/gtest.h>

#include "app/StartUpSteps.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/server/SepServer.h"
#include "sim/ControlCommands.h"
#include "sim/efi/EfiControlCommands.h"
#include "support/EfiInstrumentTest.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {
namespace {

class SepEventsTest : public EfiInstrumentTest {
protected:
    void TearDown() override
    {
        clients.clear();
        EfiInstrumentTest::TearDown();
    }
    void connectClients()
    {
        clients = connectToEveryPort();
        ASSERT_EQ(clients.size(), 2u);
    }
    // The next event of `client` with its header checked; its coder is positioned at the record.
    static bool nextEvent(SEP::SepClientC& client, std::uint16_t id, SEP::DecodedFrameT& event)
    {
        std::vector<std::uint8_t> frame;
        std::int32_t code = 0, facility = 0;
        std::uint16_t level = 9;
        return client.receiveFrame(frame, 10000) && SEP::decodeFrame(frame, event) &&
               event.kind == SEP::MESSAGE_KIND_EVENT && event.messageId == id && event.coder->readI32(code) &&
               event.coder->readI32(facility) && event.coder->readU16(level) && code == 1097 && facility == 10 &&
               level == 0;
    }

    std::vector<std::unique_ptr<SEP::SepClientC>> clients;
};

TEST_F(SepEventsTest, WithNoServerRunningEveryRaiseSucceedsWithoutSending)
{
    EXPECT_TRUE(HalvernSepImpl::raiseEfiBtnPressed());
    EXPECT_TRUE(HalvernSepImpl::raiseShutdownNotif(16000));
    EXPECT_TRUE(HalvernSepImpl::raisePwrSrcStatus());
    EXPECT_TRUE(HalvernSepImpl::raiseWlanRadarEvent(3));
}

TEST_F(SepEventsTest, EveryEventReachesBothPortsInOrderWithItsRecord)
{
    ASSERT_TRUE(StartSepServer());
    connectClients();
    EXPECT_TRUE(HalvernSepImpl::raiseEfiBtnPressed());
    EXPECT_TRUE(HalvernSepImpl::raiseEfiBtnReleased());
    EXPECT_TRUE(HalvernSepImpl::raiseSuperIntervetion());
    EXPECT_TRUE(HalvernSepImpl::raiseShutdownNotif(16000));
    EXPECT_TRUE(HalvernSepImpl::raiseUsbDeviceAttachNotif(true));
    EXPECT_TRUE(HalvernSepImpl::raiseUWFOverlayStateNotif(-1, 2, 3));
    for (auto& client : clients) {
        SEP::DecodedFrameT event;
        std::int32_t button = 0;
        ASSERT_TRUE(nextEvent(*client, 1000, event));
        EXPECT_TRUE(event.coder->readI32(button));
        EXPECT_EQ(button, 1);
        ASSERT_TRUE(nextEvent(*client, 1000, event));
        EXPECT_TRUE(event.coder->readI32(button));
        EXPECT_EQ(button, 2);
        ASSERT_TRUE(nextEvent(*client, 1002, event));
        EXPECT_TRUE(event.coder->atEnd());
        std::uint32_t shutdown = 0;
        ASSERT_TRUE(nextEvent(*client, 1003, event));
        EXPECT_TRUE(event.coder->readU32(shutdown));
        EXPECT_EQ(shutdown, 16000u);
        bool attached = false;
        ASSERT_TRUE(nextEvent(*client, 1004, event));
        EXPECT_TRUE(event.coder->readBool(attached));
        EXPECT_TRUE(attached);
        std::int32_t first = 0;
        std::uint32_t second = 0, third = 0;
        ASSERT_TRUE(nextEvent(*client, 1006, event));
        EXPECT_TRUE(event.coder->readI32(first) && event.coder->readU32(second) && event.coder->readU32(third));
        EXPECT_EQ(first, -1);
        EXPECT_EQ(second, 2u);
        EXPECT_EQ(third, 3u);
    }
}

TEST_F(SepEventsTest, PowerSourceFlagsAreReadWhenTheEventIsRaised)
{
    ASSERT_TRUE(StartSepServer());
    connectClients();
    ASSERT_EQ(m_commands.execute("efi power battery").rfind("OK", 0), 0u);
    ASSERT_TRUE(HalvernSepImpl::raisePwrSrcStatus());
    bool expected[11] = {};
    HalvernSepImpl::PowerSourceFlags(sim::kPowerSourceBattery, expected);
    for (auto& client : clients) {
        SEP::DecodedFrameT event;
        ASSERT_TRUE(nextEvent(*client, 1001, event));
        for (bool flag : expected) {
            bool value = !flag;
            EXPECT_TRUE(event.coder->readBool(value));
            EXPECT_EQ(value, flag);
        }
        EXPECT_TRUE(event.coder->atEnd());
    }

    // A controller that cannot be asked gives no event at all.
    m_service.stop();
    EXPECT_FALSE(HalvernSepImpl::raisePwrSrcStatus());
    EXPECT_TRUE(containsInOrder(logMessages(), {"Failed to get PowerSource register from EFI, can't raise event!"}));
}

}  // namespace
}  // namespace halvern::test
