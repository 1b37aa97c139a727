#pragma once
// Connects a TCP server's byte streams to SEP: one connection handler per client, both codings (binary
// tried first), one router and the server's channel that handlers are registered with.
#include <map>
#include <memory>
#include <mutex>

#include "framework/NetTcpIpServerC.h"
#include "sep/AsciiCoderC.h"
#include "sep/BinaryCoderC.h"
#include "sep/RouterC.h"
#include "sep/RoutingChannelC.h"

namespace HalvernRpc {

class ReaderWriterChannelSetupC : public BSS::NET::NetTcpIpServerListenerI {
public:
    static constexpr std::uint8_t NODE_ID = 1;

    ReaderWriterChannelSetupC();
    void attach(BSS::NET::NetTcpIpServerC& server) { m_server = &server; }

    SEP::RoutingChannelC& channel() { return m_channel; }
    // Sends one message of the server's channel to every connected client; false when one of them
    // could not take it.
    bool sendToAll(std::uint16_t messageId, std::uint32_t kind, const SEP::ReceivedCommandC::FieldsFn& fields);

    void onClientConnected(int connection) override;
    void onDataReceived(int connection, const std::uint8_t* data, std::size_t length) override;
    void onClientClosed(int connection) override;

private:
    std::shared_ptr<SEP::ConnectionHandlerC> find(int connection);

    BSS::NET::NetTcpIpServerC* m_server = nullptr;
    SEP::BinaryCoderC m_binaryCoder;
    SEP::AsciiCoderC m_asciiCoder;
    SEP::RouterC m_router;
    SEP::RoutingChannelC m_channel;
    std::mutex m_connectionLock;
    std::map<int, std::shared_ptr<SEP::ConnectionHandlerC>> m_connections;
};

}  // namespace HalvernRpc
