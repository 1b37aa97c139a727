// The whole start-up and close path in-process, ended the way Ctrl-C ends it on the host.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "app/StartUp.h"
#include "platform/Sync.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace platform::sim {
void requestClose();
}

namespace halvern::test {
namespace {

class WinMainTest : public InstrumentTest {};

TEST_F(WinMainTest, StartsRefusesASecondInstanceAndEndsOnCloseRequest)
{
    auto response = platform::createEvent(nullptr, true, false, L"Global\\HalvernShutdownResponse");
    // A close request before the window exists waits for it, as a Ctrl-C during start-up does.
    platform::sim::requestClose();
    const int exitCode = wWinMain({L"halvern", L"-noupdate"});
    EXPECT_EQ(exitCode, 0);
    EXPECT_EQ(platform::waitForSingleObject(response.get(), 0), platform::kWaitObject0);

    const auto messages = logMessages();
    const std::string text = "======= Halvern Application started, version: 4.0.0.0 =======";
    const std::string rule(text.size(), '=');
    EXPECT_TRUE(containsInOrder(
        messages,
        {"starting halvern with option -noupdate", rule, text, rule, "InitInstance done!", "++ WM_CLOSE received",
         "WM_CLOSE - SHUTDOWN: 15", "[2] DestroyLocalComponents", "[SysManagerC::DestroyInstance]",
         "++ WM_DESTROY received", "Halvern [wWinMain]: Main Message loop terminated, exiting Halvern application",
         "[1] DestroyLocalComponents"}))
        << ::testing::PrintToString(messages);
    EXPECT_EQ(std::count(messages.begin(), messages.end(), "[SysManagerC::DestroyInstance]"), 1)
        << "the instance is torn down once";
}

TEST_F(WinMainTest, SecondInstanceQuitsWithZeroWhileTheFirstRuns)
{
    platform::UniqueHandle first;
    ASSERT_TRUE(IsSingleInstance(first));
    EXPECT_EQ(wWinMain({L"halvern"}), 0);
    EXPECT_EQ(logMessages(), std::vector<std::string>{"[ERROR]: Another Halvern instance detected, quitting."});
}

}  // namespace
}  // namespace halvern::test
