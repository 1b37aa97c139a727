#include "links/SerialPortC.h"

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <set>
#include <thread>

#include "app/Log.h"
#include "framework/CancelTokenC.h"
#include "platform/Clock.h"
#include "platform/Serial.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/Thread.h"
#include "platform/WinError.h"

namespace halvern::links {
namespace {

constexpr std::uint32_t kReadChunk = 128;
constexpr std::uint32_t kStartPollMs = 1;
constexpr int kStartPolls = 2000;
// How often a port whose event wait cannot block is read instead.
constexpr std::uint32_t kEventlessPollMs = 5;
constexpr const char* kFallbackMode = "9600,n,8,1";
// A write the port has not taken by then is cancelled: flow control held by a hung board must not hold the
// command that writes.
constexpr std::uint32_t kWriteWaitMs = 5000;
// How long a transaction waits for another one on the same port (the longest a client may collect a reply
// for, and some), and how often it looks whether its work was cancelled meanwhile.
constexpr auto kPortTurnWait = std::chrono::seconds(65);
constexpr auto kPortTurnSlice = std::chrono::milliseconds(50);

std::string errorText()
{
    return std::to_string(platform::lastError());
}

void appendToReply(void* context, const std::string& message)
{
    static_cast<std::string*>(context)->append(message);
}

// Windows opens a COM port for one owner at a time, so transactions on one port take turns: a second one
// (another client, or a command beside start-up) would otherwise fail to open it.
class PortTurnC {
public:
    explicit PortTurnC(std::wstring port) : m_port(std::move(port)) {}
    ~PortTurnC()
    {
        if (!m_taken) return;
        {
            const std::lock_guard<std::mutex> guard(lock());
            busy().erase(m_port);
        }
        given().notify_all();
    }
    PortTurnC(const PortTurnC&) = delete;
    PortTurnC& operator=(const PortTurnC&) = delete;

    // False when the port stayed busy past kPortTurnWait or the waiting work was cancelled.
    bool take()
    {
        BSS::announceWait();
        const auto deadline = std::chrono::steady_clock::now() + kPortTurnWait;
        std::unique_lock<std::mutex> guard(lock());
        while (busy().count(m_port) != 0) {
            if (BSS::CancelTokenC::currentCancelled() || std::chrono::steady_clock::now() >= deadline) return false;
            given().wait_for(guard, kPortTurnSlice);
        }
        busy().insert(m_port);
        m_taken = true;
        return true;
    }

private:
    static std::mutex& lock()
    {
        static std::mutex turns;
        return turns;
    }
    static std::condition_variable& given()
    {
        static std::condition_variable turnGiven;
        return turnGiven;
    }
    static std::set<std::wstring>& busy()
    {
        static std::set<std::wstring> ports;
        return ports;
    }

    const std::wstring m_port;
    bool m_taken = false;
};

}  // namespace

bool lookupSerialPort(const std::string& role, SerialPortEntryT& entry)
{
    // The sensor board's console answers in lines; the EFI controller's users bring their own terminator
    // (a transaction without one is refused).
    static const std::map<std::string, SerialPortEntryT> kTable = {
        {"MORA", {L"COM3", "115200,n,8,1", "\n"}},
        {"EFI", {L"COM4", "115200,n,8,1", ""}},
        {"DIVO", {L"COM5", "115200,n,8,1", "\r"}},
    };
    const auto it = kTable.find(role);
    if (it == kTable.end()) return false;
    entry = it->second;
    return true;
}

SerialPortC::SerialPortC(std::wstring portName)
    : m_portName(std::move(portName)), m_portText(platform::narrow(m_portName).value_or(std::string()))
{}

SerialPortC::~SerialPortC()
{
    if (m_device) close();
}

void SerialPortC::logError(const std::string& text)
{
    WriteLog("%s", text.c_str());
}

bool SerialPortC::configure(const std::string& modeString)
{
    platform::CommTimeoutsT timeouts;
    // A read returns at once with what has arrived; a write may take half a second.
    timeouts.readIntervalTimeout = platform::kMaxDword;
    timeouts.writeTotalTimeoutConstant = 500;
    if (!platform::setCommTimeouts(m_device.get(), timeouts)) {
        logError("Failed to configure COM port timeouts: " + errorText());
        return false;
    }
    platform::CommStateT state;
    if (!platform::getCommState(m_device.get(), state)) {
        logError("Failed to get configuration of COM port: " + errorText());
        return false;
    }
    if (!platform::buildCommDcb(platform::widen(modeString), state)) {
        logError("Failed to setup COM port configuration structure: " + errorText());
        return false;
    }
    if (!platform::setCommState(m_device.get(), state)) {
        logError("Failed to set configuration of COM port: " + errorText());
        return false;
    }
    return true;
}

bool SerialPortC::open(const std::string& modeString)
{
    if (m_device) {
        logError("Tried to open port " + m_portText + ", which is already opened!");
        return false;
    }
    m_device = platform::openSerialPort(m_portName);
    if (!m_device) {
        logError("Failed to open port " + m_portText);
        return false;
    }
    if (!configure(modeString)) {
        logError("Failed to confgure port " + m_portText);
        m_device.reset();
        return false;
    }
    if (!platform::setCommMask(m_device.get(), platform::kEvRxChar)) {
        logError("Failed to enable events on port " + m_portText);
        m_device.reset();
        return false;
    }
    m_eventLoopRunning = false;
    m_eventThread = platform::createThread([this] { eventLoop(); });
    if (!m_eventThread) {
        logError("Failed to create event listening thread for port " + m_portText);
        m_device.reset();
        return false;
    }
    // The thread's start is a matter of this machine's scheduler, not of the instrument's time: the wait
    // is real even where the clock is simulated.
    for (int poll = 0; poll < kStartPolls && !m_eventLoopRunning; ++poll)
        std::this_thread::sleep_for(std::chrono::milliseconds(kStartPollMs));
    if (!m_eventLoopRunning) {
        logError("Failed to start event loop for port " + m_portText);
        // The thread may still start later: it must be gone before the port it works on is.
        close();
        return false;
    }
    return true;
}

void SerialPortC::eventLoop()
{
    const platform::HandleValue device = m_device.get();
    m_eventThreadId = std::this_thread::get_id();
    m_eventLoopRunning = true;
    std::string received;
    for (;;) {
        std::uint32_t events = 0;
        if (!platform::waitCommEvent(device, events)) {
            const bool cancelled = platform::lastError() == platform::kErrorOperationAborted;
            if (!cancelled) logError("Failed to wait for event on port " + m_portText);
            if (!cancelled || m_closing) break;
            // Cancelled while nobody closes the port: a driver that cannot watch the line ends every wait
            // at once (Wine on a pseudo-terminal, which has no modem status). Reading in short steps
            // still gets every byte.
            std::this_thread::sleep_for(std::chrono::milliseconds(kEventlessPollMs));
        }
        readAvailable(device, received);
        std::string terminator;
        {
            std::lock_guard<std::mutex> guard(m_listenerLock);
            terminator = m_terminator;
        }
        if (terminator.empty()) continue;
        for (std::size_t end = received.find(terminator); end != std::string::npos; end = received.find(terminator)) {
            const std::string message = received.substr(0, end + terminator.size());
            received.erase(0, message.size());
            deliver(message);
        }
    }
    m_eventLoopRunning = false;
}

void SerialPortC::readAvailable(platform::HandleValue device, std::string& received)
{
    platform::OverlappedC overlapped;
    if (!overlapped.createEvent()) {
        logError("Failed to create read event for port " + m_portText);
        return;
    }
    char chunk[kReadChunk];
    for (;;) {
        std::uint32_t got = 0;
        if (!platform::readFileOverlapped(device, chunk, sizeof chunk, overlapped, got)) {
            if (platform::lastError() != platform::kErrorIoPending) {
                logError("Failed to read from port " + m_portText);
                return;
            }
            if (platform::waitForSingleObject(overlapped.event(), platform::kInfinite) != platform::kWaitObject0) {
                logError("Failed to wait for result of read operation for port " + m_portText);
                return;
            }
            if (!platform::getOverlappedResult(device, overlapped, got)) {
                logError("Failed to get read's overlapped for port " + m_portText);
                return;
            }
        }
        if (got == 0) return;
        received.append(chunk, got);
    }
}

void SerialPortC::deliver(const std::string& message)
{
    std::lock_guard<std::mutex> guard(m_listenerLock);
    if (m_listener == nullptr) {
        logError("Received EFI data, but listener is not registered! (" + message + ")");
        return;
    }
    m_listener(m_listenerContext, message);
}

void SerialPortC::registerListener(void* context, const std::string& terminator)
{
    setListener(appendToReply, context, terminator);
}

void SerialPortC::setListener(SerialListenerFn callback, void* context, const std::string& terminator)
{
    std::lock_guard<std::mutex> guard(m_listenerLock);
    m_listener = callback;
    m_listenerContext = context;
    m_terminator = terminator;
}

bool SerialPortC::write(const std::string& bytes)
{
    if (m_eventLoopRunning && std::this_thread::get_id() == m_eventThreadId.load()) {
        logError("Cannot issue write requests from event thread!");
        return false;
    }
    if (!m_eventLoopRunning) {
        logError("Tried to write data to port " + m_portText + ", but event loop does not run!");
        return false;
    }
    platform::OverlappedC overlapped;
    if (!overlapped.createEvent()) {
        logError("Failed to create write event for port " + m_portText);
        return false;
    }
    if (!platform::writeFileOverlapped(m_device.get(), bytes.data(), static_cast<std::uint32_t>(bytes.size()),
                                       overlapped) &&
        platform::lastError() != platform::kErrorIoPending) {
        logError("Failed to write to port " + m_portText);
        return false;
    }
    if (platform::waitForSingleObject(overlapped.event(), kWriteWaitMs) != platform::kWaitObject0) {
        logError("Failed to wait for result of write operation for port " + m_portText);
        // The write must not complete into the structure after it has gone.
        platform::cancelIo(m_device.get());
        platform::waitForSingleObject(overlapped.event(), kWriteWaitMs);
        return false;
    }
    std::uint32_t written = 0;
    if (!platform::getOverlappedResult(m_device.get(), overlapped, written)) {
        logError("Failed to get write result for port " + m_portText);
        return false;
    }
    return true;
}

bool SerialPortC::close()
{
    bool closed = true;
    m_closing = true;
    if (m_device) {
        if (!platform::cancelIo(m_device.get())) logError("Failed to cancel IO for port " + m_portText);
        if (!platform::closeHandle(m_device.release())) {
            logError("Failed to close port " + m_portText);
            closed = false;
        }
    }
    if (m_eventThread) {
        // Its wait fails once the port is gone.
        platform::waitForSingleObject(m_eventThread.get(), platform::kInfinite);
        if (!platform::closeHandle(m_eventThread.release())) {
            logError("Failed to close thread handle for port " + m_portText);
            closed = false;
        }
    }
    m_eventThreadId = std::thread::id();
    m_closing = false;
    return closed;
}

bool comPortTransaction(const std::string& role, const std::string& terminator, const std::string& request,
                        std::string& reply, std::uint32_t milliseconds)
{
    SerialPortEntryT entry;
    if (!lookupSerialPort(role, entry)) {
        WriteLog("[ERROR]: Failed to open COM port %s", role.c_str());
        return false;
    }
    const std::string portText = platform::narrow(entry.port).value_or(std::string());
    const std::string& cutAt = terminator.empty() ? entry.terminator : terminator;
    // Nothing could be cut from what comes back, so a request sent now would act on the board and answer
    // an empty reply that reads as success.
    if (cutAt.empty()) {
        WriteLog("[ERROR]: No terminator to cut the reply of COM port %s at", portText.c_str());
        return false;
    }
    PortTurnC turn(entry.port);
    if (!turn.take()) {
        WriteLog("[ERROR]: COM port %s stayed busy with another transaction", portText.c_str());
        return false;
    }
    SerialPortC port(entry.port);
    port.registerListener(&reply, cutAt);
    if (!port.open(entry.mode.empty() ? kFallbackMode : entry.mode)) {
        WriteLog("[ERROR]: Failed to open COM port %s", portText.c_str());
        return false;
    }
    if (!port.write(request)) {
        WriteLog("[ERROR]: Failed to write data to COM port %s", portText.c_str());
        port.close();
        return false;
    }
    // Cancelled (its server stops): what arrived so far is the reply.
    BSS::cancellableSleep(milliseconds);
    port.close();
    return true;
}

}  // namespace halvern::links
