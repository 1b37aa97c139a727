#pragma once
// A ring buffer of whole messages. Each message is stored behind a 16-bit little-endian length that never
// leaves the buffer. One writer builds a message between beginMessage() and commitMessage() while holding
// the write lock; readers see only committed messages and take the read lock to consume them.
// The writer alone moves the write and commit positions and the reader alone the read position, so they
// meet only in the published positions: no lock per field that a coder writes.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <vector>

namespace MAL::UTI {

class RingBufferC {
public:
    static constexpr std::size_t kLengthPrefix = 2;
    static constexpr std::size_t kMaxMessageLength = 0xFFFF;

    explicit RingBufferC(std::size_t capacity);
    RingBufferC(const RingBufferC&) = delete;
    RingBufferC& operator=(const RingBufferC&) = delete;

    // --- writer (write lock held) ---
    // False when not even the length prefix fits.
    bool beginMessage();
    bool inMessage() const { return m_inMessage; }
    // False when the bytes do not fit; the partial message stays as it was.
    bool write(const std::uint8_t* data, std::size_t length);
    bool write(std::uint8_t byte) { return write(&byte, 1); }
    // Length of the message being written.
    std::size_t messageLength() const;
    std::uint8_t byteAt(std::size_t offset) const;
    // Copies `length` bytes of the message being written, from `offset`, into `out` (checksums read a
    // whole message back); false when they are not all written.
    bool copyFromMessage(std::size_t offset, std::uint8_t* out, std::size_t length) const;
    bool patch(std::size_t offset, std::uint8_t byte);
    // Publishes the message; a message shorter than one byte is dropped. False when nothing was published.
    bool commitMessage();
    // Throws the partial message away.
    void resetMessage();

    // --- reader (read lock held) ---
    bool hasMessage() const;
    // Copies the oldest committed message; false when there is none.
    bool frontMessage(std::vector<std::uint8_t>& message) const;
    // The oldest committed message where it lies: `first` and, when it runs across the end of the
    // storage, `second` (else empty). Valid until it is popped. False when there is none.
    struct SpanT {
        const std::uint8_t* data = nullptr;
        std::size_t length = 0;
    };
    bool frontMessageSpans(SpanT& first, SpanT& second) const;
    void popMessage();

    std::size_t capacity() const { return m_storage.size(); }
    std::size_t usedBytes() const;

private:
    friend class RingBufferWriteLockC;
    friend class RingBufferReadLockC;

    std::uint8_t at(std::uint64_t position) const { return m_storage[position % m_storage.size()]; }
    std::uint8_t& at(std::uint64_t position) { return m_storage[position % m_storage.size()]; }
    // At most two block copies across the end of the storage.
    void copyIn(std::uint64_t position, const std::uint8_t* data, std::size_t length);
    void copyOut(std::uint64_t position, std::uint8_t* out, std::size_t length) const;

    std::vector<std::uint8_t> m_storage;
    std::mutex m_writeLock;
    std::mutex m_readLock;
    // Positions count bytes since the start and wrap only through the modulo: read <= committed <= write.
    // The writer releases the bytes of a message with the commit position, the reader the room it freed
    // with the read position; the write position is the writer's own (atomic for usedBytes() only).
    std::atomic<std::uint64_t> m_read{0};
    std::atomic<std::uint64_t> m_committed{0};
    std::atomic<std::uint64_t> m_write{0};
    bool m_inMessage = false;
};

class RingBufferWriteLockC {
public:
    explicit RingBufferWriteLockC(RingBufferC& buffer) : m_lock(buffer.m_writeLock) {}
    RingBufferWriteLockC() = default;
    RingBufferWriteLockC& operator=(RingBufferWriteLockC&&) = default;
    bool owns() const { return m_lock.owns_lock(); }
    void release() { m_lock = std::unique_lock<std::mutex>(); }

private:
    std::unique_lock<std::mutex> m_lock;
};

class RingBufferReadLockC {
public:
    explicit RingBufferReadLockC(RingBufferC& buffer) : m_lock(buffer.m_readLock) {}

private:
    std::lock_guard<std::mutex> m_lock;
};

}  // namespace MAL::UTI
