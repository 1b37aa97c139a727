// The USB commands as a frontend sees them on the simulated instrument: the device list, a device at an
// index, the restart of a port and the USB stick's format.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "platform/FileSystem.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimUsbBus.h"
#include "sep/SepCommandTestSupport.h"
#include "sep/HalvernSepRecords.h"
#include "sim/ControlCommands.h"
#include "sim/WindowsControlCommands.h"
#include "sim/standin/StandInInstall.h"
#include "support/Eventually.h"
#include "support/FirmwareUpdaterSupport.h"
#include "support/ScriptProgram.h"

namespace halvern::test {
namespace {

class UsbCommandsTest : public SepPortTest {
protected:
    void SetUp() override
    {
        SepPortTest::SetUp();
        sim::addWindowsControlCommands(m_commands);
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
    }
    void sim(const std::string& command) { ASSERT_EQ(m_commands.execute(command), "OK") << command; }

    CommandReplyT deviceAt(std::uint32_t index)
    {
        Varda::SEP::HALVERN::UsbDeviceIndex request;
        request.index = index;
        return port->askRecord(1038, request);
    }
    CommandReplyT reset(std::uint32_t portId)
    {
        Varda::SEP::HALVERN::UsbDeviceResetCmd request;
        request.portId = portId;
        return port->askRecord(1039, request);
    }

    sim::ControlCommandsC m_commands;
};

TEST_F(UsbCommandsTest, TheListCountsIndexesAndRefusesAnIndexPastItsEnd)
{
    sim("usb device add 046D C52B 3");
    sim("usb device add 1234 5678 6 unenumerated");
    sim("usb plug WIM");
    ASSERT_TRUE(SysManagerC::Instance()->RefreshUsbDevices(false));

    auto reply = port->ask(1037);
    ASSERT_EQ(reply.returnCode, 1097);
    Varda::SEP::HALVERN::UsbDeviceCountInfo counted;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, counted), SEP::DecodeResultE::Ok);
    EXPECT_EQ(counted.a, 3u);
    EXPECT_EQ(counted.b, 2u) << "one device did not complete its enumeration";

    reply = deviceAt(2);
    ASSERT_EQ(reply.returnCode, 1097);
    Varda::SEP::HALVERN::UsbDeviceInfo device;
    ASSERT_EQ(SEP::decodeRecord(*reply.frame.coder, device), SEP::DecodeResultE::Ok);
    EXPECT_EQ(device.a, platform::sim::kSimStickVendorId);
    EXPECT_EQ(device.b, platform::sim::kSimStickProductId);
    EXPECT_TRUE(device.c);
    EXPECT_EQ(device.d, 1u);

    reply = deviceAt(3);
    EXPECT_EQ(reply.returnCode, 889);
    EXPECT_EQ(reply.errorText, "General failure ( Failed to retrieve USB Device at given index.)");
    EXPECT_NE(findMessage(logMessages(), "Got request to return USB device at index 3"), -1);
}

TEST_F(UsbCommandsTest, AResetReachesTheDeviceOnItsPortOrFails)
{
    sim("usb device add 046D C52B 3");
    sim("usb device add 0BDA 8153 5 refuse");
    auto reply = reset(3);
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_EQ(m_commands.execute("usb resets"), "OK 3");
    for (std::uint32_t refused : {5u, 9u}) {
        reply = reset(refused);
        EXPECT_EQ(reply.returnCode, 889);
        EXPECT_EQ(reply.errorText, "General failure ( Failed to reset the USB Device.)");
    }
    EXPECT_EQ(m_commands.execute("usb resets"), "OK 3");
    EXPECT_NE(findMessage(logMessages(), "Got request to perform Reset USB device on port 9"), -1);
}

TEST_F(UsbCommandsTest, TheFormatNeedsAStickAndAWorkingTool)
{
    auto reply = port->ask(1058);
    EXPECT_EQ(reply.errorText, "General failure ( failed to run format usb device)");

    sim("usb plug WIM");
    sim("usb image");
    reply = port->ask(1058);
    EXPECT_EQ(reply.returnCode, 1097);
    EXPECT_TRUE(std::filesystem::is_empty(platform::sim::root() + "/F"));
    std::wstring label;
    EXPECT_TRUE(platform::getVolumeLabel(L"F:\\", label));
    EXPECT_EQ(label, L"WIM");

    ASSERT_TRUE(platform::sim::makeDirectories(platform::sim::root() + "/sim/apps"));
    std::ofstream(platform::sim::root() + "/sim/apps/format") << "exit-code=4\n";
    reply = port->ask(1058);
    EXPECT_EQ(reply.errorText, "General failure ( failed to run format usb device)");
}

TEST_F(UsbCommandsTest, AFormatAskedWhileAnotherClientsFormatRunsIsRefusedAndTheFirstOneEnds)
{
    sim("usb plug WIM");
    // A format tool that notes each run and works until the test lets it finish (10 s at most).
    const std::string release = simFile("format-release");
    installScriptProgram("C:\\Windows\\System32\\format.com", "echo run >> '" + simFile("format-runs") + "'\n" +
                                                                  "for i in $(seq 1000); do [ -e '" + release +
                                                                  "' ] && exit 0; sleep 0.01; done\nexit 1");
    ASSERT_TRUE(port->client().sendBytes(commandFrame(1058)));
    ASSERT_TRUE(eventually([] { return simLines("format-runs").size() == 1; }));

    SEP::SepClientC second;
    ASSERT_TRUE(second.connect("127.0.0.1", port->server().port()));
    ASSERT_TRUE(second.sendBytes(commandFrame(1058)));
    const CommandReplyT refused = readReply(second, 1058, 3000);
    EXPECT_TRUE(refused.received) << "the second format waited for the first";
    EXPECT_EQ(refused.errorText, "General failure ( failed to run format usb device, a format is already running)");
    EXPECT_EQ(simLines("format-runs").size(), 1u) << "two format tools ran on one stick";

    std::ofstream{release};
    const CommandReplyT formatted = readReply(port->client(), 1058);
    EXPECT_EQ(formatted.returnCode, HalvernRpc::kReturnCodeSuccess);
    EXPECT_NE(findMessage(logMessages(),
                          "[SysManagerC::FormatUsbDevice] [ERROR]: A format of the USB stick is already in progress"),
              -1);
}

}  // namespace
}  // namespace halvern::test
