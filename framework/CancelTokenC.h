#pragma once
// Cancellation of the work a thread does for someone who may stop waiting for it: a SEP port's command
// threads carry their server's token, and stopping the server cancels it, so that a running command ends
// its waits (a program, a serial transaction, the sensor board's shell) at once instead of at its bound.
// Code that waits asks the token of its own thread; a thread without one is never cancelled.
#include <atomic>
#include <cstdint>
#include <functional>

#include "platform/Handle.h"

namespace BSS {

class CancelTokenC {
public:
    CancelTokenC();
    CancelTokenC(const CancelTokenC&) = delete;
    CancelTokenC& operator=(const CancelTokenC&) = delete;

    void cancel();
    void reset();
    bool cancelled() const { return m_cancelled; }
    // A manual-reset event, signalled while cancelled: for waits on other objects as well.
    platform::HandleValue event() const { return m_event.get(); }

    // The token of the calling thread's work; nullptr when it has none.
    static CancelTokenC* current();
    static void setCurrent(CancelTokenC* token);
    static bool currentCancelled();
    // What the calling thread's work does before it waits for something outside (a program, a serial
    // reply, the sensor board's shell): a SEP command thread sends the replies it held back for the
    // commands before, so that they never wait for a slow one. Null or empty: nothing. The hook is not
    // copied: it must stay alive while the thread may wait, or be unset before it goes.
    static void setBeforeWait(const std::function<void()>* hook);

private:
    std::atomic<bool> m_cancelled{false};
    platform::UniqueHandle m_event;
};

// Called by code that is about to wait for something outside: runs the thread's before-wait hook.
void announceWait();

// Sleeps `milliseconds` on the installed clock, or less when the calling thread's work is cancelled;
// false when it was.
bool cancellableSleep(std::uint32_t milliseconds);

}  // namespace BSS
