#include "sysmanager/SysManagerC.h"

#include "app/Log.h"
#include "links/MoraManagerC.h"

namespace {
std::mutex g_instanceLock;
SysManagerC* g_instance = nullptr;
// True until the instance has been torn down; a new instance arms it again.
bool g_instanceAlive = true;
void (*g_beforeTeardown)() = nullptr;
}  // namespace

void SysManagerC::SetBeforeTeardown(void (*beforeTeardown)())
{
    std::lock_guard<std::mutex> guard(g_instanceLock);
    g_beforeTeardown = beforeTeardown;
}

SysManagerC::SysManagerC()
{
    // The sensor board's checks ask the power controller through this instance's link.
    halvern::links::MoraManagerC::setEfiService(&m_efiServiceIPC);
}

SysManagerC::~SysManagerC()
{
    halvern::links::MoraManagerC::setEfiService(nullptr);
}

SysManagerC* SysManagerC::Instance()
{
    std::lock_guard<std::mutex> guard(g_instanceLock);
    if (g_instance == nullptr) {
        g_instance = new SysManagerC();
        g_instanceAlive = true;
    }
    return g_instance;
}

void SysManagerC::DestroyInstance()
{
    void (*beforeTeardown)() = nullptr;
    {
        std::lock_guard<std::mutex> guard(g_instanceLock);
        if (!g_instanceAlive) return;
        beforeTeardown = g_beforeTeardown;
    }
    // The servers stop outside the lock: a command being handled may still ask for the instance, and
    // stopping waits for it.
    if (beforeTeardown != nullptr) beforeTeardown();
    std::lock_guard<std::mutex> guard(g_instanceLock);
    if (!g_instanceAlive) return;
    // The sensor board manager's helper is torn down here once it exists.
    WriteLog("[%s]", "SysManagerC::DestroyInstance");
    delete g_instance;
    g_instance = nullptr;
    g_instanceAlive = false;
}

void SysManagerC::SetMainWindow(platform::WindowHandle window)
{
    std::lock_guard<std::mutex> guard(m_lock);
    m_mainWindow = window;
    m_efiServiceIPC.SetTargetWindow(window);
}

platform::WindowHandle SysManagerC::GetMainWindow() const
{
    std::lock_guard<std::mutex> guard(m_lock);
    return m_mainWindow;
}
