#include "framework/RingBufferC.h"

#include <algorithm>
#include <cstring>

namespace MAL::UTI {

RingBufferC::RingBufferC(std::size_t capacity) : m_storage(capacity < kLengthPrefix + 1 ? kLengthPrefix + 1 : capacity)
{}

std::size_t RingBufferC::usedBytes() const
{
    std::lock_guard<std::mutex> guard(m_positionLock);
    return static_cast<std::size_t>(m_write - m_read);
}

bool RingBufferC::beginMessage()
{
    if (m_inMessage) resetMessage();
    std::lock_guard<std::mutex> guard(m_positionLock);
    if (m_storage.size() - (m_write - m_read) < kLengthPrefix) return false;
    at(m_write) = 0;
    at(m_write + 1) = 0;
    m_write += kLengthPrefix;
    m_inMessage = true;
    return true;
}

std::size_t RingBufferC::messageLength() const
{
    if (!m_inMessage) return 0;
    std::lock_guard<std::mutex> guard(m_positionLock);
    return static_cast<std::size_t>(m_write - m_committed - kLengthPrefix);
}

bool RingBufferC::write(const std::uint8_t* data, std::size_t length)
{
    if (!m_inMessage) return false;
    std::lock_guard<std::mutex> guard(m_positionLock);
    const std::size_t free = m_storage.size() - static_cast<std::size_t>(m_write - m_read);
    const std::size_t current = static_cast<std::size_t>(m_write - m_committed - kLengthPrefix);
    if (length > free || current + length > kMaxMessageLength) return false;
    copyIn(m_write, data, length);
    m_write += length;
    return true;
}

std::uint8_t RingBufferC::byteAt(std::size_t offset) const
{
    std::lock_guard<std::mutex> guard(m_positionLock);
    return at(m_committed + kLengthPrefix + offset);
}

bool RingBufferC::copyFromMessage(std::size_t offset, std::uint8_t* out, std::size_t length) const
{
    std::lock_guard<std::mutex> guard(m_positionLock);
    if (!m_inMessage || m_committed + kLengthPrefix + offset + length > m_write) return false;
    copyOut(m_committed + kLengthPrefix + offset, out, length);
    return true;
}

bool RingBufferC::patch(std::size_t offset, std::uint8_t byte)
{
    if (!m_inMessage) return false;
    std::lock_guard<std::mutex> guard(m_positionLock);
    if (m_committed + kLengthPrefix + offset >= m_write) return false;
    at(m_committed + kLengthPrefix + offset) = byte;
    return true;
}

bool RingBufferC::commitMessage()
{
    if (!m_inMessage) return false;
    m_inMessage = false;
    std::lock_guard<std::mutex> guard(m_positionLock);
    const std::uint64_t length = m_write - m_committed - kLengthPrefix;
    if (length < 1) {
        m_write = m_committed;
        return false;
    }
    at(m_committed) = static_cast<std::uint8_t>(length & 0xFF);
    at(m_committed + 1) = static_cast<std::uint8_t>(length >> 8);
    m_committed = m_write;
    return true;
}

void RingBufferC::resetMessage()
{
    std::lock_guard<std::mutex> guard(m_positionLock);
    m_write = m_committed;
    m_inMessage = false;
}

bool RingBufferC::hasMessage() const
{
    std::lock_guard<std::mutex> guard(m_positionLock);
    return m_read != m_committed;
}

bool RingBufferC::frontMessage(std::vector<std::uint8_t>& message) const
{
    std::lock_guard<std::mutex> guard(m_positionLock);
    if (m_read == m_committed) return false;
    const std::size_t length = at(m_read) | (static_cast<std::size_t>(at(m_read + 1)) << 8);
    message.resize(length);
    copyOut(m_read + kLengthPrefix, message.data(), length);
    return true;
}

void RingBufferC::popMessage()
{
    std::lock_guard<std::mutex> guard(m_positionLock);
    if (m_read == m_committed) return;
    const std::size_t length = at(m_read) | (static_cast<std::size_t>(at(m_read + 1)) << 8);
    m_read += kLengthPrefix + length;
}

void RingBufferC::copyIn(std::uint64_t position, const std::uint8_t* data, std::size_t length)
{
    const std::size_t start = static_cast<std::size_t>(position % m_storage.size());
    const std::size_t first = std::min(length, m_storage.size() - start);
    std::memcpy(m_storage.data() + start, data, first);
    std::memcpy(m_storage.data(), data + first, length - first);
}

void RingBufferC::copyOut(std::uint64_t position, std::uint8_t* out, std::size_t length) const
{
    const std::size_t start = static_cast<std::size_t>(position % m_storage.size());
    const std::size_t first = std::min(length, m_storage.size() - start);
    std::memcpy(out, m_storage.data() + start, first);
    std::memcpy(out + first, m_storage.data(), length - first);
}

}  // namespace MAL::UTI
