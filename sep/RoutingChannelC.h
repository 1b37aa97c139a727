#pragma once
// A channel with its own id that talks to one destination address; its messages carry (router's node,
// own id) as source and the stored destination.
#include "sep/ChannelC.h"
#include "sep/RouterC.h"

namespace SEP {

class RoutingChannelC : public ChannelC {
public:
    // Without an id and destination the channel is the unaddressed default end point.
    RoutingChannelC(RouterC& router, std::uint8_t id = INVALID_CHANNEL_ID, const AddressC& destinationAddress = {});

    bool isValid() const { return m_valid; }
    AddressC sourceAddress() const override;
    AddressC destinationAddress() const override { return m_destinationAddress; }
    std::uint8_t channelId() const override { return m_id; }

    // Writes one message of this channel into `connection`'s send buffer, in its coding, and sends it.
    bool sendMessage(ConnectionHandlerC& connection, std::uint16_t messageId, std::uint32_t kind,
                     const ReceivedCommandC::FieldsFn& fields);

private:
    RouterC& m_router;
    std::uint8_t m_id;
    AddressC m_destinationAddress;
    bool m_valid;
    std::mutex m_sendLock;
};

}  // namespace SEP
