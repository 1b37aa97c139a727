#include "spb/SPBLogger.h"

namespace halvern::spb {

SPBLogger::SPBLogger()
{
    // The last byte stays free for the terminating NUL.
    setp(m_buffer, m_buffer + kBufferBytes - 1);
}

void SPBLogger::set(SPBLoggerCallback callback, void* context)
{
    m_callback = callback;
    m_context = context;
    setp(m_buffer, m_buffer + kBufferBytes - 1);
}

SPBLogger::int_type SPBLogger::overflow(int_type c)
{
    // A full buffer drops the rest of the message until it is flushed.
    return traits_type::not_eof(c);
}

int SPBLogger::sync()
{
    *pptr() = '\0';
    if (m_callback != nullptr) m_callback(m_context, kLevel, m_buffer);
    setp(m_buffer, m_buffer + kBufferBytes - 1);
    return 0;
}

}  // namespace halvern::spb
