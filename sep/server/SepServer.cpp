#include "sep/server/SepServer.h"

#include <memory>
#include <mutex>
#include <vector>

#include "app/Log.h"
#include "framework/InstrumentEvents.h"
#include "platform/Socket.h"
#include "sep/server/HalvernSepImpl.h"
#include "sysmanager/SysManagerC.h"

namespace halvern {
namespace {

std::mutex& serversLock()
{
    static std::mutex lock;
    return lock;
}

std::vector<std::unique_ptr<HalvernRpc::TcpIpServerChannelSetupC>>& servers()
{
    static std::vector<std::unique_ptr<HalvernRpc::TcpIpServerChannelSetupC>> list;
    return list;
}

bool startOneOrThrow(std::uint16_t defaultPort)
{
    auto server = std::make_unique<HalvernRpc::TcpIpServerChannelSetupC>(
        HalvernRpc::TcpIpServerChannelSetupC::defaultConfig(platform::serverPort(defaultPort)));
    // Handlers are in place before the first client can connect.
    HalvernSepImpl::RegisterHandlers(server->channel());
    if (!server->start(kSepStartValue)) return false;
    WriteLog("Started SEP server on port %d", static_cast<int>(server->port()));
    platform::announceServerPort(defaultPort, server->port());
    std::lock_guard<std::mutex> guard(serversLock());
    servers().push_back(std::move(server));
    return true;
}

bool startOne(std::uint16_t defaultPort)
{
    try {
        return startOneOrThrow(defaultPort);
    } catch (...) {
        WriteLog("[%s]: Got unknown exception.", "init");
        return false;
    }
}

}  // namespace

bool forEachSepServer(const std::function<bool(HalvernRpc::TcpIpServerChannelSetupC& server)>& visit)
{
    std::lock_guard<std::mutex> guard(serversLock());
    for (auto& server : servers())
        if (!visit(*server)) return false;
    return true;
}

bool StartSepServer()
{
    WriteLog("SOFTWARE.IMG check done, starting SEP.");
    // From now on the lower layers' events reach the clients of the running servers.
    setInstrumentEvents(&HalvernSepImpl::instrumentEvents());
    // The system manager's teardown stops the servers first: a command being handled may still use it.
    SysManagerC::SetBeforeTeardown(&StopSepServer);
    if (!startOne(kSepPrimaryPort) || !startOne(kSepSecondaryPort)) {
        WriteLog("ERROR Halvern [%s] [ERROR]: Failed to initialize SEP server!", "wWinMain");
        StopSepServer();
        return false;
    }
    return true;
}

void StopSepServer()
{
    std::vector<std::unique_ptr<HalvernRpc::TcpIpServerChannelSetupC>> running;
    {
        std::lock_guard<std::mutex> guard(serversLock());
        running.swap(servers());
    }
    for (auto& server : running) {
        if (server->stop()) continue;
        WriteLog("[ERROR]: Failed to wait for stop of SEP server!");
        // A command that outlived its cancellation still uses the server: it is left to it, so that the
        // close sequence goes on.
        static_cast<void>(server.release());
    }
}

}  // namespace halvern
