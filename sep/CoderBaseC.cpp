#include "sep/CoderBaseC.h"

namespace SEP {
namespace {

constexpr std::uint8_t kQuote = 0x22;
constexpr std::uint8_t kInnerQuote = 0x1A;

}  // namespace

bool carriable(unsigned char c)
{
    return (c >= 0x20 && c <= 0x7E) || (c >= 0x09 && c <= 0x0D);
}

std::string carriableText(const std::string& text)
{
    std::string result;
    result.reserve(text.size());
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (carriable(byte)) {
            result.push_back(c);
        } else {
            static const char kHex[] = "0123456789ABCDEF";
            result += "\\x";
            result.push_back(kHex[byte >> 4]);
            result.push_back(kHex[byte & 0x0F]);
        }
    }
    return result;
}

void CoderBaseC::setReadFrame(const std::uint8_t* data, std::size_t length)
{
    m_frame = data;
    m_frameLength = length;
    m_position = 0;
}

bool CoderBaseC::startMessage()
{
    m_good = false;
    if (m_buffer == nullptr) return false;
    if (!m_lock.owns()) m_lock = MAL::UTI::RingBufferWriteLockC(*m_buffer);
    if (!m_buffer->beginMessage()) {
        m_lock.release();
        return false;
    }
    m_good = true;
    return true;
}

bool CoderBaseC::put(const std::uint8_t* data, std::size_t length)
{
    if (!m_good) return false;
    if (!m_buffer->write(data, length)) return fail();
    return true;
}

bool CoderBaseC::fail()
{
    if (m_buffer != nullptr && m_lock.owns()) {
        m_buffer->resetMessage();
        m_lock.release();
    }
    m_good = false;
    return false;
}

bool CoderBaseC::endMessage()
{
    if (!m_good) return fail();
    if (!patchTrailer(*m_buffer)) return fail();
    const bool committed = m_buffer->commitMessage();
    m_lock.release();
    m_good = false;
    return committed;
}

bool CoderBaseC::putQuotedString(const char* text)
{
    if (!m_good) return false;
    if (text == nullptr) return fail();
    std::string quoted(1, static_cast<char>(kQuote));
    for (const char* c = text; *c != '\0'; ++c) {
        const auto byte = static_cast<unsigned char>(*c);
        if (byte == kQuote)
            quoted.push_back(static_cast<char>(kInnerQuote));
        else if (carriable(byte))
            quoted.push_back(*c);
        else
            return fail();
    }
    quoted.push_back(static_cast<char>(kQuote));
    return put(quoted);
}

bool CoderBaseC::getQuotedString(std::string& text)
{
    std::size_t position = m_position;
    if (position >= m_frameLength || m_frame[position] != kQuote) return false;
    ++position;
    std::string result;
    while (position < m_frameLength && m_frame[position] != kQuote) {
        result.push_back(m_frame[position] == kInnerQuote ? '"' : static_cast<char>(m_frame[position]));
        ++position;
    }
    if (position >= m_frameLength) return false;
    m_position = position + 1;
    text = std::move(result);
    return true;
}

}  // namespace SEP
