#pragma once
// One command to the EFI service: a UTF-16 request text and the buffer its UTF-16 reply lands in. The
// texts travel as 16-bit code units on both platforms, whatever the width of wchar_t.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

class EFIServiceIPCMessageI {
public:
    static constexpr std::size_t kRequestChars = 1024;
    static constexpr std::uint32_t kReplyBytes = 65536;

    virtual ~EFIServiceIPCMessageI();
    EFIServiceIPCMessageI(const EFIServiceIPCMessageI&) = delete;
    EFIServiceIPCMessageI& operator=(const EFIServiceIPCMessageI&) = delete;

    // The reply check: true when the command succeeded. Subclasses also take their value from the reply.
    virtual bool ParseReply();

    // nullptr once the request could not be built.
    const char16_t* GetRequest() const { return m_request.get(); }
    // The request's size on the wire, terminating NUL included.
    std::uint32_t GetRequestBytes() const;
    unsigned char* GetReplyBuffer() { return m_reply.get(); }
    const unsigned char* GetReplyBuffer() const { return m_reply.get(); }
    // 0 when a buffer could not be allocated: every transaction of this message then fails at once.
    std::uint32_t GetReplySize() const { return m_replySize; }

    // For log lines: the texts as wide strings (empty when missing).
    std::wstring GetRequestText() const;
    std::wstring GetReplyText() const;

protected:
    EFIServiceIPCMessageI();
    // Copies `text` into the request buffer, cut to what fits with its terminator.
    void SetRequest(const std::wstring& text);
    // A message whose request could not be built must never reach the pipe.
    void FreeRequest();
    bool ReplyIsError() const;

private:
    std::unique_ptr<char16_t[]> m_request;
    std::unique_ptr<unsigned char[]> m_reply;
    std::uint32_t m_replySize = 0;
};

namespace halvern::efi {

// The UTF-16 text at `text` (at most `maxChars` code units, up to its NUL) as a wide string.
std::wstring fromWire(const char16_t* text, std::size_t maxChars);
// The service's request formats, printf-style with the directives they use: %S (a wide string), %d and
// %.2x. Formatted here so that the texts come out alike whatever the width of wchar_t.
std::wstring formatRequest(const wchar_t* format, ...);
// The reply read as a decimal integer the way the C runtime's _wtoi reads it (0 when it is not a number).
std::int32_t replyAsInteger(const std::wstring& reply);

}  // namespace halvern::efi
