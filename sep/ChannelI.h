#pragma once
// An end point of the router: it receives the messages addressed to it.
#include <cstdint>

#include "sep/Address.h"
#include "sep/DataCoderI.h"

namespace SEP {

class ConnectionHandlerC;

class ChannelI {
public:
    virtual ~ChannelI() = default;
    // `coder` is positioned after the header; `connection` is where the frame came from and where an
    // answer goes back.
    virtual void receive(DataReaderI& reader, const DataCoderI& coder, std::uint32_t kind, std::uint16_t messageId,
                         const AddressC& source, const AddressC& destination, ConnectionHandlerC& connection) = 0;
    virtual AddressC sourceAddress() const = 0;
    virtual AddressC destinationAddress() const = 0;
    virtual std::uint8_t channelId() const = 0;
};

}  // namespace SEP
