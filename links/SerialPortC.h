#pragma once
// The local serial ports to the boards: one event thread per open port collects what arrives, cuts it
// into messages at the listener's terminator and hands each message to the one registered listener.
#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "platform/Handle.h"

namespace halvern::links {

// Called on the port's event thread with one message, terminator included.
using SerialListenerFn = void (*)(void* context, const std::string& message);

// One entry of the port table: which port leads to a board, how it is set up, where its messages end.
struct SerialPortEntryT {
    std::wstring port;
    std::string mode;
    std::string terminator;
};
// The table entry of "MORA", "EFI" or "DIVO"; false for any other role.
bool lookupSerialPort(const std::string& role, SerialPortEntryT& entry);

class SerialPortC {
public:
    explicit SerialPortC(std::wstring portName);
    SerialPortC(const SerialPortC&) = delete;
    SerialPortC& operator=(const SerialPortC&) = delete;
    ~SerialPortC();

    bool open(const std::string& modeString);
    bool close();
    // Blocks until the port has taken the bytes. Refused on the event thread, where it could deadlock a
    // listener waiting for its own reply.
    bool write(const std::string& bytes);
    // The fixed adapter as listener: each message is appended to the std::string that `context` points to.
    void registerListener(void* context, const std::string& terminator);
    void setListener(SerialListenerFn callback, void* context, const std::string& terminator);

private:
    bool configure(const std::string& modeString);
    void eventLoop();
    void readAvailable(platform::HandleValue device, std::string& received);
    void deliver(const std::string& message);
    void logError(const std::string& text);

    std::wstring m_portName;
    std::string m_portText;
    platform::UniqueHandle m_device;
    platform::UniqueHandle m_eventThread;
    std::atomic<std::thread::id> m_eventThreadId{};
    std::atomic<bool> m_eventLoopRunning{false};
    // Set by close() before it cancels the event thread's wait.
    std::atomic<bool> m_closing{false};
    SerialListenerFn m_listener = nullptr;
    void* m_listenerContext = nullptr;
    std::string m_terminator;
    std::mutex m_listenerLock;
};

// A one-shot exchange with the board behind `role`: every message that arrives while the port is open
// is appended to `reply`. A non-empty `terminator` replaces the table's; with neither the exchange is
// refused before anything is sent.
bool comPortTransaction(const std::string& role, const std::string& terminator, const std::string& request,
                        std::string& reply, std::uint32_t milliseconds);

}  // namespace halvern::links
