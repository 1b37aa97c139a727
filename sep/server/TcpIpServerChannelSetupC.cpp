#include "sep/server/TcpIpServerChannelSetupC.h"

#include "app/Log.h"

namespace HalvernRpc {

BSS::NET::NetTcpIpServerCfgT TcpIpServerChannelSetupC::defaultConfig(std::uint16_t port)
{
    BSS::NET::NetTcpIpServerCfgT config;
    config.port = port;
    config.listenAddress = platform::serverListenAddress();
    return config;
}

TcpIpServerChannelSetupC::TcpIpServerChannelSetupC(const BSS::NET::NetTcpIpServerCfgT& config)
    : m_name(std::string("Halvern channel") + " TCP/IP Server"), m_server(config, m_readerWriter)
{
    m_readerWriter.attach(m_server);
}

TcpIpServerChannelSetupC::~TcpIpServerChannelSetupC()
{
    m_server.stop();
}

bool TcpIpServerChannelSetupC::start(std::uint32_t)
{
    if (!m_server.start()) {
        WriteLog("Could not start port!");
        return false;
    }
    return true;
}

bool TcpIpServerChannelSetupC::stop()
{
    if (!m_server.stop()) {
        WriteLog("Could not stop port!");
        return false;
    }
    return true;
}

}  // namespace HalvernRpc
