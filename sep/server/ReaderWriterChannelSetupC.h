#pragma once
// Connects a TCP server's byte streams to SEP: one connection handler per client, both codings (binary
// tried first), one router and the server's channel that handlers are registered with. Each connection's
// received bytes go through its own command queue, so commands run off the server's I/O task and a slow
// one holds back only its own connection.
#include <map>
#include <memory>
#include <mutex>
#include <vector>

#include "framework/NetTcpIpServerC.h"
#include "sep/AsciiCoderC.h"
#include "sep/BinaryCoderC.h"
#include "sep/RouterC.h"
#include "sep/RoutingChannelC.h"
#include "sep/server/CommandQueueC.h"

namespace HalvernRpc {

class ReaderWriterChannelSetupC : public BSS::NET::NetTcpIpServerListenerI {
public:
    // The server's SEP node. Its one channel is the router's default channel (id 255): it takes commands
    // without an address block and those addressed to node 1, channel 255.
    static constexpr std::uint8_t NODE_ID = 1;

    ReaderWriterChannelSetupC();
    ~ReaderWriterChannelSetupC() override;
    void attach(BSS::NET::NetTcpIpServerC& server) { m_server = &server; }

    SEP::RoutingChannelC& channel() { return m_channel; }
    // Sends one message of the server's channel to every connected client; false when one of them
    // could not take it. It never waits for a client.
    bool sendToAll(std::uint16_t messageId, std::uint32_t kind, const SEP::ReceivedCommandC::FieldsFn& fields);
    // After the server's stop (which closed every connection): waits for the command queues' threads,
    // all together at most `milliseconds`; false when one of them is still running a command.
    bool waitForCommands(std::uint32_t milliseconds);
    // Closes every command queue and waits for its thread, however long the running command takes (each
    // has a bound of its own); afterwards no thread of this object runs.
    void endCommands();
    // Cancels the waits of the commands running now and of those to come, until resetCancel().
    void cancelCommands() { m_cancel.cancel(); }
    void resetCancel() { m_cancel.reset(); }

    void onClientConnected(int connection) override;
    bool onDataReceived(int connection, const std::uint8_t* data, std::size_t length) override;
    void onClientClosed(int connection) override;

private:
    struct ConnectionT {
        std::shared_ptr<SEP::ConnectionHandlerC> handler;
        std::unique_ptr<CommandQueueC> commands;
    };
    std::shared_ptr<ConnectionT> find(int connection);
    // Frees the queues of closed connections whose thread has ended.
    void reapClosed();

    BSS::NET::NetTcpIpServerC* m_server = nullptr;
    BSS::CancelTokenC m_cancel;
    SEP::BinaryCoderC m_binaryCoder;
    SEP::AsciiCoderC m_asciiCoder;
    SEP::RouterC m_router;
    SEP::RoutingChannelC m_channel;
    std::mutex m_connectionLock;
    std::map<int, std::shared_ptr<ConnectionT>> m_connections;
    // Closed connections whose command may still run.
    std::vector<std::shared_ptr<ConnectionT>> m_closed;
};

}  // namespace HalvernRpc
