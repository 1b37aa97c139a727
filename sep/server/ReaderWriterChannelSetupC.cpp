#include "sep/server/ReaderWriterChannelSetupC.h"

namespace HalvernRpc {

ReaderWriterChannelSetupC::ReaderWriterChannelSetupC() : m_channel(m_router)
{
    m_router.setNodeId(NODE_ID);
    m_router.addCoder(m_binaryCoder);
    m_router.addCoder(m_asciiCoder);
    m_router.setDefaultChannel(m_channel);
}

std::shared_ptr<SEP::ConnectionHandlerC> ReaderWriterChannelSetupC::find(int connection)
{
    std::lock_guard<std::mutex> guard(m_connectionLock);
    auto found = m_connections.find(connection);
    return found == m_connections.end() ? nullptr : found->second;
}

void ReaderWriterChannelSetupC::onClientConnected(int connection)
{
    auto handler = std::make_shared<SEP::ConnectionHandlerC>(
        m_router, [this, connection](const std::uint8_t* data, std::size_t length) {
            return m_server != nullptr && m_server->writeData(connection, data, length);
        });
    std::lock_guard<std::mutex> guard(m_connectionLock);
    m_connections[connection] = std::move(handler);
}

void ReaderWriterChannelSetupC::onDataReceived(int connection, const std::uint8_t* data, std::size_t length)
{
    if (auto handler = find(connection)) handler->onBytesReceived(data, length);
}

void ReaderWriterChannelSetupC::onClientClosed(int connection)
{
    std::shared_ptr<SEP::ConnectionHandlerC> handler;
    {
        std::lock_guard<std::mutex> guard(m_connectionLock);
        auto found = m_connections.find(connection);
        if (found == m_connections.end()) return;
        handler = found->second;
        m_connections.erase(found);
    }
    m_router.removeRoutesTo(*handler);
}

bool ReaderWriterChannelSetupC::sendToAll(std::uint16_t messageId, std::uint32_t kind,
                                          const SEP::ReceivedCommandC::FieldsFn& fields)
{
    std::vector<std::shared_ptr<SEP::ConnectionHandlerC>> handlers;
    {
        std::lock_guard<std::mutex> guard(m_connectionLock);
        for (const auto& entry : m_connections)
            handlers.push_back(entry.second);
    }
    bool all = true;
    for (const auto& handler : handlers)
        all = m_channel.sendMessage(*handler, messageId, kind, fields) && all;
    return all;
}

}  // namespace HalvernRpc
