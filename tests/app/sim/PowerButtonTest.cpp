// The power button as the main window sees it: a hold of 500 ms or more shuts down, a shorter one only
// reports the button.
#include <gtest/gtest.h>

#include "app/MainWindowFixture.h"

namespace halvern::test {
namespace {

// Without clients the raise operations take no time, so the hold is exactly what the test says.
TEST_F(MainWindowTest, PressesShorterThanHalfASecondAreDiscardedAndHalfASecondShutsDown)
{
    SysManagerC::Instance()->SetMainWindow(m_window);
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 1);
    platform::sleepMs(499);
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 2);
    auto messages = logMessages();
    EXPECT_TRUE(containsInOrder(messages, {"++WM_EFI_NOTIFICATION : Notification 2 received",
                                           ">>> Power button discarded - press was too short >>>"}));
    EXPECT_EQ(findMessage(messages, ">>> Initiate System Shutdown >>>"), -1);
    EXPECT_EQ(SysManagerC::Instance()->GetApplicationPowerRequestType(), POWER_REQUEST_QUIT);

    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 1);
    platform::sleepMs(500);
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 2);
    EXPECT_NE(findMessage(logMessages(), ">>> Initiate System Shutdown >>>"), -1);
    EXPECT_EQ(SysManagerC::Instance()->GetApplicationPowerRequestType(), POWER_REQUEST_SHUTDOWN);
    EXPECT_EQ(closeAndRun(), 0) << "the close event was posted";
}

// What each code raises for clients is seen by a client in MainWindowOverSepTest.
TEST_F(MainWindowTest, EfiErrorsUnknownCategoriesAndCodeThreeAreLogged)
{
    WndProc(m_window, WM_EFI_NOTIFICATION, 0, 0x1f);
    WndProc(m_window, WM_EFI_NOTIFICATION, 7, 1);
    WndProc(m_window, WM_EFI_NOTIFICATION, 1, 3);
    EXPECT_TRUE(containsInOrder(logMessages(), {"-----------------WM_EFI_NOTIFICATION",
                                                "[ERROR]: ++WM_EFI_NOTIFICATION : EFI reported ERROR = 1f",
                                                "[ERROR]: ++WM_EFI_NOTIFICATION : Unknown EFI Event category!",
                                                "++WM_EFI_NOTIFICATION : Notification 3 received"}));
}

}  // namespace
}  // namespace halvern::test
