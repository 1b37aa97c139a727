#include "sep/RouterC.h"

#include <cstdio>
#include <string>

#include "framework/DebugLog.h"
#include "framework/Panic.h"

namespace SEP {
namespace {
constexpr const char* kWhere = "SEP::RouterC::handleIncomingMessage";
}

void RouterC::addCoder(DataCoderI& coder)
{
    m_coders.push_back(&coder);
}

bool RouterC::registerChannel(ChannelI& channel)
{
    const std::uint8_t channelId = channel.channelId();
    if (!MAL_ASSERT(m_nodeId != INVALID_NODE_ID || channelId == INVALID_CHANNEL_ID)) return false;
    std::lock_guard<std::mutex> guard(m_tableLock);
    m_channels[channelId] = &channel;
    return true;
}

void RouterC::unregisterChannel(ChannelI& channel)
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    auto found = m_channels.find(channel.channelId());
    if (found != m_channels.end() && found->second == &channel) m_channels.erase(found);
}

void RouterC::setDefaultChannel(ChannelI& channel)
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    m_defaultChannel = &channel;
}

bool RouterC::removeDefaultChannel(ChannelI& channel)
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    if (!MAL_ASSERT(m_defaultChannel == &channel)) return false;
    m_defaultChannel = nullptr;
    return true;
}

bool RouterC::addRoute(std::uint8_t destinationNodeId, ConnectionHandlerC& connectionHandler)
{
    if (!MAL_ASSERT(m_nodeId != INVALID_NODE_ID || destinationNodeId == INVALID_NODE_ID)) return false;
    if (!MAL_ASSERT(connectionHandler.belongsTo(*this))) return false;
    std::lock_guard<std::mutex> guard(m_tableLock);
    m_routes[destinationNodeId] = &connectionHandler;
    return true;
}

void RouterC::removeRoutesTo(ConnectionHandlerC& connectionHandler)
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    for (auto route = m_routes.begin(); route != m_routes.end();)
        route = route->second == &connectionHandler ? m_routes.erase(route) : std::next(route);
    if (m_defaultConnectionHandler == &connectionHandler) m_defaultConnectionHandler = nullptr;
}

void RouterC::setDefaultConnectionHandler(ConnectionHandlerC& connectionHandler)
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    m_defaultConnectionHandler = &connectionHandler;
}

bool RouterC::removeDefaultConnectionHandler(ConnectionHandlerC& connectionHandler)
{
    std::lock_guard<std::mutex> guard(m_tableLock);
    if (!MAL_ASSERT(m_defaultConnectionHandler == &connectionHandler)) return false;
    m_defaultConnectionHandler = nullptr;
    return true;
}

void RouterC::handleIncomingMessage(ConnectionHandlerC& connectionHandler)
{
    MAL::UTI::RingBufferC& buffer = connectionHandler.receiveBuffer();
    std::vector<std::uint8_t> frame;
    for (;;) {
        {
            MAL::UTI::RingBufferReadLockC lock(buffer);
            if (!buffer.frontMessage(frame)) return;
            buffer.popMessage();
        }
        handleFrame(frame, connectionHandler);
    }
}

void RouterC::handleFrame(const std::vector<std::uint8_t>& frame, ConnectionHandlerC& connectionHandler)
{
    // The connection's own copies of the coders: connections are handled on threads of their own, and a
    // coder holds the frame it reads.
    for (DataCoderI* coder : connectionHandler.readers(m_coders)) {
        std::uint32_t kind = 0;
        std::uint16_t messageId = 0;
        AddressC source, destination;
        coder->setReadFrame(frame.data(), frame.size());
        if (!coder->readHeader(kind, messageId, source, destination)) continue;

        connectionHandler.setCoding(*coder);
        if (!destination.isValid()) {
            deliver(INVALID_CHANNEL_ID, *coder, kind, messageId, source, destination, connectionHandler);
        } else if (destination.getNodeId() == INVALID_NODE_ID) {
            if (connectionHandler.routingDrops().allow())
                BSS::debugLog(BSS::kDebugLevelRouting, "%s ignore message", kWhere);
        } else if (destination.getNodeId() == m_nodeId) {
            deliver(destination.getChannelId(), *coder, kind, messageId, source, destination, connectionHandler);
        } else {
            ConnectionHandlerC* route = nullptr;
            {
                std::lock_guard<std::mutex> guard(m_tableLock);
                auto found = m_routes.find(destination.getNodeId());
                if (found != m_routes.end()) route = found->second;
            }
            if (route == nullptr && connectionHandler.routingDrops().allow())
                BSS::debugLog(BSS::kDebugLevelRouting, "%s ignore message (destination node not in routing table)",
                              kWhere);
            else if (route != nullptr)
                route->forwardFrame(frame);
        }
        return;
    }
    if (!connectionHandler.routingDrops().allow()) return;
    BSS::debugLog(BSS::kDebugLevelDetail, "%s ignore message (no installed coder can parse it) - size: %d\n", kWhere,
                  static_cast<int>(frame.size()));
    if (BSS::debugEnabled(BSS::kDebugLevelDump)) {
        std::string dump;
        char hex[4];
        for (std::uint8_t byte : frame) {
            std::snprintf(hex, sizeof hex, "%02X ", byte);
            dump += hex;
        }
        BSS::debugLog(BSS::kDebugLevelDump, "%s", dump.c_str());
    }
}

void RouterC::deliver(std::uint8_t channelId, DataCoderI& coder, std::uint32_t kind, std::uint16_t messageId,
                      const AddressC& source, const AddressC& destination, ConnectionHandlerC& connectionHandler)
{
    ChannelI* channel = nullptr;
    {
        std::lock_guard<std::mutex> guard(m_tableLock);
        auto found = m_channels.find(channelId);
        if (found != m_channels.end())
            channel = found->second;
        else if (channelId == INVALID_CHANNEL_ID)
            channel = m_defaultChannel;
    }
    if (channel == nullptr) {
        if (connectionHandler.routingDrops().allow())
            BSS::debugLog(BSS::kDebugLevelRouting,
                          "%s ignore message (destination channel not registered or default channel not set)", kWhere);
        return;
    }
    channel->receive(coder, coder, kind, messageId, source, destination, connectionHandler);
}

}  // namespace SEP
