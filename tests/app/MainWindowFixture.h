#pragma once
// Runs the main window's close path on the test thread with virtual time; the instrument application is
// stood in for by a named event that is "running" until the test signals it.
#include "app/MainWindow.h"
#include "app/resource.h"
#include "platform/Sync.h"
#include "support/TestEnvironment.h"
#include "sysmanager/SysManagerC.h"

namespace halvern::test {

class MainWindowTest : public InstrumentTest {
protected:
    void SetUp() override
    {
        InstrumentTest::SetUp();
        platform::setClock(&m_clock);
        MyRegisterClass(HALVERN_TEXT_WINDOW_CLASS);  // once per process; later calls find it registered
        m_window = InitInstance(HALVERN_TEXT_APP_TITLE, HALVERN_TEXT_WINDOW_CLASS);
        ASSERT_TRUE(m_window);
    }
    void TearDown() override
    {
        if (platform::isWindow(m_window)) platform::destroyWindow(m_window);
        drain();
        SysManagerC::DestroyInstance();
        InstrumentTest::TearDown();
    }

    // Gives the system manager a running instrument application; signalling the returned handle ends it.
    platform::UniqueHandle startApplication()
    {
        const std::wstring name = L"Local\\HalvernTestApplication" + std::to_wstring(++m_applications);
        SysManagerC::Instance()->SetZentorApplicationProcess(platform::createEvent(nullptr, true, false, name));
        return platform::createEvent(nullptr, true, false, name);
    }

    // Runs the message loop until WM_QUIT and answers its exit code.
    int runUntilQuit()
    {
        platform::Message message;
        while (platform::getMessage(message) > 0)
            platform::dispatchMessage(message);
        return static_cast<int>(message.wParam);
    }

    // Leaves no WM_QUIT behind for the next test.
    void drain()
    {
        if (!m_quitSeen) {
            platform::postQuitMessage(0);
            runUntilQuit();
        }
    }

    int closeAndRun()
    {
        platform::postMessage(m_window, platform::wm::Close, 0, 0);
        const int code = runUntilQuit();
        m_quitSeen = true;
        return code;
    }

    ScriptedClockC m_clock;
    platform::WindowHandle m_window;
    bool m_quitSeen = false;
    int m_applications = 0;
};

}  // namespace halvern::test
