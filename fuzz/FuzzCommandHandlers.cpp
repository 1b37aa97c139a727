// Every command of the instrument's command set, its request decoded and handled with a simulated
// instrument behind it: a fresh sim root and the power controller's service in this process. The rest of
// the instrument is absent, as a board that does not answer is: the sensor board's telnet port is a closed
// loopback port, the serial ports and I2C devices are missing and no program is installed, so every
// command that would start one takes its error path. Waits end at once.
//
// Input: the first byte picks the message id (1000 to 1066, so the unnamed ECHO and an id without a
// handler come up too), the second the coding; the rest is a list of fields, each a type byte and its
// value, written with that coding. Well-typed field lists are what get past the readers into the handlers'
// own checks; the readers themselves have fuzz targets of their own.
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "client/SepClientC.h"
#include "fuzz/FuzzTarget.h"
#include "links/TelnetConnection.h"
#include "platform/Clock.h"
#include "platform/sim/SimRoot.h"
#include "sep/AsciiCoderC.h"
#include "sep/BinaryCoderC.h"
#include "sep/ConnectionHandlerC.h"
#include "sep/RouterC.h"
#include "sep/RoutingChannelC.h"
#include "sep/server/HalvernSepImpl.h"
#include "sim/SimRootLayout.h"
#include "sim/efi/EfiControllerModel.h"
#include "sim/efi/EfiServiceSim.h"
#include "sysmanager/SysManagerC.h"

namespace {

namespace sim = halvern::sim;
namespace links = halvern::links;

// Time passes only when something waits: sleeps and time-outs end at once. The controller service answers
// on its own threads within microseconds, before any time-out that matters to it.
class InstantClockC final : public platform::ClockI {
public:
    std::uint64_t tickCount64() override { return m_now.load(); }
    void sleep(std::uint32_t milliseconds) override { m_now += milliseconds; }
    std::chrono::milliseconds idleWait(std::uint64_t milliseconds) override
    {
        m_now += milliseconds;
        return std::chrono::milliseconds(0);
    }

private:
    std::atomic<std::uint64_t> m_now{1'000'000};
};

struct InstrumentT {
    std::string root;
    sim::EfiControllerModelC model;
    sim::EfiServiceSimC service{model};
    InstantClockC clock;
    SEP::RouterC router;
    SEP::BinaryCoderC binary;
    SEP::AsciiCoderC ascii;
    SEP::RoutingChannelC channel{router};
    std::size_t replied = 0;
    SEP::ConnectionHandlerC client{router, [this](const std::uint8_t*, std::size_t length) {
                                       replied += length;
                                       return true;
                                   }};
};

InstrumentT* g_instrument = nullptr;

void removeInstrument()
{
    // Real time again: the system manager's teardown waits for its threads, which a clock that lets every
    // wait end at once would cut short. Its threads go first: one still logging after the sim root is gone
    // would write wherever a destroyed root's text points.
    platform::setClock(nullptr);
    SysManagerC::DestroyInstance();
    g_instrument->service.stop();
    std::error_code ignored;
    std::filesystem::remove_all(g_instrument->root, ignored);
}

// Built once and kept for the whole run: an instrument per input would measure its start, not the handlers.
InstrumentT& instrument()
{
    if (g_instrument != nullptr) return *g_instrument;
    halvern::fuzz::quietFramework();
    auto* built = new InstrumentT();
    std::string error;
    built->root = sim::makeTemporarySimRoot(error);
    if (built->root.empty() || !sim::createSimRootLayout(built->root, error)) {
        std::fprintf(stderr, "command_handlers: no sim root: %s\n", error.c_str());
        std::abort();
    }
    // Millions of log lines would only measure the disk: without its folder the log writes nothing.
    std::error_code ignored;
    std::filesystem::remove_all(built->root + "/D/logs", ignored);
    platform::sim::setRoot(built->root);
    // Port 1 of loopback: a sensor board that does not answer, never another machine.
    links::setTelnetEndpoint({"127.0.0.1", "1"});
    SysManagerC::Instance()->SetSensorBoardAddress("127.0.0.1");
    platform::setClock(&built->clock);
    if (!built->service.start() || !SysManagerC::Instance()->GetEFIServiceIPC().InitializeEFICommunication()) {
        std::fprintf(stderr, "command_handlers: the power controller's service did not start\n");
        std::abort();
    }
    built->router.setNodeId(1);
    built->router.addCoder(built->binary);
    built->router.addCoder(built->ascii);
    built->router.setDefaultChannel(built->channel);
    HalvernSepImpl::RegisterHandlers(built->channel);
    g_instrument = built;
    std::atexit(removeInstrument);
    return *built;
}

// One field per type byte; a value cut short by the end of the input ends the list.
class FieldSourceC {
public:
    FieldSourceC(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool writeAll(SEP::DataWriterI& writer)
    {
        while (m_position < m_size) {
            const std::uint8_t type = m_data[m_position++];
            std::uint32_t value = 0;
            switch (type % 8) {
                case 0:
                    if (!take(1, value)) return true;
                    if (!writer.writeBool(value != 0)) return false;
                    break;
                case 1:
                    if (!take(1, value)) return true;
                    if (!writer.writeI8(static_cast<std::int8_t>(value))) return false;
                    break;
                case 2:
                    if (!take(2, value)) return true;
                    if (!writer.writeU16(static_cast<std::uint16_t>(value))) return false;
                    break;
                case 3:
                    if (!take(4, value)) return true;
                    if (!writer.writeU32(value)) return false;
                    break;
                case 4:
                    if (!take(4, value)) return true;
                    if (!writer.writeI32(static_cast<std::int32_t>(value))) return false;
                    break;
                case 5: {
                    // Fixed-length byte arrays: the records' are 4 to 4096 bytes long.
                    if (!take(2, value)) return true;
                    const std::size_t length = std::min<std::size_t>(value % 4097, m_size - m_position);
                    if (!writer.writeBytes(m_data + m_position, length)) return false;
                    m_position += length;
                    break;
                }
                default: {
                    // A text up to the next NUL or the end, as long as the longest record's buffer and a bit.
                    std::string text;
                    while (m_position < m_size && m_data[m_position] != 0 && text.size() < 4200)
                        text.push_back(static_cast<char>(m_data[m_position++]));
                    if (m_position < m_size) ++m_position;
                    if (!writer.writeString(text.c_str())) return false;
                    break;
                }
            }
        }
        return true;
    }

private:
    bool take(std::size_t bytes, std::uint32_t& value)
    {
        if (m_size - m_position < bytes) return false;
        value = 0;
        for (std::size_t i = 0; i < bytes; ++i)
            value |= static_cast<std::uint32_t>(m_data[m_position + i]) << (8 * i);
        m_position += bytes;
        return true;
    }

    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_position = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) return 0;
    InstrumentT& target = instrument();
    const auto messageId = static_cast<std::uint16_t>(1000 + data[0] % 67);
    const SEP::CodingE coding = data[1] % 2 == 0 ? SEP::CodingE::Binary : SEP::CodingE::Ascii;
    FieldSourceC fields(data + 2, size - 2);
    const std::vector<std::uint8_t> frame =
        SEP::encodeFrame(coding, messageId, SEP::MESSAGE_KIND_COMMAND, {}, {},
                         [&fields](SEP::DataWriterI& writer) { return fields.writeAll(writer); });
    if (frame.empty()) return 0;
    const std::size_t before = target.replied;
    target.client.onBytesReceived(frame.data(), frame.size());
    // Every command is answered, whatever its fields: a handler that stays silent leaves its client waiting.
    if (messageId >= 1001 && messageId <= 1065 && messageId != 1045 && target.replied == before) {
        std::fprintf(stderr, "command %u was not answered\n", static_cast<unsigned>(messageId));
        std::abort();
    }
    return 0;
}
