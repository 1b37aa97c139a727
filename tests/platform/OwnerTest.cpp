// The one owner template as every kind of resource uses it: an owner closes what it holds exactly once, hands it
// over on a move, lets go of it on release, and never changes the thread's last error while it closes. Named
// events and listening sockets show from the outside whether the resource behind an owner is still open.
#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "platform/Handle.h"
#include "platform/Socket.h"
#include "platform/Sync.h"
#include "platform/WinError.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

constexpr std::uint32_t kCallersError = platform::kErrorMoreData;

// A named event exists while one of its handles is open: creating it again then opens the existing one.
bool eventIsOpen(const std::wstring& name)
{
    const platform::UniqueHandle probe = platform::createEvent(nullptr, true, false, name);
    return probe && platform::lastError() == platform::kErrorAlreadyExists;
}

platform::UniqueSocket listeningSocket(std::uint16_t& port)
{
    platform::UniqueSocket socket = platform::createTcpSocket();
    if (!socket || !platform::bindSocket(socket.get(), platform::kLoopbackAddress, 0) ||
        !platform::listenSocket(socket.get(), 4))
        return platform::UniqueSocket();
    port = platform::localPort(socket.get());
    return socket;
}

// A closed listening socket refuses the connection.
bool stillListening(std::uint16_t port)
{
    const platform::UniqueSocket client = platform::createTcpSocket();
    return client && platform::connectSocket(client.get(), platform::kLoopbackAddress, port);
}

class OwnerTest : public InstrumentTest {};

TEST_F(OwnerTest, MoveAssignmentClosesTheOldHandleAndTheMovedFromOwnerClosesNothing)
{
    platform::UniqueHandle target = platform::createEvent(nullptr, true, false, L"HalvernOwnerTestOld");
    platform::UniqueHandle source = platform::createEvent(nullptr, true, false, L"HalvernOwnerTestNew");
    ASSERT_TRUE(target);
    ASSERT_TRUE(source);
    const platform::HandleValue moved = source.get();

    target = std::move(source);
    EXPECT_EQ(target.get(), moved);
    EXPECT_FALSE(source);
    EXPECT_FALSE(eventIsOpen(L"HalvernOwnerTestOld"));

    source.reset();
    EXPECT_TRUE(eventIsOpen(L"HalvernOwnerTestNew")) << "the moved-from owner closed the handle it gave away";
    EXPECT_TRUE(platform::setEvent(target.get()));
    {
        const platform::UniqueHandle last(std::move(target));
        EXPECT_FALSE(target);
    }
    EXPECT_FALSE(eventIsOpen(L"HalvernOwnerTestNew"));
}

TEST_F(OwnerTest, MoveAssignmentClosesTheOldSocketOnly)
{
    std::uint16_t oldPort = 0;
    std::uint16_t newPort = 0;
    platform::UniqueSocket target = listeningSocket(oldPort);
    platform::UniqueSocket source = listeningSocket(newPort);
    ASSERT_TRUE(target);
    ASSERT_TRUE(source);

    target = std::move(source);
    source = platform::UniqueSocket();
    EXPECT_FALSE(stillListening(oldPort));
    EXPECT_TRUE(stillListening(newPort));
}

TEST_F(OwnerTest, ReleasedResourcesStayOpenUntilTheirNewKeeperClosesThem)
{
    platform::UniqueHandle event = platform::createEvent(nullptr, true, false, L"HalvernOwnerTestReleased");
    ASSERT_TRUE(event);
    const platform::HandleValue released = event.release();
    EXPECT_FALSE(event);
    event.reset();
    EXPECT_TRUE(eventIsOpen(L"HalvernOwnerTestReleased"));
    EXPECT_TRUE(platform::closeHandle(released));
    EXPECT_FALSE(eventIsOpen(L"HalvernOwnerTestReleased"));

    std::uint16_t port = 0;
    platform::UniqueSocket socket = listeningSocket(port);
    ASSERT_TRUE(socket);
    platform::UniqueSocket keeper(socket.release());
    EXPECT_EQ(socket.get(), platform::kInvalidSocket);
    socket.reset();
    EXPECT_TRUE(stillListening(port));
}

TEST_F(OwnerTest, ResetClosesAndLeavesTheInvalidValue)
{
    std::uint16_t port = 0;
    platform::UniqueSocket socket = listeningSocket(port);
    ASSERT_TRUE(socket);
    socket.reset();
    EXPECT_FALSE(socket);
    EXPECT_EQ(socket.get(), platform::kInvalidSocket);
    EXPECT_FALSE(stillListening(port));

    platform::UniqueHandle event = platform::createEvent(nullptr, true, false, L"HalvernOwnerTestReset");
    ASSERT_TRUE(event);
    platform::UniqueHandle replacement = platform::createEvent(nullptr, true, false, L"");
    ASSERT_TRUE(replacement);
    const platform::HandleValue adopted = replacement.get();
    event.reset(replacement.release());
    EXPECT_FALSE(eventIsOpen(L"HalvernOwnerTestReset"));
    EXPECT_EQ(event.get(), adopted);
    EXPECT_TRUE(platform::setEvent(event.get()));
    event.reset();
    EXPECT_EQ(event.get(), nullptr);
}

TEST_F(OwnerTest, ClosingByAssignmentOrAtScopeEndKeepsTheCallersLastError)
{
    platform::UniqueHandle event = platform::createEvent(nullptr, true, false, L"");
    ASSERT_TRUE(event);
    std::uint16_t port = 0;
    platform::UniqueSocket socket = listeningSocket(port);
    ASSERT_TRUE(socket);

    platform::setLastError(kCallersError);
    event = platform::UniqueHandle();
    EXPECT_EQ(platform::lastError(), kCallersError);
    {
        const platform::UniqueSocket scoped(std::move(socket));
    }
    EXPECT_EQ(platform::lastError(), kCallersError);
    EXPECT_FALSE(stillListening(port));
}

TEST_F(OwnerTest, AFailingCloseByAssignmentOrAtScopeEndKeepsTheCallersLastError)
{
    // Values that name nothing open: their close fails and sets an error of its own.
    platform::UniqueHandle handle(reinterpret_cast<platform::HandleValue>(0x7FFE8));
    platform::setLastError(kCallersError);
    handle = platform::UniqueHandle();
    EXPECT_EQ(platform::lastError(), kCallersError);
    {
        const platform::UniqueSocket socket(static_cast<platform::SocketValue>(0x7FE8));
    }
    EXPECT_EQ(platform::lastError(), kCallersError);

    EXPECT_FALSE(platform::closeSocket(static_cast<platform::SocketValue>(0x7FEC)));
    EXPECT_NE(platform::lastError(), kCallersError) << "the failing close did not set an error to keep away from";
}

}  // namespace
}  // namespace halvern::test
