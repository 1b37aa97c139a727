#pragma once
// Decides where each received frame belongs: a channel of this node, another node through its route, or
// nowhere (dropped with a log line).
#include <cstdint>
#include <map>
#include <mutex>
#include <vector>

#include "sep/ChannelI.h"
#include "sep/ConnectionHandlerC.h"
#include "sep/DataCoderI.h"

namespace SEP {

class RouterC {
public:
    void setNodeId(std::uint8_t nodeId) { m_nodeId = nodeId; }
    std::uint8_t nodeId() const { return m_nodeId; }

    // Coders are tried in the order they were added; the router does not own them.
    void addCoder(DataCoderI& coder);

    bool registerChannel(ChannelI& channel);
    void unregisterChannel(ChannelI& channel);
    void setDefaultChannel(ChannelI& channel);
    bool removeDefaultChannel(ChannelI& channel);

    bool addRoute(std::uint8_t destinationNodeId, ConnectionHandlerC& connectionHandler);
    void removeRoutesTo(ConnectionHandlerC& connectionHandler);
    void setDefaultConnectionHandler(ConnectionHandlerC& connectionHandler);
    bool removeDefaultConnectionHandler(ConnectionHandlerC& connectionHandler);
    ConnectionHandlerC* defaultConnectionHandler() const { return m_defaultConnectionHandler; }

    // Handles every frame waiting in the connection's receive buffer.
    void handleIncomingMessage(ConnectionHandlerC& connectionHandler);

private:
    void handleFrame(const std::vector<std::uint8_t>& frame, ConnectionHandlerC& connectionHandler);
    void deliver(std::uint8_t channelId, DataCoderI& coder, std::uint32_t kind, std::uint16_t messageId,
                 const AddressC& source, const AddressC& destination, ConnectionHandlerC& connectionHandler);

    std::uint8_t m_nodeId = INVALID_NODE_ID;
    std::vector<DataCoderI*> m_coders;
    std::mutex m_tableLock;
    std::map<std::uint8_t, ChannelI*> m_channels;
    ChannelI* m_defaultChannel = nullptr;
    std::map<std::uint8_t, ConnectionHandlerC*> m_routes;
    ConnectionHandlerC* m_defaultConnectionHandler = nullptr;
};

}  // namespace SEP
