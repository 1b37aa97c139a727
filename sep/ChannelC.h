#pragma once
// A channel that hands received commands to the handler registered for their id, events to the event
// handler and replies to the reply handler. A command without a handler goes to the default callback.
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>

#include "sep/ChannelI.h"
#include "sep/ReceivedMessageC.h"

namespace SEP {

class ChannelC : public ChannelI {
public:
    using CommandHandlerFn = std::function<void(ReceivedCommandC& command)>;
    using EventHandlerFn = std::function<void(ReceivedEventC& message)>;

    void registerCommandHandler(std::uint16_t messageId, CommandHandlerFn handler);
    void setDefaultCallback(CommandHandlerFn callback);
    void setEventHandler(EventHandlerFn handler);
    void setReplyHandler(EventHandlerFn handler);

    void receive(DataReaderI& reader, const DataCoderI& coder, std::uint32_t kind, std::uint16_t messageId,
                 const AddressC& source, const AddressC& destination, ConnectionHandlerC& connection) override;
    AddressC sourceAddress() const override { return AddressC(); }
    AddressC destinationAddress() const override { return AddressC(); }
    std::uint8_t channelId() const override { return INVALID_CHANNEL_ID; }

private:
    std::mutex m_handlerLock;
    std::map<std::uint16_t, CommandHandlerFn> m_commandHandlers;
    CommandHandlerFn m_defaultCallback;
    EventHandlerFn m_eventHandler;
    EventHandlerFn m_replyHandler;
};

}  // namespace SEP
