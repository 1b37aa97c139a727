#include "sep/RoutingChannelC.h"

#include "framework/Panic.h"

namespace SEP {

RoutingChannelC::RoutingChannelC(RouterC& router, std::uint8_t id, const AddressC& destinationAddress)
    : m_router(router), m_id(id), m_destinationAddress(destinationAddress)
{
    m_valid = MAL_ASSERT((id != INVALID_CHANNEL_ID && destinationAddress.isValid() &&
                          destinationAddress.getNodeId() != INVALID_NODE_ID &&
                          destinationAddress.getChannelId() != INVALID_CHANNEL_ID) ||
                         (id == INVALID_CHANNEL_ID && !destinationAddress.isValid()));
}

AddressC RoutingChannelC::sourceAddress() const
{
    if (m_id < INVALID_CHANNEL_ID) return AddressC(m_router.nodeId(), m_id);
    return AddressC();
}

bool RoutingChannelC::sendMessage(ConnectionHandlerC& connection, std::uint16_t messageId, std::uint32_t kind,
                                  const ReceivedCommandC::FieldsFn& fields)
{
    std::lock_guard<std::mutex> guard(m_sendLock);
    if (!m_valid) return false;
    return connection.writeMessage(messageId, kind, sourceAddress(), destinationAddress(), fields) ==
           ConnectionHandlerC::WriteResultE::Written;
}

}  // namespace SEP
