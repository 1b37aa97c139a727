// Serial ports of the simulated instrument: "COMn" is the pseudo-terminal $HALVERN_ROOT/dev/COMn (a link
// to the slave side whose master a device model holds). Reads return at once with what has arrived, as
// the instrument configures its ports; WaitCommEvent is a poll that CancelIoEx ends through the port's
// cancel descriptor.
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>

#include <cctype>
#include <map>
#include <memory>
#include <mutex>
#include <sstream>
#include <vector>

#include "platform/Serial.h"
#include "platform/Sync.h"
#include "platform/Text.h"
#include "platform/WinError.h"
#include "platform/sim/SimObject.h"
#include "platform/sim/SimRoot.h"
#include "platform/sim/UniqueFd.h"

namespace platform {

struct OverlappedC::Impl {
    UniqueHandle event;
    std::uint32_t transferred = 0;
};

namespace {

// What a port's calls share. Calls hold it while they run, so closing the handle on another thread
// never pulls it away from under them.
struct PortStateC {
    PortStateC(sim::UniqueFd device, sim::UniqueFd cancel) : fd(std::move(device)), cancelFd(std::move(cancel)) {}
    const sim::UniqueFd fd;
    const sim::UniqueFd cancelFd;
    std::mutex lock;
    std::uint32_t mask = 0;
    CommTimeoutsT timeouts;
};

std::mutex g_portsLock;
std::map<HandleValue, std::shared_ptr<PortStateC>>& ports()
{
    static auto* table = new std::map<HandleValue, std::shared_ptr<PortStateC>>();
    return *table;
}

class SerialObjectC final : public sim::SimObjectC {
public:
    ~SerialObjectC() override
    {
        std::lock_guard<std::mutex> guard(g_portsLock);
        ports().erase(this);
    }
};

std::shared_ptr<PortStateC> port(HandleValue handle)
{
    std::lock_guard<std::mutex> guard(g_portsLock);
    auto it = ports().find(handle);
    if (it == ports().end()) {
        setLastError(kErrorInvalidHandle);
        return nullptr;
    }
    return it->second;
}

bool fail(std::uint32_t error)
{
    setLastError(error);
    return false;
}

speed_t speedOf(std::uint32_t baudRate)
{
    switch (baudRate) {
        case 110:
            return B110;
        case 300:
            return B300;
        case 600:
            return B600;
        case 1200:
            return B1200;
        case 2400:
            return B2400;
        case 4800:
            return B4800;
        case 9600:
            return B9600;
        case 19200:
            return B19200;
        case 38400:
            return B38400;
        case 57600:
            return B57600;
        case 115200:
            return B115200;
        case 230400:
            return B230400;
        default:
            return B0;
    }
}

// The old MODE command's two-digit baud rates, which BuildCommDCB still takes.
std::uint32_t expandBaud(std::uint32_t value)
{
    switch (value) {
        case 11:
            return 110;
        case 15:
            return 150;
        case 30:
            return 300;
        case 60:
            return 600;
        case 12:
            return 1200;
        case 24:
            return 2400;
        case 48:
            return 4800;
        case 96:
            return 9600;
        case 19:
            return 19200;
        default:
            return value;
    }
}

bool parseParity(const std::string& text, std::uint8_t& parity)
{
    if (text.size() != 1) return false;
    switch (std::tolower(static_cast<unsigned char>(text[0]))) {
        case 'n':
            parity = kNoParity;
            return true;
        case 'o':
            parity = kOddParity;
            return true;
        case 'e':
            parity = kEvenParity;
            return true;
        case 'm':
            parity = kMarkParity;
            return true;
        case 's':
            parity = kSpaceParity;
            return true;
        default:
            return false;
    }
}

bool parseStopBits(const std::string& text, std::uint8_t& stopBits)
{
    if (text == "1")
        stopBits = kOneStopBit;
    else if (text == "1.5")
        stopBits = kOne5StopBits;
    else if (text == "2")
        stopBits = kTwoStopBits;
    else
        return false;
    return true;
}

bool parseNumber(const std::string& text, std::uint32_t& value)
{
    if (text.empty() || text.size() > 9) return false;
    for (char c : text)
        if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    value = static_cast<std::uint32_t>(std::stoul(text));
    return true;
}

// "baud,parity,data,stop" with the later fields optional.
bool parseCommaForm(const std::string& mode, CommStateT& state)
{
    std::vector<std::string> fields;
    std::stringstream in(mode);
    std::string field;
    while (std::getline(in, field, ',')) {
        while (!field.empty() && field.front() == ' ')
            field.erase(field.begin());
        while (!field.empty() && field.back() == ' ')
            field.pop_back();
        fields.push_back(field);
    }
    if (fields.empty() || fields.size() > 4) return false;
    CommStateT parsed = state;
    std::uint32_t baud = 0;
    if (!parseNumber(fields[0], baud)) return false;
    parsed.baudRate = expandBaud(baud);
    if (fields.size() > 1 && !parseParity(fields[1], parsed.parity)) return false;
    std::uint32_t data = 0;
    if (fields.size() > 2) {
        if (!parseNumber(fields[2], data) || data < 5 || data > 8) return false;
        parsed.byteSize = static_cast<std::uint8_t>(data);
    }
    if (fields.size() > 3 && !parseStopBits(fields[3], parsed.stopBits)) return false;
    state = parsed;
    return true;
}

// "baud=N parity=X data=N stop=N" in any order.
bool parseKeywordForm(const std::string& mode, CommStateT& state)
{
    std::stringstream in(mode);
    std::string word;
    CommStateT parsed = state;
    bool any = false;
    while (in >> word) {
        const auto equals = word.find('=');
        if (equals == std::string::npos) return false;
        std::string key = word.substr(0, equals);
        for (auto& c : key)
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        const std::string value = word.substr(equals + 1);
        std::uint32_t number = 0;
        if (key == "baud") {
            if (!parseNumber(value, number)) return false;
            parsed.baudRate = expandBaud(number);
        } else if (key == "parity") {
            if (!parseParity(value, parsed.parity)) return false;
        } else if (key == "data") {
            if (!parseNumber(value, number) || number < 5 || number > 8) return false;
            parsed.byteSize = static_cast<std::uint8_t>(number);
        } else if (key == "stop") {
            if (!parseStopBits(value, parsed.stopBits)) return false;
        } else {
            return false;
        }
        any = true;
    }
    if (!any) return false;
    state = parsed;
    return true;
}

}  // namespace

UniqueHandle openSerialPort(const std::wstring& name)
{
    const std::string base = sim::root();
    const std::string device = base.empty() ? std::string() : base + "/dev/" + narrow(name).value_or(std::string());
    sim::UniqueFd fd(device.empty() ? -1 : ::open(device.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!fd) {
        setLastError(errno == ENOENT || device.empty() ? kErrorFileNotFound : kErrorAccessDenied);
        return UniqueHandle();
    }
    // Ports are opened exclusively on Windows: a second opener is refused.
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        setLastError(kErrorAccessDenied);
        return UniqueHandle();
    }
    sim::UniqueFd cancel(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!cancel) {
        setLastError(kErrorNotEnoughMemory);
        return UniqueHandle();
    }
    auto state = std::make_shared<PortStateC>(std::move(fd), std::move(cancel));
    auto object = std::make_unique<SerialObjectC>();
    HandleValue handle = object.get();
    {
        std::lock_guard<std::mutex> guard(g_portsLock);
        ports()[handle] = state;
    }
    return UniqueHandle(sim::registerObject(std::move(object)));
}

bool setCommTimeouts(HandleValue handle, const CommTimeoutsT& timeouts)
{
    auto state = port(handle);
    if (!state) return false;
    std::lock_guard<std::mutex> guard(state->lock);
    state->timeouts = timeouts;
    return true;
}

bool getCommState(HandleValue handle, CommStateT& commState)
{
    auto state = port(handle);
    if (!state) return false;
    termios settings{};
    if (::tcgetattr(state->fd.get(), &settings) != 0) return fail(kErrorInvalidHandle);
    static const std::pair<speed_t, std::uint32_t> kSpeeds[] = {
        {B110, 110},   {B300, 300},     {B600, 600},     {B1200, 1200},   {B2400, 2400},     {B4800, 4800},
        {B9600, 9600}, {B19200, 19200}, {B38400, 38400}, {B57600, 57600}, {B115200, 115200}, {B230400, 230400}};
    commState.baudRate = 0;
    for (const auto& speed : kSpeeds)
        if (::cfgetospeed(&settings) == speed.first) commState.baudRate = speed.second;
    switch (settings.c_cflag & CSIZE) {
        case CS5:
            commState.byteSize = 5;
            break;
        case CS6:
            commState.byteSize = 6;
            break;
        case CS7:
            commState.byteSize = 7;
            break;
        default:
            commState.byteSize = 8;
            break;
    }
    commState.parity = (settings.c_cflag & PARENB) == 0   ? kNoParity
                       : (settings.c_cflag & PARODD) != 0 ? kOddParity
                                                          : kEvenParity;
    commState.stopBits = (settings.c_cflag & CSTOPB) != 0 ? kTwoStopBits : kOneStopBit;
    return true;
}

bool buildCommDcb(const std::wstring& mode, CommStateT& state)
{
    const std::string text = narrow(mode).value_or(std::string());
    const bool parsed =
        text.find('=') != std::string::npos ? parseKeywordForm(text, state) : parseCommaForm(text, state);
    return parsed || fail(kErrorInvalidParameter);
}

bool setCommState(HandleValue handle, const CommStateT& commState)
{
    auto state = port(handle);
    if (!state) return false;
    const speed_t speed = speedOf(commState.baudRate);
    if (speed == B0 || commState.byteSize < 5 || commState.byteSize > 8) return fail(kErrorInvalidParameter);
    termios settings{};
    if (::tcgetattr(state->fd.get(), &settings) != 0) return fail(kErrorInvalidHandle);
    ::cfmakeraw(&settings);
    ::cfsetispeed(&settings, speed);
    ::cfsetospeed(&settings, speed);
    settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | PARODD | CSTOPB);
    static const tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
    settings.c_cflag |= kSizes[commState.byteSize - 5] | CLOCAL | CREAD;
    if (commState.parity == kOddParity) settings.c_cflag |= PARENB | PARODD;
    if (commState.parity == kEvenParity) settings.c_cflag |= PARENB;
    if (commState.stopBits != kOneStopBit) settings.c_cflag |= CSTOPB;
    // A read returns at once with what has arrived.
    settings.c_cc[VMIN] = 0;
    settings.c_cc[VTIME] = 0;
    return ::tcsetattr(state->fd.get(), TCSANOW, &settings) == 0 || fail(kErrorInvalidParameter);
}

bool setCommMask(HandleValue handle, std::uint32_t mask)
{
    auto state = port(handle);
    if (!state) return false;
    std::lock_guard<std::mutex> guard(state->lock);
    state->mask = mask;
    return true;
}

bool waitCommEvent(HandleValue handle, std::uint32_t& events)
{
    auto state = port(handle);
    if (!state) return false;
    for (;;) {
        pollfd watched[2] = {{state->fd.get(), POLLIN, 0}, {state->cancelFd.get(), POLLIN, 0}};
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) continue;
            return fail(kErrorInvalidHandle);
        }
        // Cancelling stays in force for the port: a thread that comes back to wait after the cancel ends too.
        if (watched[1].revents != 0) return fail(kErrorOperationAborted);
        // The device model has let go of its end: the port is gone, as an unplugged adapter is.
        if ((watched[0].revents & (POLLHUP | POLLERR)) != 0 && (watched[0].revents & POLLIN) == 0)
            return fail(kErrorAccessDenied);
        std::uint32_t mask = 0;
        {
            std::lock_guard<std::mutex> guard(state->lock);
            mask = state->mask;
        }
        if ((watched[0].revents & POLLIN) != 0 && (mask & kEvRxChar) != 0) {
            events = kEvRxChar;
            return true;
        }
        // Nothing this port listens for; wait for the cancel alone.
        pollfd cancelOnly = {state->cancelFd.get(), POLLIN, 0};
        if ((mask & kEvRxChar) == 0 && ::poll(&cancelOnly, 1, -1) >= 0) return fail(kErrorOperationAborted);
    }
}

OverlappedC::OverlappedC() : m_impl(std::make_unique<Impl>()) {}
OverlappedC::~OverlappedC() = default;

bool OverlappedC::createEvent()
{
    m_impl->event = platform::createEvent(nullptr, true, false, L"");
    m_impl->transferred = 0;
    return static_cast<bool>(m_impl->event);
}

HandleValue OverlappedC::event() const
{
    return m_impl->event.get();
}

bool readFileOverlapped(HandleValue file, void* buffer, std::uint32_t bytes, OverlappedC& overlapped,
                        std::uint32_t& bytesRead)
{
    auto state = port(file);
    if (!state) return false;
    const ssize_t got = ::read(state->fd.get(), buffer, bytes);
    // Nothing there (or the device model gone) reads as zero bytes, as with the instrument's time-outs.
    bytesRead = got > 0 ? static_cast<std::uint32_t>(got) : 0;
    overlapped.impl().transferred = bytesRead;
    if (overlapped.event() != nullptr) setEvent(overlapped.event());
    return true;
}

bool writeFileOverlapped(HandleValue file, const void* data, std::uint32_t bytes, OverlappedC& overlapped)
{
    auto state = port(file);
    if (!state) return false;
    const auto* next = static_cast<const char*>(data);
    std::uint32_t left = bytes;
    while (left > 0) {
        const ssize_t written = ::write(state->fd.get(), next, left);
        if (written < 0) {
            if (errno == EINTR) continue;
            if (errno != EAGAIN) return fail(kErrorAccessDenied);
            pollfd writable = {state->fd.get(), POLLOUT, 0};
            ::poll(&writable, 1, 100);
            continue;
        }
        next += written;
        left -= static_cast<std::uint32_t>(written);
    }
    overlapped.impl().transferred = bytes;
    if (overlapped.event() != nullptr) setEvent(overlapped.event());
    return true;
}

bool getOverlappedResult(HandleValue file, OverlappedC& overlapped, std::uint32_t& bytes)
{
    if (!port(file)) return false;
    bytes = overlapped.impl().transferred;
    return true;
}

bool cancelIo(HandleValue file)
{
    auto state = port(file);
    if (!state) return false;
    const std::uint64_t one = 1;
    return ::write(state->cancelFd.get(), &one, sizeof one) == sizeof one || fail(kErrorInvalidHandle);
}

}  // namespace platform
