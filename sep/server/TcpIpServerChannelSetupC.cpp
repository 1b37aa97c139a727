#include "sep/server/TcpIpServerChannelSetupC.h"

#include "app/Log.h"
#include "platform/Registry.h"
#include "platform/Text.h"

namespace HalvernRpc {
namespace {

// The ranges of one hive's value; false when the hive does not set it. Entries that are no range are
// logged and left out, so that a typing error cannot open the port wider than the rest of the list says.
bool configuredRanges(platform::RegHive hive, const char* hiveName, std::vector<BSS::NET::AddressRangeT>& ranges)
{
    platform::UniqueRegKey key;
    std::vector<std::wstring> entries;
    if (platform::regOpenKeyRead(hive, TcpIpServerChannelSetupC::kSettingsKey, key) != 0 ||
        platform::regQueryMultiString(key, TcpIpServerChannelSetupC::kAllowedRangesValue, entries) != 0)
        return false;
    ranges.clear();
    for (const auto& entry : entries) {
        const std::string text = platform::narrow(entry).value_or(std::string());
        BSS::NET::AddressRangeT range{};
        if (BSS::NET::parseAddressRange(text, range))
            ranges.push_back(range);
        else
            WriteLog("[%s] [ERROR]: %s SepAllowedAddressRanges entry '%s' is no address range, left out",
                     "TcpIpServerChannelSetupC::allowedRanges", hiveName, text.c_str());
    }
    return true;
}

}  // namespace

std::vector<BSS::NET::AddressRangeT> TcpIpServerChannelSetupC::allowedRanges()
{
    std::vector<BSS::NET::AddressRangeT> ranges;
    // The machine's setting comes first: a user cannot widen what the administrator has set.
    if (configuredRanges(platform::RegHive::LocalMachine, "HKLM", ranges) ||
        configuredRanges(platform::RegHive::CurrentUser, "HKCU", ranges))
        return ranges;
    return BSS::NET::defaultAllowedRanges();
}

BSS::NET::NetTcpIpServerCfgT TcpIpServerChannelSetupC::defaultConfig(std::uint16_t port)
{
    BSS::NET::NetTcpIpServerCfgT config;
    config.port = port;
    config.listenAddress = platform::serverListenAddress();
    config.allowedRanges = allowedRanges();
    return config;
}

TcpIpServerChannelSetupC::TcpIpServerChannelSetupC(const BSS::NET::NetTcpIpServerCfgT& config)
    : m_name(std::string("Halvern channel") + " TCP/IP Server"), m_server(config, m_readerWriter)
{
    m_readerWriter.attach(m_server);
}

TcpIpServerChannelSetupC::~TcpIpServerChannelSetupC()
{
    m_readerWriter.cancelCommands();
    m_server.stop();
    // Before the server goes: a command still running writes its reply through it.
    m_readerWriter.endCommands();
}

bool TcpIpServerChannelSetupC::start(std::uint32_t)
{
    m_readerWriter.resetCancel();
    if (!m_server.start()) {
        WriteLog("Could not start port!");
        return false;
    }
    return true;
}

bool TcpIpServerChannelSetupC::stop()
{
    m_readerWriter.cancelCommands();
    if (!m_server.stop()) {
        WriteLog("Could not stop port!");
        return false;
    }
    // The connections are closed and their running commands cancelled: their threads end promptly.
    return m_readerWriter.waitForCommands(kCommandsEndWaitMs);
}

}  // namespace HalvernRpc
