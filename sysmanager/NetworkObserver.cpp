// The network observer: in the device modes that must not route traffic beyond the instrument, no
// persistent default route may stay. It is deleted at the start and after every change of the route
// table; stopping may release and renew the leases so that a gateway comes back.
#include "app/Log.h"
#include "platform/Process.h"
#include "platform/RouteChange.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/WinError.h"
#include "sysmanager/NetworkObserverC.h"

namespace {

const wchar_t* const kRouteProgram = L"c:\\windows\\system32\\route.exe";
const wchar_t* const kRouteRemoval = L"delete -p 0.0.0.0";
const wchar_t* const kIpconfigProgram = L"c:\\windows\\system32\\ipconfig.exe";
constexpr std::uint32_t kCommandWaitMs = 5000;
constexpr std::uint32_t kObserverStopWaitMs = 7000;

int lastErrorNumber()
{
    return static_cast<int>(platform::lastError());
}

// Runs `file` elevated and gives it a while to end; its handle is closed either way.
bool runElevated(const wchar_t* file, const std::wstring& parameters)
{
    platform::UniqueHandle process;
    if (!platform::shellExecuteElevated(file, parameters, process)) return false;
    platform::waitForSingleObject(process.get(), kCommandWaitMs);
    return true;
}

void observeRoutes(platform::HandleValue exitEvent)
{
    platform::RouteChangeNotificationC routes;
    if (!routes.create()) return;
    NetworkObserverC::removeGateways();
    for (;;) {
        if (routes.request() != platform::kErrorIoPending) return;
        const std::uint32_t woken = platform::waitForAnyObject({exitEvent, routes.event()}, platform::kInfinite);
        if (woken == platform::kWaitObject0) return;
        if (woken == platform::kWaitObject0 + 1) {
            NetworkObserverC::removeGateways();
            if (!routes.resetEvent()) WriteLog("[ERROR]: WSAResetEvent FAILED (Error: %d)", lastErrorNumber());
            continue;
        }
        WriteLog("[ERROR]: Observer: WaitForMultipleObjects (dwRetVal %d, Error: %d)", static_cast<int>(woken),
                 lastErrorNumber());
    }
}

}  // namespace

NetworkObserverC::~NetworkObserverC()
{
    if (m_networkObserverThread || m_networkObserverExit) stopNetworkObserver(false);
}

bool NetworkObserverC::startNetworkObserver()
{
    WriteLog("starting network observer.");
    if (m_networkObserverThread && m_networkObserverExit) {
        WriteLog("Network observer already running.");
        return true;
    }
    if (m_networkObserverThread || m_networkObserverExit) {
        WriteLog("[ERROR]: Missmatch found!");
        return false;
    }
    m_networkObserverExit = platform::createEvent(nullptr, true, false, L"");
    if (!m_networkObserverExit) {
        WriteLog("[ERROR]: create exit event FAILED.");
        return false;
    }
    const platform::HandleValue exitEvent = m_networkObserverExit.get();
    m_networkObserverThread = platform::createThread([exitEvent] { observeRoutes(exitEvent); });
    if (!m_networkObserverThread) {
        WriteLog("[ERROR]: create RouteChangedObserverThread FAILED.");
        m_networkObserverExit.reset();
        return false;
    }
    WriteLog("Network observer successfully started.");
    return true;
}

bool NetworkObserverC::stopNetworkObserver(bool renew)
{
    WriteLog("stopping network observer.");
    if (!m_networkObserverThread && !m_networkObserverExit) {
        WriteLog("network observer not running.");
        return true;
    }
    if (!m_networkObserverThread) {
        WriteLog("[ERROR]: network observer handle is NULL!");
        m_networkObserverExit.reset();
        return false;
    }
    if (!m_networkObserverExit) {
        WriteLog("[ERROR]: exit event handle is NULL!");
        return false;
    }
    platform::setEvent(m_networkObserverExit.get());
    bool ended = true;
    if (platform::waitForSingleObject(m_networkObserverThread.get(), kObserverStopWaitMs) != platform::kWaitObject0) {
        WriteLog("[ERROR]: network observer not exiting, timeout!");
        ended = false;
    }
    m_networkObserverThread.reset();
    m_networkObserverExit.reset();
    if (renew) {
        for (const char* step : {"/release", "/renew"})
            if (!runIpconfigCMD(platform::widen(step))) WriteLog("ERROR: ipconfig cmd %s FAILED", step);
    }
    WriteLog("Network observer successfully stopped.");
    return ended;
}

bool NetworkObserverC::removeGateways()
{
    if (!runElevated(kRouteProgram, kRouteRemoval)) {
        WriteLog("[ERROR]: calling delete route FAILED (Error: %d)", lastErrorNumber());
        return false;
    }
    WriteLog("[SECURITY] Network gateways successfully removed.");
    return true;
}

bool NetworkObserverC::runIpconfigCMD(const std::wstring& parameters)
{
    if (!runElevated(kIpconfigProgram, parameters)) {
        WriteLog("[%s] [ERROR]: ShellExecuteEx for ipconfig cmds failed!, ERROR(%d)", "SysManagerC::runIpconfigCMD",
                 lastErrorNumber());
        return false;
    }
    return true;
}
