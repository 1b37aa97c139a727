#include "framework/CancelTokenC.h"

#include "platform/Clock.h"
#include "platform/Sync.h"

namespace BSS {
namespace {
// Plain pointers only: a thread-local object with a destructor can run that destructor on freed memory
// at thread exit in the Windows build (MinGW's emulated TLS), which crashed connection threads.
thread_local CancelTokenC* t_current = nullptr;
thread_local const std::function<void()>* t_beforeWait = nullptr;
}

CancelTokenC::CancelTokenC() : m_event(platform::createEvent(nullptr, true, false, std::wstring())) {}

void CancelTokenC::cancel()
{
    m_cancelled = true;
    if (m_event) platform::setEvent(m_event.get());
}

void CancelTokenC::reset()
{
    m_cancelled = false;
    if (m_event) platform::resetEvent(m_event.get());
}

CancelTokenC* CancelTokenC::current()
{
    return t_current;
}

void CancelTokenC::setCurrent(CancelTokenC* token)
{
    t_current = token;
}

bool CancelTokenC::currentCancelled()
{
    return t_current != nullptr && t_current->cancelled();
}

void CancelTokenC::setBeforeWait(const std::function<void()>* hook)
{
    t_beforeWait = hook;
}

void announceWait()
{
    if (t_beforeWait != nullptr && *t_beforeWait) (*t_beforeWait)();
}

bool cancellableSleep(std::uint32_t milliseconds)
{
    announceWait();
    CancelTokenC* token = CancelTokenC::current();
    if (token == nullptr || !token->event()) {
        platform::sleepMs(milliseconds);
        return true;
    }
    if (token->cancelled()) return false;
    const auto realWait = platform::clock().idleWait(milliseconds);
    platform::waitForSingleObject(token->event(), static_cast<std::uint32_t>(realWait.count()));
    return !token->cancelled();
}

}  // namespace BSS
