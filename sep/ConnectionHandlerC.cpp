#include "sep/ConnectionHandlerC.h"

#include <cstring>

#include "sep/BinaryCoderC.h"
#include "sep/RouterC.h"
#include "sep/SerialFramerC.h"

namespace SEP {

ConnectionHandlerC::ConnectionHandlerC(RouterC& router, TransmitFn transmit)
    : m_router(&router),
      m_transmit(std::move(transmit)),
      m_receiveBuffer(kBufferCapacity),
      m_sendBuffer(kBufferCapacity),
      m_readerConnection(m_receiveBuffer, &m_framingDrops),
      m_coding(std::make_unique<BinaryCoderC>())
{}

ConnectionHandlerC::~ConnectionHandlerC() = default;

void ConnectionHandlerC::onBytesReceived(const std::uint8_t* data, std::size_t length)
{
    if (m_readerConnection.procReadData(data, length) == 0) return;
    m_receivingThread = std::this_thread::get_id();
    m_router->handleIncomingMessage(*this);
    m_receivingThread = std::thread::id();
    // The last command of the pass may have had no reply of its own to carry the held ones.
    flush();
}

ConnectionHandlerC::WriteResultE ConnectionHandlerC::writeMessage(std::uint16_t messageId, std::uint32_t kind,
                                                                  const AddressC& source, const AddressC& destination,
                                                                  const FieldsFn& fields)
{
    const auto build = [&](DataCoderI& writer) {
        if (!writer.beginMessage(messageId, kind, source, destination)) return false;
        if (fields && !fields(writer)) {
            writer.endMessage();
            return false;
        }
        return writer.endMessage();
    };
    bool written = build(*makeCoder());
    // The messages held back for the commands before this one may fill the send buffer: they leave first,
    // and the message is built again in the emptied buffer. What then still fails cannot be encoded.
    if (!written && hasHeldMessages()) {
        if (!flush(true)) return WriteResultE::NotSent;
        written = build(*makeCoder());
    }
    if (!written) return WriteResultE::Refused;
    return flush() ? WriteResultE::Written : WriteResultE::NotSent;
}

bool ConnectionHandlerC::hasHeldMessages()
{
    MAL::UTI::RingBufferReadLockC lock(m_sendBuffer);
    return m_sendBuffer.hasMessage();
}

void ConnectionHandlerC::paceReplies()
{
    if (m_pace) m_pace();
}

bool ConnectionHandlerC::flush(bool now)
{
    // Commands that a client sent together are answered together: while the receiving pass still has
    // frames queued behind the one being handled, its replies wait in the send buffer and leave with the
    // reply to the last one, in one write instead of one per reply. A transmit that fails later is logged
    // where it fails; the handlers do not act on it.
    if (!now && std::this_thread::get_id() == m_receivingThread.load() && m_receiveBuffer.hasMessage()) return true;
    std::lock_guard<std::mutex> guard(m_flushLock);
    m_framed.clear();
    while (MAL::UTI::SerialFramerC::takeFramed(m_sendBuffer, m_framed)) {
    }
    if (m_framed.empty()) return true;
    return m_transmit && m_transmit(m_framed.data(), m_framed.size());
}

bool ConnectionHandlerC::forwardFrame(const std::vector<std::uint8_t>& frame)
{
    {
        MAL::UTI::RingBufferWriteLockC lock(m_sendBuffer);
        if (!m_sendBuffer.beginMessage() || !m_sendBuffer.write(frame.data(), frame.size()) ||
            !m_sendBuffer.commitMessage()) {
            m_sendBuffer.resetMessage();
            return false;
        }
    }
    return flush();
}

std::unique_ptr<DataCoderI> ConnectionHandlerC::makeCoder()
{
    std::lock_guard<std::mutex> guard(m_codingLock);
    auto coder = m_coding->clone();
    coder->setWriteBuffer(&m_sendBuffer);
    return coder;
}

const std::vector<DataCoderI*>& ConnectionHandlerC::readers(const std::vector<DataCoderI*>& coders)
{
    if (m_readers.size() != coders.size()) {
        m_readerCoders.clear();
        m_readers.clear();
        for (const DataCoderI* coder : coders) {
            m_readerCoders.push_back(coder->clone());
            m_readers.push_back(m_readerCoders.back().get());
        }
    }
    return m_readers;
}

void ConnectionHandlerC::setCoding(const DataCoderI& coder)
{
    std::lock_guard<std::mutex> guard(m_codingLock);
    // Every frame sets it and the coding rarely changes: no new coder for the same one.
    if (std::strcmp(m_coding->name(), coder.name()) == 0) return;
    m_coding = coder.clone();
}

}  // namespace SEP
