#pragma once
// One SEP port: a listening TCP server and the SEP channel behind it.
#include <string>

#include "framework/NetTcpIpServerC.h"
#include "sep/server/ReaderWriterChannelSetupC.h"

namespace HalvernRpc {

class TcpIpServerChannelSetupC {
public:
    static constexpr const wchar_t* kSettingsKey = L"SOFTWARE\\Vexar\\Halvern";
    // REG_MULTI_SZ of "a.b.c.d/n" entries; HKLM's value wins over HKCU's, without either the default ranges
    // apply. A value that is set but holds no valid entry lets no client in.
    static constexpr const wchar_t* kAllowedRangesValue = L"SepAllowedAddressRanges";
    // How long stop() waits for the commands that were running on the closed connections.
    static constexpr std::uint32_t kCommandsEndWaitMs = 2000;

    // The instrument's configuration for `port`: up to 10 clients from the allowed ranges, 1024-byte reads.
    static BSS::NET::NetTcpIpServerCfgT defaultConfig(std::uint16_t port);
    static std::vector<BSS::NET::AddressRangeT> allowedRanges();

    explicit TcpIpServerChannelSetupC(const BSS::NET::NetTcpIpServerCfgT& config);
    ~TcpIpServerChannelSetupC();

    const std::string& name() const { return m_name; }
    // `startWaitMs` bounds how long the start may take; the socket set-up answers at once here.
    bool start(std::uint32_t startWaitMs);
    // Stops the I/O task, closes every connection and waits for their running commands; false when one
    // of them did not end within kCommandsEndWaitMs (then this object must not be destroyed while it runs).
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
