#include <gtest/gtest.h>

#include "platform/Sync.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysPowerC.h"

namespace halvern::test {
namespace {

class SysPowerTest : public InstrumentTest {};

TEST_F(SysPowerTest, ResponseEventIsSignalledOnlyWhenTheOwnerEnds)
{
    platform::UniqueHandle watcher;
    {
        SysPowerC power;
        watcher = platform::createEvent(nullptr, true, false, L"Global\\HalvernShutdownResponse");
        ASSERT_TRUE(watcher);
        EXPECT_EQ(platform::waitForSingleObject(watcher.get(), 0), platform::kWaitTimeout);
    }
    EXPECT_EQ(platform::waitForSingleObject(watcher.get(), 0), platform::kWaitObject0);
    EXPECT_TRUE(logMessages().empty());
}

}  // namespace
}  // namespace halvern::test
