#include <gtest/gtest.h>
#include <sys/socket.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/sim/SimRoot.h"
#include "platform/sim/SimUsbBus.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

using platform::sim::UsbNotifyEndpointC;
using BindE = UsbNotifyEndpointC::BindE;

class UsbNotifyEndpointTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        m_root = platform::sim::root();
        ASSERT_FALSE(m_root.empty());
        m_folder = platform::sim::usbNotifyFolder(m_root);
    }

    std::string m_root;
    std::string m_folder;
};

std::string takeWord(int socket)
{
    char word[16] = {};
    const ssize_t got = ::recv(socket, word, sizeof word - 1, MSG_DONTWAIT);
    return got > 0 ? std::string(word, static_cast<std::size_t>(got)) : std::string();
}

TEST_F(UsbNotifyEndpointTest, AnEndpointHearsTheBusUntilItsOwnerEnds)
{
    {
        UsbNotifyEndpointC endpoint;
        ASSERT_EQ(endpoint.bind(m_root, "4711.1"), BindE::Bound);
        EXPECT_EQ(platform::sim::notifyUsbDeviceChange(m_root, true), 1);
        EXPECT_EQ(takeWord(endpoint.socket()), platform::sim::kUsbArrivalWord);
        EXPECT_EQ(platform::sim::notifyUsbDeviceChange(m_root, false), 1);
        EXPECT_EQ(takeWord(endpoint.socket()), platform::sim::kUsbRemovalWord);
    }
    EXPECT_EQ(platform::sim::notifyUsbDeviceChange(m_root, true), 0);
    std::error_code error;
    EXPECT_TRUE(std::filesystem::is_empty(m_folder, error)) << error.message();
}

// A halvern-sim that was killed leaves its relay's name behind; the next run must still be told.
TEST_F(UsbNotifyEndpointTest, AStaleNameIsTakenOver)
{
    ASSERT_TRUE(platform::sim::makeDirectories(m_folder));
    std::ofstream(m_folder + "/wine-relay") << "left over\n";
    UsbNotifyEndpointC endpoint;
    ASSERT_EQ(endpoint.bind(m_root, "wine-relay"), BindE::Bound);
    EXPECT_EQ(platform::sim::notifyUsbDeviceChange(m_root, true), 1);
    EXPECT_EQ(takeWord(endpoint.socket()), platform::sim::kUsbArrivalWord);
}

// The relay reports why it cannot hear the bus from errno, and a name the endpoint never bound is not its own
// to remove.
TEST_F(UsbNotifyEndpointTest, ANameThatCannotBeBoundSaysWhyAndStaysAsItWas)
{
    const std::string taken = m_folder + "/wine-relay";
    ASSERT_TRUE(platform::sim::makeDirectories(taken));
    {
        UsbNotifyEndpointC endpoint;
        errno = 0;
        EXPECT_EQ(endpoint.bind(m_root, "wine-relay"), BindE::NoSocket);
        EXPECT_EQ(errno, EADDRINUSE);
        EXPECT_EQ(endpoint.socket(), -1);
    }
    EXPECT_TRUE(std::filesystem::is_directory(taken));
}

TEST_F(UsbNotifyEndpointTest, NoFolderWhenTheRootIsUnusableOrThePathTooLong)
{
    UsbNotifyEndpointC endpoint;
    // Socket addresses hold little more than a hundred characters.
    EXPECT_EQ(endpoint.bind(m_root, std::string(120, 'n')), BindE::NoFolder);
    std::ofstream(m_root + "/not-a-folder") << "a file\n";
    EXPECT_EQ(endpoint.bind(m_root + "/not-a-folder", "4711.1"), BindE::NoFolder);
    EXPECT_EQ(endpoint.socket(), -1);
}

}  // namespace
}  // namespace halvern::test
