#include <gtest/gtest.h>

#include <thread>

#include "platform/Clock.h"
#include "platform/Sync.h"
#include "platform/WinError.h"
#include "support/TestEnvironment.h"

namespace halvern::test {
namespace {

class SyncTest : public InstrumentTest {};

TEST_F(SyncTest, NamedObjectsAreFoundAgainByName)
{
    auto security = platform::NullDaclSecurityC::create();
    ASSERT_TRUE(security);
    auto first = platform::createMutex(security.get(), true, L"Global\\HalvernSyncTest");
    ASSERT_TRUE(first);
    EXPECT_EQ(platform::lastError(), platform::kErrorSuccess);
    auto second = platform::createMutex(security.get(), false, L"Global\\HalvernSyncTest");
    ASSERT_TRUE(second);
    EXPECT_EQ(platform::lastError(), platform::kErrorAlreadyExists);

    auto event = platform::createEvent(nullptr, true, false, L"Global\\HalvernSyncTestEvent");
    auto sameEvent = platform::createEvent(nullptr, true, false, L"Global\\HalvernSyncTestEvent");
    EXPECT_EQ(platform::lastError(), platform::kErrorAlreadyExists);
    EXPECT_TRUE(platform::setEvent(sameEvent.get()));
    EXPECT_EQ(platform::waitForSingleObject(event.get(), 0), platform::kWaitObject0);
}

TEST_F(SyncTest, ManualAndAutoResetEvents)
{
    auto manual = platform::createEvent(nullptr, true, true, L"");
    EXPECT_EQ(platform::waitForSingleObject(manual.get(), 0), platform::kWaitObject0);
    EXPECT_EQ(platform::waitForSingleObject(manual.get(), 0), platform::kWaitObject0) << "stays signalled";
    EXPECT_TRUE(platform::resetEvent(manual.get()));
    EXPECT_EQ(platform::waitForSingleObject(manual.get(), 0), platform::kWaitTimeout);

    auto automatic = platform::createEvent(nullptr, false, true, L"");
    EXPECT_EQ(platform::waitForSingleObject(automatic.get(), 0), platform::kWaitObject0);
    EXPECT_EQ(platform::waitForSingleObject(automatic.get(), 0), platform::kWaitTimeout) << "a wait consumes it";
}

TEST_F(SyncTest, WaitEndsWhenAnotherThreadSignals)
{
    auto event = platform::createEvent(nullptr, true, false, L"");
    std::thread signaller([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        platform::setEvent(event.get());
    });
    EXPECT_EQ(platform::waitForSingleObject(event.get(), platform::kInfinite), platform::kWaitObject0);
    signaller.join();
}

TEST_F(SyncTest, MutexIsRecursiveForItsOwnerOnly)
{
    auto mutex = platform::createMutex(nullptr, true, L"");
    EXPECT_EQ(platform::waitForSingleObject(mutex.get(), 0), platform::kWaitObject0);
    std::uint32_t otherThread = 0;
    std::thread([&] { otherThread = platform::waitForSingleObject(mutex.get(), 0); }).join();
    EXPECT_EQ(otherThread, platform::kWaitTimeout);
    EXPECT_TRUE(platform::releaseMutex(mutex.get()));
    EXPECT_TRUE(platform::releaseMutex(mutex.get()));
    EXPECT_FALSE(platform::releaseMutex(mutex.get())) << "no longer owned";
}

TEST_F(SyncTest, ClosingAClosedHandleFails)
{
    auto event = platform::createEvent(nullptr, true, false, L"");
    platform::HandleValue raw = event.release();
    EXPECT_TRUE(platform::closeHandle(raw));
    EXPECT_FALSE(platform::closeHandle(raw));
    EXPECT_EQ(platform::lastError(), platform::kErrorInvalidHandle);
}

}  // namespace
}  // namespace halvern::test
