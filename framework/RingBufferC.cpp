#include "framework/RingBufferC.h"

#include <algorithm>
#include <cstring>

namespace MAL::UTI {

namespace {
// Every load takes what the last store published: the bytes of a committed message, or the room a read
// freed. Plain moves on x86; the reader or writer role may pass between threads under its lock.
constexpr auto kTake = std::memory_order_acquire;
constexpr auto kPublish = std::memory_order_release;
}  // namespace

RingBufferC::RingBufferC(std::size_t capacity) : m_storage(capacity < kLengthPrefix + 1 ? kLengthPrefix + 1 : capacity)
{}

std::size_t RingBufferC::usedBytes() const
{
    return static_cast<std::size_t>(m_write.load(kTake) - m_read.load(kTake));
}

bool RingBufferC::beginMessage()
{
    if (m_inMessage) resetMessage();
    const std::uint64_t write = m_write.load(kTake);
    if (m_storage.size() - (write - m_read.load(kTake)) < kLengthPrefix) return false;
    at(write) = 0;
    at(write + 1) = 0;
    m_write.store(write + kLengthPrefix, kPublish);
    m_inMessage = true;
    return true;
}

std::size_t RingBufferC::messageLength() const
{
    if (!m_inMessage) return 0;
    return static_cast<std::size_t>(m_write.load(kTake) - m_committed.load(kTake) - kLengthPrefix);
}

bool RingBufferC::write(const std::uint8_t* data, std::size_t length)
{
    if (!m_inMessage) return false;
    const std::uint64_t write = m_write.load(kTake);
    const std::size_t free = m_storage.size() - static_cast<std::size_t>(write - m_read.load(kTake));
    const std::size_t current = static_cast<std::size_t>(write - m_committed.load(kTake) - kLengthPrefix);
    if (length > free || current + length > kMaxMessageLength) return false;
    copyIn(write, data, length);
    m_write.store(write + length, kPublish);
    return true;
}

std::uint8_t RingBufferC::byteAt(std::size_t offset) const
{
    return at(m_committed.load(kTake) + kLengthPrefix + offset);
}

bool RingBufferC::copyFromMessage(std::size_t offset, std::uint8_t* out, std::size_t length) const
{
    const std::uint64_t begin = m_committed.load(kTake) + kLengthPrefix + offset;
    if (!m_inMessage || begin + length > m_write.load(kTake)) return false;
    copyOut(begin, out, length);
    return true;
}

bool RingBufferC::patch(std::size_t offset, std::uint8_t byte)
{
    if (!m_inMessage) return false;
    const std::uint64_t position = m_committed.load(kTake) + kLengthPrefix + offset;
    if (position >= m_write.load(kTake)) return false;
    at(position) = byte;
    return true;
}

bool RingBufferC::commitMessage()
{
    if (!m_inMessage) return false;
    m_inMessage = false;
    const std::uint64_t committed = m_committed.load(kTake);
    const std::uint64_t write = m_write.load(kTake);
    const std::uint64_t length = write - committed - kLengthPrefix;
    if (length < 1) {
        m_write.store(committed, kPublish);
        return false;
    }
    at(committed) = static_cast<std::uint8_t>(length & 0xFF);
    at(committed + 1) = static_cast<std::uint8_t>(length >> 8);
    m_committed.store(write, kPublish);
    return true;
}

void RingBufferC::resetMessage()
{
    m_write.store(m_committed.load(kTake), kPublish);
    m_inMessage = false;
}

bool RingBufferC::hasMessage() const
{
    return m_read.load(kTake) != m_committed.load(kTake);
}

bool RingBufferC::frontMessage(std::vector<std::uint8_t>& message) const
{
    const std::uint64_t read = m_read.load(kTake);
    if (read == m_committed.load(kTake)) return false;
    const std::size_t length = at(read) | (static_cast<std::size_t>(at(read + 1)) << 8);
    message.resize(length);
    copyOut(read + kLengthPrefix, message.data(), length);
    return true;
}

bool RingBufferC::frontMessageSpans(SpanT& first, SpanT& second) const
{
    const std::uint64_t read = m_read.load(kTake);
    if (read == m_committed.load(kTake)) return false;
    const std::size_t length = at(read) | (static_cast<std::size_t>(at(read + 1)) << 8);
    const std::size_t start = static_cast<std::size_t>((read + kLengthPrefix) % m_storage.size());
    first = {m_storage.data() + start, std::min(length, m_storage.size() - start)};
    second = {m_storage.data(), length - first.length};
    return true;
}

void RingBufferC::popMessage()
{
    const std::uint64_t read = m_read.load(kTake);
    if (read == m_committed.load(kTake)) return;
    const std::size_t length = at(read) | (static_cast<std::size_t>(at(read + 1)) << 8);
    m_read.store(read + kLengthPrefix + length, kPublish);
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
