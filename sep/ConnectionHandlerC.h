#pragma once
// Ties one byte-stream connection to the router: received bytes go through the framing into the receive
// buffer and on to the router; messages written into the send buffer are framed and handed to the
// connection's transmit function.
#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "framework/DebugLog.h"
#include "framework/RingBufferC.h"
#include "sep/DataCoderI.h"
#include "sep/ReaderConnectionC.h"

namespace SEP {

class RouterC;

class ConnectionHandlerC {
public:
    // Room for the largest message (64 KiB) and its length prefix.
    static constexpr std::size_t kBufferCapacity = 0x10000 + 2;
    using TransmitFn = std::function<bool(const std::uint8_t* data, std::size_t length)>;

    ConnectionHandlerC(RouterC& router, TransmitFn transmit);
    ~ConnectionHandlerC();
    ConnectionHandlerC(const ConnectionHandlerC&) = delete;
    ConnectionHandlerC& operator=(const ConnectionHandlerC&) = delete;

    bool belongsTo(const RouterC& router) const { return m_router == &router; }

    // Bytes from the peer: framing, then every completed frame through the router.
    void onBytesReceived(const std::uint8_t* data, std::size_t length);
    // Frames every message of the send buffer and transmits them in one piece; false when the transmit
    // failed. Within a receiving pass with more frames waiting the messages are held for the next reply,
    // unless `now`.
    bool flush(bool now = false);
    bool hasHeldMessages();
    // Writes one message with a fresh coder of the connection (`fields` writes its parameters) and sends
    // it; when it does not fit beside the held messages, those leave first and it is written once more.
    // Refused: the coding would not write it (nothing is sent).
    enum class WriteResultE { Written, Refused, NotSent };
    using FieldsFn = std::function<bool(DataWriterI& writer)>;
    WriteResultE writeMessage(std::uint16_t messageId, std::uint32_t kind, const AddressC& source,
                              const AddressC& destination, const FieldsFn& fields);
    // Called after each reply has been handed on, outside every lock of the connection: the owner may
    // wait there until the peer has taken enough of what it was sent.
    using PaceFn = std::function<void()>;
    void setPace(PaceFn pace) { m_pace = std::move(pace); }
    void paceReplies();
    // Queues a frame unchanged (forwarding) and flushes.
    bool forwardFrame(const std::vector<std::uint8_t>& frame);

    MAL::UTI::RingBufferC& receiveBuffer() { return m_receiveBuffer; }
    MAL::UTI::RingBufferC& sendBuffer() { return m_sendBuffer; }
    // The router's lines about frames of this connection that it drops.
    BSS::LogLimiterC& routingDrops() { return m_routingDrops; }
    // At the end of the connection: how many drop lines were held back.
    void summarizeDrops()
    {
        m_framingDrops.summarize();
        m_routingDrops.summarize();
    }

    // A fresh coder of the connection's coding: the coding of the last frame that the router could read,
    // binary before any.
    std::unique_ptr<DataCoderI> makeCoder();
    // This connection's readers: one copy of each of `coders`, in their order, made on first use.
    const std::vector<DataCoderI*>& readers(const std::vector<DataCoderI*>& coders);
    void setCoding(const DataCoderI& coder);

private:
    // Before the reader connection, which uses its limiter.
    BSS::LogLimiterC m_framingDrops;
    BSS::LogLimiterC m_routingDrops;
    RouterC* m_router;
    TransmitFn m_transmit;
    PaceFn m_pace;
    MAL::UTI::RingBufferC m_receiveBuffer;
    MAL::UTI::RingBufferC m_sendBuffer;
    MAL::HAL::ReaderConnectionC m_readerConnection;
    std::mutex m_flushLock;
    std::vector<std::uint8_t> m_framed;
    // The thread in a receiving pass over this connection's frames; none outside of one.
    std::atomic<std::thread::id> m_receivingThread{};
    // Used by the one thread that handles the connection's frames.
    std::vector<std::unique_ptr<DataCoderI>> m_readerCoders;
    std::vector<DataCoderI*> m_readers;
    mutable std::mutex m_codingLock;
    std::unique_ptr<DataCoderI> m_coding;
};

}  // namespace SEP
