#include "sep/ChannelC.h"

#include "framework/DebugLog.h"

namespace SEP {

void ChannelC::registerCommandHandler(std::uint16_t messageId, CommandHandlerFn handler)
{
    std::lock_guard<std::mutex> guard(m_handlerLock);
    m_commandHandlers[messageId] = std::move(handler);
}

void ChannelC::setDefaultCallback(CommandHandlerFn callback)
{
    std::lock_guard<std::mutex> guard(m_handlerLock);
    m_defaultCallback = std::move(callback);
}

void ChannelC::setEventHandler(EventHandlerFn handler)
{
    std::lock_guard<std::mutex> guard(m_handlerLock);
    m_eventHandler = std::move(handler);
}

void ChannelC::setReplyHandler(EventHandlerFn handler)
{
    std::lock_guard<std::mutex> guard(m_handlerLock);
    m_replyHandler = std::move(handler);
}

void ChannelC::receive(DataReaderI& reader, const DataCoderI&, std::uint32_t kind, std::uint16_t messageId,
                       const AddressC& source, const AddressC& destination, ConnectionHandlerC& connection)
{
    if (kind == MESSAGE_KIND_COMMAND) {
        CommandHandlerFn handler;
        {
            std::lock_guard<std::mutex> guard(m_handlerLock);
            auto found = m_commandHandlers.find(messageId);
            handler = found != m_commandHandlers.end() ? found->second : m_defaultCallback;
        }
        if (!handler) {
            BSS::debugLog(BSS::kDebugLevelRouting, "%s no handler for command %u", "SEP::ChannelC::receive",
                          static_cast<unsigned>(messageId));
            return;
        }
        ReceivedCommandC command(reader, messageId, source, destination, connection);
        handler(command);
        return;
    }
    EventHandlerFn handler;
    {
        std::lock_guard<std::mutex> guard(m_handlerLock);
        handler = kind == MESSAGE_KIND_EVENT ? m_eventHandler : m_replyHandler;
    }
    if (!handler) return;
    ReceivedEventC message(reader, messageId, source, destination);
    handler(message);
}

}  // namespace SEP
