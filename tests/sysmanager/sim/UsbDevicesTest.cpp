// The USB devices as the system manager keeps them on the simulated instrument: the list after the main
// window's device changes, the recycling of a port whose device hung in its enumeration, the restart of a
// port and the USB stick's format.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "app/MainWindowFixture.h"
#include "platform/FileSystem.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/SimUsbBus.h"
#include "sim/ControlCommands.h"
#include "sim/WindowsControlCommands.h"
#include "sim/standin/StandInInstall.h"
#include "support/FirmwareUpdaterSupport.h"

namespace halvern::test {
namespace {

constexpr platform::WParam kDeviceArrival = 0x8000;
constexpr platform::WParam kDeviceRemoveComplete = 0x8004;

class UsbDevicesTest : public MainWindowTest {
protected:
    void SetUp() override
    {
        MainWindowTest::SetUp();
        // The format tool is a process of its own, which real time lets finish.
        platform::setClock(nullptr);
        sim::addWindowsControlCommands(m_commands);
        std::string error;
        ASSERT_TRUE(sim::installStandIns(platform::sim::root(), HALVERN_STANDIN_PROGRAM, error)) << error;
        manager = SysManagerC::Instance();
        manager->SetMainWindow(m_window);
    }

    void sim(const std::string& command) { ASSERT_EQ(m_commands.execute(command), "OK") << command; }

    std::pair<std::uint32_t, std::uint32_t> count() const
    {
        std::pair<std::uint32_t, std::uint32_t> counted;
        manager->GetUsbDeviceCount(counted.first, counted.second);
        return counted;
    }

    // Runs what the window was sent until now.
    void dispatchPending()
    {
        platform::postQuitMessage(0);
        runUntilQuit();
    }

    std::vector<std::string> resets() const
    {
        std::vector<std::string> lines;
        std::ifstream in(platform::sim::usbResetsPath(platform::sim::root()));
        for (std::string line; std::getline(in, line);)
            lines.push_back(line);
        return lines;
    }

    int logged(const std::string& text) const
    {
        int found = 0;
        for (const auto& message : logMessages())
            if (message == text) ++found;
        return found;
    }

    sim::ControlCommandsC m_commands;
    SysManagerC* manager = nullptr;
};

TEST_F(UsbDevicesTest, TheListFollowsTheDeviceChangesAndTheStickIsAMassStorageDevice)
{
    sim("usb device add 046D C52B 3");
    EXPECT_EQ(count(), std::make_pair(0u, 0u)) << "the list is what the last device change left";

    WndProc(m_window, platform::wm::DeviceChange, kDeviceArrival, 0);
    ASSERT_EQ(count(), std::make_pair(1u, 1u));
    sim("usb plug WIM");
    WndProc(m_window, platform::wm::DeviceChange, kDeviceArrival, 0);
    ASSERT_EQ(count(), std::make_pair(2u, 2u));

    platform::UsbDeviceT device;
    ASSERT_TRUE(manager->GetUsbDeviceAt(0, device));
    EXPECT_EQ(device.vendorId, 0x046D);
    EXPECT_EQ(device.productId, 0xC52B);
    EXPECT_FALSE(device.massStorage);
    EXPECT_EQ(device.port, 3u);
    ASSERT_TRUE(manager->GetUsbDeviceAt(1, device));
    EXPECT_EQ(device.vendorId, platform::sim::kSimStickVendorId);
    EXPECT_TRUE(device.massStorage);
    EXPECT_EQ(device.port, 1u) << "the stick takes the first free port";
    EXPECT_FALSE(manager->GetUsbDeviceAt(2, device));

    sim("usb device remove 3");
    WndProc(m_window, platform::wm::DeviceChange, kDeviceRemoveComplete, 0);
    ASSERT_EQ(count(), std::make_pair(1u, 1u));
    sim("usb unplug");
    WndProc(m_window, platform::wm::DeviceChange, kDeviceRemoveComplete, 0);
    EXPECT_EQ(count(), std::make_pair(0u, 0u));
    EXPECT_FALSE(manager->GetUsbDeviceAt(0, device));
}

TEST_F(UsbDevicesTest, AnArrivalRecyclesTheUnenumeratedDevicesPortOnceUntilItIsSeenAgain)
{
    sim("usb device add 1234 5678 2 unenumerated");
    sim("usb device add 046D C52B 4 unenumerated refuse");
    WndProc(m_window, platform::wm::DeviceChange, kDeviceArrival, 0);
    EXPECT_EQ(count(), std::make_pair(2u, 0u));
    dispatchPending();
    // The restart completed the one device's enumeration; the other refused and stays as it was.
    EXPECT_EQ(resets(), std::vector<std::string>{"2"});
    EXPECT_EQ(logged("[SysManagerC::ResetUsbDevice] [ERROR]: Failed to restart the USB device on port 4, ERROR(5)"), 1);

    WndProc(m_window, platform::wm::DeviceChange, kDeviceArrival, 0);
    EXPECT_EQ(count(), std::make_pair(2u, 1u));
    dispatchPending();
    EXPECT_EQ(logged("[SysManagerC::RecycleUsbPort]: Recycling USB port 4"), 1) << "a hung port is recycled once";

    // Gone and back: it gets its chance again.
    sim("usb device remove 4");
    WndProc(m_window, platform::wm::DeviceChange, kDeviceRemoveComplete, 0);
    sim("usb device add 046D C52B 4 unenumerated refuse");
    WndProc(m_window, platform::wm::DeviceChange, kDeviceArrival, 0);
    dispatchPending();
    EXPECT_EQ(logged("[SysManagerC::RecycleUsbPort]: Recycling USB port 4"), 2);
    // A removal does not look at the enumeration.
    WndProc(m_window, platform::wm::DeviceChange, kDeviceRemoveComplete, 0);
    dispatchPending();
    EXPECT_EQ(logged("[SysManagerC::RecycleUsbPort]: Recycling USB port 4"), 2);
}

TEST_F(UsbDevicesTest, AResetRestartsTheDeviceOnItsPortOrFails)
{
    sim("usb device add 046D C52B 3");
    sim("usb device add 0BDA 8153 5 refuse");
    EXPECT_TRUE(manager->ResetUsbDevice(3));
    EXPECT_FALSE(manager->ResetUsbDevice(7)) << "no device on that port";
    EXPECT_FALSE(manager->ResetUsbDevice(5)) << "the device refuses";
    EXPECT_EQ(resets(), std::vector<std::string>{"3"});
    EXPECT_EQ(logged("[SysManagerC::ResetUsbDevice] [ERROR]: Failed to restart the USB device on port 7, ERROR(1168)"),
              1);
    // The main window's recycling request for a port is the same restart.
    WndProc(m_window, WM_USB_PORT_RECYCLE, 0x70003, 0);
    EXPECT_EQ(resets(), (std::vector<std::string>{"3", "3"}));
}

TEST_F(UsbDevicesTest, TheFormatEmptiesTheStickAndKeepsItsLabel)
{
    EXPECT_FALSE(manager->FormatUsbDevice()) << "no stick attached";
    EXPECT_EQ(logged("[SysManagerC::FormatUsbDevice] [ERROR]: No USB stick attached, ERROR(3)"), 1);

    sim("usb plug WIM");
    sim("usb image");
    const std::string drive = platform::sim::root() + "/F";
    ASSERT_TRUE(manager->FormatUsbDevice());
    EXPECT_TRUE(std::filesystem::is_empty(drive));
    std::wstring label;
    ASSERT_TRUE(platform::getVolumeLabel(L"F:\\", label));
    EXPECT_EQ(label, L"WIM");
    EXPECT_EQ(simLines("apps/log").at(1), "format arguments F: /FS:FAT32 /Q /X /Y /V:WIM");

    // A label with a blank stays one label; a stick too big for FAT32 keeps its own file system.
    sim("usb plug FIELD DATA");
    std::ofstream(platform::sim::root() + "/sim/volumes/F", std::ios::app) << "exFAT\n";
    ASSERT_TRUE(manager->FormatUsbDevice());
    ASSERT_TRUE(platform::getVolumeLabel(L"F:\\", label));
    EXPECT_EQ(label, L"FIELD DATA");
    EXPECT_EQ(simLines("apps/log").at(4), "format arguments F: /FS:exFAT /Q /X /Y /V:FIELD DATA");
    std::wstring fileSystem;
    ASSERT_TRUE(platform::getVolumeFileSystem(L"F:\\", fileSystem));
    EXPECT_EQ(fileSystem, L"exFAT");
}

TEST_F(UsbDevicesTest, AFailingOrHangingFormatToolIsAFailureAndTheStickStaysAsItWas)
{
    sim("usb plug WIM");
    sim("usb image");
    const std::string image = platform::sim::root() + "/F/system/software.img";
    ASSERT_TRUE(platform::sim::makeDirectories(simFile("apps")));
    std::ofstream(simFile("apps/format")) << "exit-code=4\n";
    EXPECT_FALSE(manager->FormatUsbDevice());
    EXPECT_TRUE(std::filesystem::exists(image));
    EXPECT_EQ(logged("[SysManagerC::FormatUsbDevice] [ERROR]: The format tool failed with exit code 4"), 1);

    // Its wait runs out at once on a virtual clock; the tool is ended.
    std::ofstream(simFile("apps/format"), std::ios::trunc) << "exit-after-ms=never\n";
    platform::ManualClockC clock;
    platform::setClock(&clock);
    EXPECT_FALSE(manager->FormatUsbDevice());
    platform::setClock(nullptr);
    EXPECT_TRUE(std::filesystem::exists(image));
    EXPECT_EQ(logged("[SysManagerC::FormatUsbDevice] [ERROR]: The format tool did not end within 300000 ms"), 1);

    std::filesystem::remove(platform::sim::root() + "/C/Windows/System32/format.com");
    std::filesystem::remove(simFile("apps/format"));
    EXPECT_FALSE(manager->FormatUsbDevice());
    EXPECT_EQ(logged("[SysManagerC::FormatUsbDevice] [ERROR]: Failed to start the format tool, ERROR(2)"), 1);
}

}  // namespace
}  // namespace halvern::test
