#include "sep/ConnectionHandlerC.h"

#include "sep/BinaryCoderC.h"
#include "sep/RouterC.h"
#include "sep/SerialFramerC.h"

namespace SEP {

ConnectionHandlerC::ConnectionHandlerC(RouterC& router, TransmitFn transmit)
    : m_router(&router),
      m_transmit(std::move(transmit)),
      m_receiveBuffer(kBufferCapacity),
      m_sendBuffer(kBufferCapacity),
      m_readerConnection(m_receiveBuffer),
      m_coding(std::make_unique<BinaryCoderC>())
{}

ConnectionHandlerC::~ConnectionHandlerC() = default;

void ConnectionHandlerC::onBytesReceived(const std::uint8_t* data, std::size_t length)
{
    if (m_readerConnection.procReadData(data, length) > 0) m_router->handleIncomingMessage(*this);
}

bool ConnectionHandlerC::flush()
{
    std::lock_guard<std::mutex> guard(m_flushLock);
    std::vector<std::uint8_t> framed;
    bool sent = true;
    while (MAL::UTI::SerialFramerC::takeFramed(m_sendBuffer, framed)) {
        if (!m_transmit || !m_transmit(framed.data(), framed.size())) sent = false;
        framed.clear();
    }
    return sent;
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

void ConnectionHandlerC::setCoding(const DataCoderI& coder)
{
    std::lock_guard<std::mutex> guard(m_codingLock);
    m_coding = coder.clone();
}

}  // namespace SEP
