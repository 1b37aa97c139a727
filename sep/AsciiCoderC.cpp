#include "sep/AsciiCoderC.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "framework/Panic.h"
#include "sep/Crc16.h"

namespace SEP {
namespace {

constexpr int TEMP_BUFFER_SIZE = 64;
constexpr int BUFFER_SIZE = 64;
constexpr int NUMBER_HEX_CHARS_FOR_BYTE = 2;
constexpr std::size_t kChecksumChars = 4;

char kindLetter(std::uint32_t kind)
{
    switch (kind) {
        case MESSAGE_KIND_COMMAND:
            return 'C';
        case MESSAGE_KIND_EVENT:
            return 'E';
        case MESSAGE_KIND_REPLY:
            return 'R';
        default:
            return 0;
    }
}

// Exponents with three digits ("1.5e+000", as some C runtimes print them) become the two-digit form that
// every client parses, so the line is the same whichever runtime wrote it.
void normaliseExponent(char* text)
{
    char* exponent = std::strpbrk(text, "eE");
    if (exponent == nullptr || (exponent[1] != '+' && exponent[1] != '-')) return;
    char* digits = exponent + 2;
    while (std::strlen(digits) > 2 && digits[0] == '0')
        std::memmove(digits, digits + 1, std::strlen(digits));
}

int hexValue(std::uint8_t c)
{
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    return -1;
}

// Decimal digits at `position` as one value of at most `maximum`; false without digits or on overflow.
bool parseDecimal(const std::uint8_t* text, std::size_t length, std::size_t& position, unsigned long maximum,
                  unsigned long& value)
{
    const std::size_t first = position;
    unsigned long long result = 0;
    while (position < length && text[position] >= '0' && text[position] <= '9') {
        result = result * 10 + (text[position] - '0');
        if (result > maximum) return false;
        ++position;
    }
    if (position == first) return false;
    value = static_cast<unsigned long>(result);
    return true;
}

}  // namespace

bool AsciiCoderC::beginMessage(std::uint16_t messageId, std::uint32_t kind, const AddressC& source,
                               const AddressC& destination)
{
    const char letter = kindLetter(kind);
    if (letter == 0 || source.isValid() != destination.isValid()) return fail();
    if (!startMessage()) return false;
    char text[BUFFER_SIZE];
    int numberCharsWritten = std::snprintf(text, sizeof text, "S%c%lu", letter, static_cast<unsigned long>(messageId));
    if (!MAL_ASSERT(numberCharsWritten > 0 && numberCharsWritten < BUFFER_SIZE)) return fail();
    if (!put(std::string(text))) return false;
    if (source.isValid()) {
        numberCharsWritten = std::snprintf(
            text, sizeof text, "%c%lu%c%lu%c%lu%c%lu", '@', static_cast<unsigned long>(destination.getNodeId()), ',',
            static_cast<unsigned long>(destination.getChannelId()), ',', static_cast<unsigned long>(source.getNodeId()),
            ',', static_cast<unsigned long>(source.getChannelId()));
        if (!MAL_ASSERT(numberCharsWritten > 0 && numberCharsWritten < BUFFER_SIZE)) return fail();
        if (!put(std::string(text))) return false;
    }
    if (!put(',')) return false;
    m_checksumOffset = m_buffer->messageLength();
    m_parameters = 0;
    return put(std::string("0000:"));
}

bool AsciiCoderC::patchTrailer(MAL::UTI::RingBufferC& buffer)
{
    const std::size_t length = buffer.messageLength();
    const std::uint16_t head = crc16OfMessage(buffer, 0, m_checksumOffset, 0);
    const std::uint16_t crc = crc16OfMessage(buffer, m_checksumOffset + kChecksumChars, length, head);
    const std::string text = checksumText(crc);
    if (!MAL_ASSERT(text.size() == kChecksumChars)) return false;
    for (std::size_t i = 0; i < kChecksumChars; ++i)
        buffer.patch(m_checksumOffset + i, static_cast<std::uint8_t>(text[i]));
    return true;
}

std::string AsciiCoderC::checksumText(std::uint16_t crc)
{
    // Low byte first, on purpose (the CRC 0x1234 goes out as "3412"): clients compare the characters in this order.
    char text[kChecksumChars + 1];
    const int numberCharsWritten = std::snprintf(text, sizeof text, "%02X%02X", crc & 0xFF, crc >> 8);
    if (!MAL_ASSERT(numberCharsWritten == 2 * NUMBER_HEX_CHARS_FOR_BYTE)) return std::string();
    return text;
}

bool AsciiCoderC::putSeparator()
{
    if (!m_good) return false;
    if (m_parameters++ > 0) return put(',');
    return true;
}

bool AsciiCoderC::putUnsigned(unsigned long value)
{
    if (!putSeparator()) return false;
    char text[TEMP_BUFFER_SIZE];
    const int numberCharsWritten = std::snprintf(text, sizeof text, "%lu", value);
    if (!MAL_ASSERT(numberCharsWritten > 0 && numberCharsWritten < TEMP_BUFFER_SIZE)) return fail();
    return put(std::string(text));
}

bool AsciiCoderC::putSigned(long value)
{
    if (!putSeparator()) return false;
    char text[TEMP_BUFFER_SIZE];
    const int numberCharsWritten = std::snprintf(text, sizeof text, "%li", value);
    if (!MAL_ASSERT(numberCharsWritten > 0 && numberCharsWritten < TEMP_BUFFER_SIZE)) return fail();
    return put(std::string(text));
}

bool AsciiCoderC::putReal(double value, bool single)
{
    if (!putSeparator()) return false;
    if (std::isnan(value)) return put(std::string("NAN"));
    if (std::isinf(value)) return put(std::string(value > 0 ? "INF" : "-INF"));
    char text[TEMP_BUFFER_SIZE];
    const int numberCharsWritten = std::snprintf(text, sizeof text, single ? "%.8e" : "%.16e", value);
    if (!MAL_ASSERT(numberCharsWritten > 0 && numberCharsWritten < TEMP_BUFFER_SIZE)) return fail();
    normaliseExponent(text);
    return put(std::string(text));
}

bool AsciiCoderC::writeU8(std::uint8_t value)
{
    return putUnsigned(value);
}
bool AsciiCoderC::writeU16(std::uint16_t value)
{
    return putUnsigned(value);
}
bool AsciiCoderC::writeU32(std::uint32_t value)
{
    return putUnsigned(value);
}
bool AsciiCoderC::writeI8(std::int8_t value)
{
    return putSigned(value);
}
bool AsciiCoderC::writeI16(std::int16_t value)
{
    return putSigned(value);
}
bool AsciiCoderC::writeI32(std::int32_t value)
{
    return putSigned(value);
}
bool AsciiCoderC::writeBool(bool value)
{
    return putUnsigned(value ? 1 : 0);
}
bool AsciiCoderC::writeFloat(float value)
{
    return putReal(value, true);
}
bool AsciiCoderC::writeDouble(double value)
{
    return putReal(value, false);
}

bool AsciiCoderC::writeBytes(const std::uint8_t* data, std::size_t length)
{
    if (!putSeparator()) return false;
    if (length > 0 && data == nullptr) return fail();
    std::string hex;
    for (std::size_t i = 0; i < length; ++i) {
        char text[NUMBER_HEX_CHARS_FOR_BYTE + 1];
        const int numberCharsWritten = std::snprintf(text, sizeof text, "%02X", data[i]);
        if (!MAL_ASSERT(numberCharsWritten == NUMBER_HEX_CHARS_FOR_BYTE)) return fail();
        hex += text;
    }
    return put(hex);
}

bool AsciiCoderC::writeString(const char* text)
{
    if (!putSeparator()) return false;
    return putQuotedString(text);
}

bool AsciiCoderC::tryHeaderAt(std::size_t start, std::uint32_t& kind, std::uint16_t& messageId, AddressC& source,
                              AddressC& destination)
{
    const std::uint8_t* text = m_frame;
    const std::size_t length = m_frameLength;
    std::size_t position = start + 1;
    if (position >= length) return false;
    switch (text[position]) {
        case 'C':
            kind = MESSAGE_KIND_COMMAND;
            break;
        case 'E':
            kind = MESSAGE_KIND_EVENT;
            break;
        case 'R':
            kind = MESSAGE_KIND_REPLY;
            break;
        default:
            return false;
    }
    ++position;
    unsigned long id = 0;
    if (!parseDecimal(text, length, position, 65535, id)) return false;
    if (position < length && text[position] == '@') {
        ++position;
        unsigned long numbers[4];
        for (int i = 0; i < 4; ++i) {
            if (i > 0) {
                if (position >= length || text[position] != ',') return false;
                ++position;
            }
            if (!parseDecimal(text, length, position, 255, numbers[i])) return false;
        }
        destination.set(static_cast<std::uint8_t>(numbers[0]), static_cast<std::uint8_t>(numbers[1]));
        source.set(static_cast<std::uint8_t>(numbers[2]), static_cast<std::uint8_t>(numbers[3]));
    }
    if (position >= length || text[position] != ',') return false;
    ++position;
    if (length - position < kChecksumChars + 1) return false;
    const std::size_t checksumAt = position;
    int digits[kChecksumChars];
    for (std::size_t i = 0; i < kChecksumChars; ++i) {
        digits[i] = hexValue(text[checksumAt + i]);
        if (digits[i] < 0) return false;
    }
    const std::uint16_t stored =
        static_cast<std::uint16_t>((digits[0] << 4 | digits[1]) | ((digits[2] << 4 | digits[3]) << 8));
    std::uint16_t crc = crc16(text + start, checksumAt - start);
    crc = crc16(text + checksumAt + kChecksumChars, length - checksumAt - kChecksumChars, crc);
    if (crc != stored) return false;
    position = checksumAt + kChecksumChars;
    if (text[position] != ':') return false;
    messageId = static_cast<std::uint16_t>(id);
    m_position = position + 1;
    m_pastLastValue = false;
    return true;
}

bool AsciiCoderC::readHeader(std::uint32_t& kind, std::uint16_t& messageId, AddressC& source, AddressC& destination)
{
    for (std::size_t start = 0; start < m_frameLength; ++start) {
        if (m_frame[start] != 'S') continue;
        std::uint32_t foundKind = 0;
        std::uint16_t foundId = 0;
        AddressC foundSource, foundDestination;
        if (tryHeaderAt(start, foundKind, foundId, foundSource, foundDestination)) {
            kind = foundKind;
            messageId = foundId;
            source = foundSource;
            destination = foundDestination;
            return true;
        }
    }
    return false;
}

bool AsciiCoderC::afterValue()
{
    if (m_position >= m_frameLength) {
        m_pastLastValue = true;
        return true;
    }
    if (m_frame[m_position] != ',') return false;
    ++m_position;
    return true;
}

bool AsciiCoderC::nextToken(std::string& token)
{
    if (m_pastLastValue || m_position > m_frameLength) return false;
    std::size_t end = m_position;
    while (end < m_frameLength && m_frame[end] != ',')
        ++end;
    token.assign(reinterpret_cast<const char*>(m_frame + m_position), end - m_position);
    const std::size_t saved = m_position;
    m_position = end;
    if (!afterValue()) {
        m_position = saved;
        return false;
    }
    return true;
}

bool AsciiCoderC::readUnsignedIn(unsigned long& value, unsigned long maximum)
{
    if (m_pastLastValue) return false;
    std::size_t position = m_position;
    unsigned long parsed = 0;
    if (!parseDecimal(m_frame, m_frameLength, position, maximum, parsed)) return false;
    const std::size_t saved = m_position;
    m_position = position;
    if (!afterValue()) {
        m_position = saved;
        return false;
    }
    value = parsed;
    return true;
}

bool AsciiCoderC::readSignedIn(long& value, long minimum, long maximum)
{
    if (m_pastLastValue || m_position >= m_frameLength) return false;
    std::size_t position = m_position;
    const bool negative = m_frame[position] == '-';
    if (negative || m_frame[position] == '+') ++position;
    const unsigned long limit =
        negative ? static_cast<unsigned long>(-(minimum + 1)) + 1 : static_cast<unsigned long>(maximum);
    unsigned long magnitude = 0;
    if (!parseDecimal(m_frame, m_frameLength, position, limit, magnitude)) return false;
    const std::size_t saved = m_position;
    m_position = position;
    if (!afterValue()) {
        m_position = saved;
        return false;
    }
    value = negative ? -static_cast<long>(magnitude - 1) - 1 : static_cast<long>(magnitude);
    return true;
}

bool AsciiCoderC::readU8(std::uint8_t& value)
{
    unsigned long parsed;
    if (!readUnsignedIn(parsed, 0xFF)) return false;
    value = static_cast<std::uint8_t>(parsed);
    return true;
}
bool AsciiCoderC::readU16(std::uint16_t& value)
{
    unsigned long parsed;
    if (!readUnsignedIn(parsed, 0xFFFF)) return false;
    value = static_cast<std::uint16_t>(parsed);
    return true;
}
bool AsciiCoderC::readU32(std::uint32_t& value)
{
    unsigned long parsed;
    if (!readUnsignedIn(parsed, 0xFFFFFFFFul)) return false;
    value = static_cast<std::uint32_t>(parsed);
    return true;
}
bool AsciiCoderC::readBool(bool& value)
{
    unsigned long parsed;
    if (!readUnsignedIn(parsed, 0xFFFFFFFFul)) return false;
    value = parsed != 0;
    return true;
}
bool AsciiCoderC::readI8(std::int8_t& value)
{
    long parsed;
    if (!readSignedIn(parsed, -128, 127)) return false;
    value = static_cast<std::int8_t>(parsed);
    return true;
}
bool AsciiCoderC::readI16(std::int16_t& value)
{
    long parsed;
    if (!readSignedIn(parsed, -32768, 32767)) return false;
    value = static_cast<std::int16_t>(parsed);
    return true;
}
bool AsciiCoderC::readI32(std::int32_t& value)
{
    long parsed;
    if (!readSignedIn(parsed, -2147483647L - 1, 2147483647L)) return false;
    value = static_cast<std::int32_t>(parsed);
    return true;
}

bool AsciiCoderC::readDouble(double& value)
{
    const std::size_t saved = m_position;
    const bool wasPast = m_pastLastValue;
    std::string token;
    if (!nextToken(token)) return false;
    if (token == "INF") {
        value = HUGE_VAL;
    } else if (token == "-INF") {
        value = -HUGE_VAL;
    } else if (token == "NAN") {
        value = std::nan("");
    } else {
        char* end = nullptr;
        const double parsed = token.empty() ? 0.0 : std::strtod(token.c_str(), &end);
        const bool digitsOnly = token.find_first_not_of("0123456789+-.eE") == std::string::npos;
        if (token.empty() || !digitsOnly || end != token.c_str() + token.size()) {
            m_position = saved;
            m_pastLastValue = wasPast;
            return false;
        }
        value = parsed;
    }
    return true;
}

bool AsciiCoderC::readFloat(float& value)
{
    double parsed;
    if (!readDouble(parsed)) return false;
    value = static_cast<float>(parsed);
    return true;
}

bool AsciiCoderC::readBytes(std::uint8_t* data, std::size_t length)
{
    if (m_pastLastValue || m_position > m_frameLength || (m_frameLength - m_position) / 2 < length) return false;
    for (std::size_t i = 0; i < length; ++i) {
        const int high = hexValue(m_frame[m_position + 2 * i]);
        const int low = hexValue(m_frame[m_position + 2 * i + 1]);
        if (high < 0 || low < 0) return false;
    }
    const std::size_t saved = m_position;
    m_position += 2 * length;
    if (!afterValue()) {
        m_position = saved;
        return false;
    }
    for (std::size_t i = 0; i < length; ++i)
        data[i] =
            static_cast<std::uint8_t>(hexValue(m_frame[saved + 2 * i]) << 4 | hexValue(m_frame[saved + 2 * i + 1]));
    return true;
}

bool AsciiCoderC::readString(std::string& text)
{
    if (m_pastLastValue) return false;
    const std::size_t saved = m_position;
    std::string parsed;
    if (!getQuotedString(parsed) || !afterValue()) {
        m_position = saved;
        return false;
    }
    text = std::move(parsed);
    return true;
}

bool AsciiCoderC::readString(char* buffer, std::size_t capacity)
{
    const std::size_t saved = m_position;
    const bool wasPast = m_pastLastValue;
    std::string text;
    if (!readString(text)) return false;
    if (text.size() + 1 > capacity) {
        m_position = saved;
        m_pastLastValue = wasPast;
        return false;
    }
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return true;
}

}  // namespace SEP
