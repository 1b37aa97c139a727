#pragma once
// One SEP port: a listening TCP server and the SEP channel behind it.
#include <string>

#include "framework/NetTcpIpServerC.h"
#include "sep/server/ReaderWriterChannelSetupC.h"

namespace HalvernRpc {

class TcpIpServerChannelSetupC {
public:
    // The instrument's configuration for `port`: up to 10 clients from the default ranges, 1024-byte reads.
    static BSS::NET::NetTcpIpServerCfgT defaultConfig(std::uint16_t port);

    explicit TcpIpServerChannelSetupC(const BSS::NET::NetTcpIpServerCfgT& config);
    ~TcpIpServerChannelSetupC();

    const std::string& name() const { return m_name; }
    // `startWaitMs` bounds how long the start may take; the socket set-up answers at once here.
    bool start(std::uint32_t startWaitMs);
    bool stop();

    std::uint16_t port() const { return m_server.boundPort(); }
    SEP::RoutingChannelC& channel() { return m_readerWriter.channel(); }
    ReaderWriterChannelSetupC& readerWriter() { return m_readerWriter; }
    BSS::NET::NetTcpIpServerC& server() { return m_server; }

private:
    std::string m_name;
    ReaderWriterChannelSetupC m_readerWriter;
    BSS::NET::NetTcpIpServerC m_server;
};

}  // namespace HalvernRpc
