// The owners of operating-system resources close what they own without touching the thread's last error: a
// caller that reads the error of its own failed call after an owner went out of scope reads that error, also
// when the close itself fails.
#include <gtest/gtest.h>

#include "platform/FileSystem.h"
#include "platform/Handle.h"
#include "platform/Registry.h"
#include "platform/Socket.h"
#include "platform/Sync.h"
#include "platform/WinError.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

constexpr std::uint32_t kCallersError = platform::kErrorPipeBusy;

using HandleOwnersTest = InstrumentTest;

TEST_F(HandleOwnersTest, ClosingThroughAnOwnerLeavesTheCallersLastError)
{
    platform::UniqueHandle event = platform::createEvent(nullptr, true, false, L"");
    ASSERT_TRUE(event);
    platform::UniqueHandle file = platform::createFile(L"D:\\logs\\owned.txt", platform::kGenericWrite, 0, false,
                                                       platform::kCreateAlways, platform::kFileAttributeNormal);
    ASSERT_TRUE(file);
    platform::UniqueSocket socket = platform::createTcpSocket();
    ASSERT_TRUE(socket);
    platform::UniqueRegKey key;
    ASSERT_EQ(platform::regCreateKey(platform::RegHive::CurrentUser, L"SOFTWARE\\Vexar\\Halvern", key), 0);
    int openError = 0;
    platform::UniqueFile stream = platform::openFile("D:\\logs\\streamed.txt", "a+", openError);
    ASSERT_TRUE(stream) << openError;

    platform::setLastError(kCallersError);
    event.reset();
    file.reset();
    socket.reset();
    key.reset();
    stream.reset();
    EXPECT_EQ(platform::lastError(), kCallersError);
}

TEST_F(HandleOwnersTest, AFailingCloseLeavesTheCallersLastErrorToo)
{
    // Values that name nothing open: closing them fails with the platform's own error.
    platform::UniqueHandle handle(reinterpret_cast<platform::HandleValue>(0x7FFF0));
    platform::UniqueSocket socket(static_cast<platform::SocketValue>(0x7FF0));
    ASSERT_FALSE(platform::closeHandle(reinterpret_cast<platform::HandleValue>(0x7FFF4)));
    ASSERT_NE(platform::lastError(), kCallersError);

    platform::setLastError(kCallersError);
    handle.reset();
    EXPECT_EQ(platform::lastError(), kCallersError);
    socket.reset();
    EXPECT_EQ(platform::lastError(), kCallersError);
}

}  // namespace
}  // namespace halvern::test
