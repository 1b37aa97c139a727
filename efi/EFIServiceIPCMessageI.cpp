#include "efi/EFIServiceIPCMessageI.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <cwchar>
#include <new>

namespace halvern::efi {

std::wstring fromWire(const char16_t* text, std::size_t maxChars)
{
    std::wstring result;
    if (text == nullptr) return result;
    for (std::size_t i = 0; i < maxChars && text[i] != u'\0'; ++i)
        result.push_back(static_cast<wchar_t>(text[i]));
    return result;
}

std::wstring formatRequest(const wchar_t* format, ...)
{
    va_list args;
    va_start(args, format);
    std::wstring text;
    for (const wchar_t* p = format; *p != L'\0'; ++p) {
        char number[32] = {};
        if (std::wcsncmp(p, L"%S", 2) == 0) {
            text += va_arg(args, const wchar_t*);
            p += 1;
        } else if (std::wcsncmp(p, L"%d", 2) == 0) {
            std::snprintf(number, sizeof number, "%d", va_arg(args, int));
            p += 1;
        } else if (std::wcsncmp(p, L"%.2x", 4) == 0) {
            std::snprintf(number, sizeof number, "%.2x", va_arg(args, unsigned));
            p += 3;
        } else {
            text.push_back(*p);
        }
        for (const char* digit = number; *digit != '\0'; ++digit)
            text.push_back(static_cast<wchar_t>(*digit));
    }
    va_end(args);
    return text;
}

std::int32_t replyAsInteger(const std::wstring& reply)
{
    return static_cast<std::int32_t>(std::wcstol(reply.c_str(), nullptr, 10));
}

}  // namespace halvern::efi

EFIServiceIPCMessageI::EFIServiceIPCMessageI()
    : m_request(new (std::nothrow) char16_t[kRequestChars]()), m_reply(new (std::nothrow) unsigned char[kReplyBytes]())
{
    m_replySize = (m_request && m_reply) ? kReplyBytes : 0;
}

EFIServiceIPCMessageI::~EFIServiceIPCMessageI() = default;

bool EFIServiceIPCMessageI::ParseReply()
{
    return m_reply && m_replySize != 0 && !ReplyIsError();
}

bool EFIServiceIPCMessageI::ReplyIsError() const
{
    static const char16_t kError[] = u"[ERROR]";
    return std::memcmp(m_reply.get(), kError, 7 * sizeof(char16_t)) == 0;
}

std::uint32_t EFIServiceIPCMessageI::GetRequestBytes() const
{
    if (!m_request) return 0;
    std::size_t length = 0;
    while (length < kRequestChars - 1 && m_request[length] != u'\0')
        ++length;
    return static_cast<std::uint32_t>((length + 1) * sizeof(char16_t));
}

std::wstring EFIServiceIPCMessageI::GetRequestText() const
{
    return halvern::efi::fromWire(m_request.get(), kRequestChars);
}

std::wstring EFIServiceIPCMessageI::GetReplyText() const
{
    if (!m_reply) return {};
    return halvern::efi::fromWire(reinterpret_cast<const char16_t*>(m_reply.get()), m_replySize / sizeof(char16_t));
}

void EFIServiceIPCMessageI::SetRequest(const std::wstring& text)
{
    if (!m_request) return;
    std::size_t i = 0;
    for (; i < text.size() && i < kRequestChars - 1; ++i)
        m_request[i] = static_cast<char16_t>(text[i]);
    m_request[i] = u'\0';
}

void EFIServiceIPCMessageI::FreeRequest()
{
    m_request.reset();
}
