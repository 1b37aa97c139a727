#pragma once
// What both codings share: the message buffer with its write lock, the sticky good flag, the checksum
// patch and the read position in the current frame.
#include <cstdint>
#include <string>

#include "sep/DataCoderI.h"

namespace SEP {

// Printable or white space in the C locale, whatever locale the process runs with: what a string of
// either coding may hold.
bool carriable(unsigned char c);
// `text` with every byte that a string cannot carry written as the four characters \xNN.
std::string carriableText(const std::string& text);

class CoderBaseC : public DataCoderI {
public:
    void setWriteBuffer(MAL::UTI::RingBufferC* buffer) override { m_buffer = buffer; }
    void setReadFrame(const std::uint8_t* data, std::size_t length) override;
    bool endMessage() override;
    bool atEnd() const override { return m_position >= m_frameLength; }

protected:
    // Locks the buffer and begins a message; clears the good flag on failure.
    bool startMessage();
    bool put(const std::uint8_t* data, std::size_t length);
    bool put(std::uint8_t byte) { return put(&byte, 1); }
    bool put(const std::string& text) { return put(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()); }
    // Drops the partial message, keeps the good flag cleared until the next begin.
    bool fail();
    // Length and checksum of the finished message, written by the coding.
    virtual bool patchTrailer(MAL::UTI::RingBufferC& buffer) = 0;
    // A string's characters as both codings carry them: an inner double quote as 0x1A, nothing that is
    // neither printable nor white space.
    bool putQuotedString(const char* text);
    bool getQuotedString(std::string& text);

    MAL::UTI::RingBufferC* m_buffer = nullptr;
    MAL::UTI::RingBufferWriteLockC m_lock;
    bool m_good = false;

    const std::uint8_t* m_frame = nullptr;
    std::size_t m_frameLength = 0;
    std::size_t m_position = 0;
};

}  // namespace SEP
