// Codec micro-benchmarks: encode plus frame, and deframe plus decode, of a small command and of a reply
// the size of a WLAN configuration, in both codings. Bytes are those on the wire (escaped, with CR LF).
#include <benchmark/benchmark.h>

#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "framework/DebugLog.h"
#include "framework/RingBufferC.h"
#include "sep/AsciiCoderC.h"
#include "sep/BinaryCoderC.h"
#include "sep/ConnectionHandlerC.h"
#include "sep/ReaderConnectionC.h"
#include "sep/RecordCoding.h"
#include "sep/SerialFramerC.h"
#include "sep/server/HalvernSepImpl.h"
#include "sep/HalvernSepRecords.h"

namespace {

using Varda::SEP::HALVERN::DoPowerOffExt;
using Varda::SEP::HALVERN::WlanCfg;

enum class MessageE { SmallCommand, WlanCfgReply };

std::unique_ptr<SEP::DataCoderI> makeCoder(bool ascii)
{
    if (ascii) return std::make_unique<SEP::AsciiCoderC>();
    return std::make_unique<SEP::BinaryCoderC>();
}

// A standard power cycle request: three small fields, as most commands are.
DoPowerOffExt smallCommand()
{
    DoPowerOffExt record;
    record.type = 2;
    record.force = true;
    record.timeout = 30;
    return record;
}

// The longest SSID (32 characters) and WPA2 passphrase (63) an access point takes.
WlanCfg wlanCfg()
{
    WlanCfg record;
    record.enabled = true;
    std::memset(record.ssid, 'S', 32);
    std::memset(record.password, 'p', 63);
    record.band = 3;
    return record;
}

bool writeMessage(SEP::DataCoderI& coder, MessageE message)
{
    if (message == MessageE::SmallCommand) {
        DoPowerOffExt record = smallCommand();
        return coder.beginMessage(1027, SEP::MESSAGE_KIND_COMMAND, {}, {}) && SEP::encodeRecord(coder, record) &&
               coder.endMessage();
    }
    WlanCfg record = wlanCfg();
    return coder.beginMessage(1003, SEP::MESSAGE_KIND_REPLY, {}, {}) &&
           coder.writeI32(HalvernRpc::kReturnCodeSuccess) && coder.writeI32(HalvernRpc::kFacility) &&
           coder.writeU16(0) && SEP::encodeRecord(coder, record) && coder.endMessage();
}

bool readMessage(SEP::DataCoderI& coder, MessageE message)
{
    std::uint32_t kind = 0;
    std::uint16_t id = 0;
    SEP::AddressC source, destination;
    if (!coder.readHeader(kind, id, source, destination)) return false;
    if (message == MessageE::SmallCommand) {
        DoPowerOffExt record;
        return SEP::decodeRecord(coder, record) == SEP::DecodeResultE::Ok && record.timeout == 30;
    }
    std::int32_t returnCode = 0, facility = 0;
    std::uint16_t level = 0;
    WlanCfg record;
    return coder.readI32(returnCode) && coder.readI32(facility) && coder.readU16(level) &&
           SEP::decodeRecord(coder, record) == SEP::DecodeResultE::Ok && record.band == 3;
}

void encodeFrame(benchmark::State& state, MessageE message, bool ascii)
{
    MAL::UTI::RingBufferC sendBuffer(SEP::ConnectionHandlerC::kBufferCapacity);
    auto coder = makeCoder(ascii);
    coder->setWriteBuffer(&sendBuffer);
    std::vector<std::uint8_t> framed;
    std::size_t bytes = 0;
    for (auto _ : state) {
        framed.clear();
        if (!writeMessage(*coder, message) || !MAL::UTI::SerialFramerC::takeFramed(sendBuffer, framed)) {
            state.SkipWithError("the message could not be encoded");
            return;
        }
        bytes += framed.size();
        benchmark::DoNotOptimize(framed.data());
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
    state.SetItemsProcessed(state.iterations());
}

void deframeDecode(benchmark::State& state, MessageE message, bool ascii)
{
    std::vector<std::uint8_t> framed;
    {
        MAL::UTI::RingBufferC sendBuffer(SEP::ConnectionHandlerC::kBufferCapacity);
        auto writer = makeCoder(ascii);
        writer->setWriteBuffer(&sendBuffer);
        if (!writeMessage(*writer, message) || !MAL::UTI::SerialFramerC::takeFramed(sendBuffer, framed)) {
            state.SkipWithError("the message could not be encoded");
            return;
        }
    }
    MAL::UTI::RingBufferC receiveBuffer(SEP::ConnectionHandlerC::kBufferCapacity);
    MAL::HAL::ReaderConnectionC reader(receiveBuffer);
    auto coder = makeCoder(ascii);
    std::vector<std::uint8_t> frame;
    for (auto _ : state) {
        bool decoded = reader.procReadData(framed.data(), framed.size()) == 1;
        {
            MAL::UTI::RingBufferReadLockC lock(receiveBuffer);
            decoded = decoded && receiveBuffer.frontMessage(frame);
            receiveBuffer.popMessage();
        }
        coder->setReadFrame(frame.data(), frame.size());
        if (!decoded || !readMessage(*coder, message)) {
            state.SkipWithError("the frame could not be decoded");
            return;
        }
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(framed.size() * state.iterations()));
    state.SetItemsProcessed(state.iterations());
}

void registerAll()
{
    const std::pair<const char*, MessageE> messages[] = {{"small_command", MessageE::SmallCommand},
                                                         {"wlan_cfg_reply", MessageE::WlanCfgReply}};
    for (const auto& [messageName, message] : messages) {
        for (const bool ascii : {false, true}) {
            const std::string suffix = std::string("/") + messageName + (ascii ? "/ascii" : "/binary");
            benchmark::RegisterBenchmark(("encode_frame" + suffix).c_str(), encodeFrame, message, ascii);
            benchmark::RegisterBenchmark(("deframe_decode" + suffix).c_str(), deframeDecode, message, ascii);
        }
    }
}

}  // namespace

int main(int argc, char** argv)
{
    BSS::setDebugLevel(-1);
    registerAll();
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
