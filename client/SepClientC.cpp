#include "client/SepClientC.h"

#include "platform/Clock.h"
#include "platform/WinError.h"
#include "sep/AsciiCoderC.h"
#include "sep/BinaryCoderC.h"
#include "sep/SerialFramerC.h"

namespace SEP {
namespace {
constexpr std::size_t kBufferCapacity = 0x10000 + 2;
constexpr std::uint32_t kPollSliceMs = 50;
}  // namespace

std::unique_ptr<DataCoderI> makeCoder(CodingE coding)
{
    if (coding == CodingE::Ascii) return std::make_unique<AsciiCoderC>();
    return std::make_unique<BinaryCoderC>();
}

std::vector<std::uint8_t> encodeFrame(CodingE coding, std::uint16_t messageId, std::uint32_t kind,
                                      const AddressC& source, const AddressC& destination,
                                      const std::function<bool(DataWriterI&)>& fields)
{
    MAL::UTI::RingBufferC buffer(kBufferCapacity);
    auto coder = makeCoder(coding);
    coder->setWriteBuffer(&buffer);
    std::vector<std::uint8_t> framed;
    if (!coder->beginMessage(messageId, kind, source, destination)) return framed;
    if (fields && !fields(*coder)) {
        coder->endMessage();
        return framed;
    }
    if (!coder->endMessage()) return framed;
    MAL::UTI::SerialFramerC::takeFramed(buffer, framed);
    return framed;
}

bool decodeFrame(std::vector<std::uint8_t> frame, DecodedFrameT& decoded)
{
    decoded.bytes = std::move(frame);
    for (CodingE coding : {CodingE::Binary, CodingE::Ascii}) {
        auto coder = makeCoder(coding);
        coder->setReadFrame(decoded.bytes.data(), decoded.bytes.size());
        AddressC source, destination;
        if (coder->readHeader(decoded.kind, decoded.messageId, source, destination)) {
            decoded.source = source;
            decoded.destination = destination;
            decoded.coding = coding;
            decoded.coder = std::move(coder);
            return true;
        }
    }
    return false;
}

SepClientC::SepClientC() : m_receiveBuffer(kBufferCapacity), m_readerConnection(m_receiveBuffer) {}

bool SepClientC::connect(const std::string& host, std::uint16_t port)
{
    std::uint32_t address = 0;
    if (host == "localhost")
        address = platform::kLoopbackAddress;
    else if (!platform::parseIpv4(host, address))
        return false;
    platform::UniqueSocket socket = platform::createTcpSocket();
    if (!socket || !platform::connectSocket(socket.get(), address, port)) return false;
    platform::setNoDelay(socket.get());
    m_socket = std::move(socket);
    m_closed = false;
    return true;
}

bool SepClientC::sendBytes(const std::vector<std::uint8_t>& bytes)
{
    std::size_t sent = 0;
    while (m_socket && sent < bytes.size()) {
        const int result = platform::sendSocket(m_socket.get(), bytes.data() + sent, bytes.size() - sent);
        if (result <= 0) return false;
        sent += static_cast<std::size_t>(result);
    }
    return m_socket && sent == bytes.size();
}

bool SepClientC::pump(std::uint32_t timeoutMs)
{
    const std::uint64_t start = platform::tickCount64();
    while (!m_closed && m_socket) {
        const std::uint64_t elapsed = platform::tickCount64() - start;
        if (elapsed >= timeoutMs) return false;
        const auto realWait = platform::clock().idleWait(std::min<std::uint64_t>(timeoutMs - elapsed, kPollSliceMs));
        std::vector<platform::SocketPollT> readable{{m_socket.get(), false}};
        const int ready =
            platform::selectSockets(&readable, nullptr, nullptr, static_cast<std::uint32_t>(realWait.count()));
        if (ready < 0) return false;
        if (ready == 0) continue;
        std::uint8_t chunk[1024];
        const int received = platform::receiveSocket(m_socket.get(), chunk, sizeof chunk);
        if (received <= 0) {
            m_closed = true;
            return false;
        }
        m_raw.insert(m_raw.end(), chunk, chunk + received);
        if (m_readerConnection.procReadData(chunk, static_cast<std::size_t>(received)) > 0) return true;
    }
    return false;
}

bool SepClientC::receiveFrame(std::vector<std::uint8_t>& frame, std::uint32_t timeoutMs)
{
    for (;;) {
        {
            MAL::UTI::RingBufferReadLockC lock(m_receiveBuffer);
            if (m_receiveBuffer.frontMessage(frame)) {
                m_receiveBuffer.popMessage();
                return true;
            }
        }
        if (!pump(timeoutMs)) return false;
    }
}

}  // namespace SEP
