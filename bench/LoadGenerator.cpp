#include "bench/LoadGenerator.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <fstream>

#include "framework/RingBufferC.h"
#include "platform/Clock.h"
#include "platform/Socket.h"
#include "platform/WinError.h"
#include "sep/ConnectionHandlerC.h"
#include "sep/ReaderConnectionC.h"
#include "sep/CommandSet.h"

namespace HalvernBench {
namespace {

using SteadyClock = std::chrono::steady_clock;

constexpr std::uint32_t kLoopbackNetwork = 0x7F000000;
constexpr std::uint32_t kLoopbackMask = 0xFF000000;

// Hands out batches from one pool of requests (count mode) or until the deadline (duration mode).
class BatchSourceC {
public:
    explicit BatchSourceC(const LoadPlanT& plan)
        : m_remaining(plan.requests),
          m_counted(plan.requests > 0),
          m_deadline(SteadyClock::now() + std::chrono::milliseconds(plan.durationMs))
    {}

    // How many requests the next batch may hold (0: the run is over).
    unsigned claim(unsigned pipeline)
    {
        if (!m_counted) return SteadyClock::now() < m_deadline ? pipeline : 0;
        const std::uint64_t take = std::min<std::uint64_t>(m_remaining, pipeline);
        m_remaining -= take;
        return static_cast<unsigned>(take);
    }

private:
    std::uint64_t m_remaining;
    const bool m_counted;
    const SteadyClock::time_point m_deadline;
};

struct ConnectionT {
    ConnectionT() : receiveBuffer(SEP::ConnectionHandlerC::kBufferCapacity), reader(receiveBuffer) {}

    platform::UniqueSocket socket;
    MAL::UTI::RingBufferC receiveBuffer;
    MAL::HAL::ReaderConnectionC reader;
    unsigned outstanding = 0;
    SteadyClock::time_point sentAt;
};

std::string socketFailure(const char* what)
{
    return std::string(what) + " (" + platform::socketErrorText(platform::lastError()) + ")";
}

bool sendAll(platform::SocketValue socket, const std::uint8_t* data, std::size_t length)
{
    std::size_t sent = 0;
    while (sent < length) {
        const int result = platform::sendSocket(socket, data + sent, length - sent);
        if (result <= 0) return false;
        sent += static_cast<std::size_t>(result);
    }
    return true;
}

// One thread drives every connection, as redis-benchmark does: the generator takes one core at most and
// leaves the other to the server.
class LoadLoopC {
public:
    LoadLoopC(const LoadPlanT& plan, LoadReportT& report)
        : m_plan(plan),
          m_report(report),
          m_request(commandFrame(plan.coding, plan.commandId)),
          m_coder(SEP::makeCoder(plan.coding))
    {
        for (unsigned i = 0; i < plan.pipeline; ++i)
            m_batch.insert(m_batch.end(), m_request.begin(), m_request.end());
    }

    bool connect()
    {
        if (m_request.empty()) {
            m_report.failure = "the command cannot be encoded";
            return false;
        }
        for (unsigned i = 0; i < m_plan.connections; ++i) {
            auto connection = std::make_unique<ConnectionT>();
            connection->socket = platform::createTcpSocket();
            if (!connection->socket ||
                !platform::connectSocket(connection->socket.get(), m_plan.address, m_plan.port)) {
                m_report.failure = socketFailure(("cannot connect to port " + std::to_string(m_plan.port)).c_str());
                return false;
            }
            platform::setNoDelay(connection->socket.get());
            m_connections.push_back(std::move(connection));
        }
        return true;
    }

    void run()
    {
        BatchSourceC batches(m_plan);
        std::uint64_t lastReplyAt = platform::tickCount64();
        std::vector<platform::SocketPollT> readable;
        std::vector<ConnectionT*> waiting;
        for (;;) {
            readable.clear();
            waiting.clear();
            for (auto& connection : m_connections) {
                if (connection->outstanding == 0 && !sendBatch(*connection, batches.claim(m_plan.pipeline))) return;
                if (connection->outstanding == 0) continue;
                readable.push_back({connection->socket.get(), false});
                waiting.push_back(connection.get());
            }
            if (waiting.empty()) return;
            const auto realWait = platform::clock().idleWait(kPollSliceMs);
            const int ready =
                platform::selectSockets(&readable, nullptr, nullptr, static_cast<std::uint32_t>(realWait.count()));
            if (ready < 0) {
                m_report.failure = socketFailure("select failed");
                return;
            }
            if (ready == 0) {
                if (platform::tickCount64() - lastReplyAt < m_plan.replyTimeoutMs) continue;
                m_report.failure = "no reply within " + std::to_string(m_plan.replyTimeoutMs) + " ms";
                return;
            }
            for (std::size_t i = 0; i < readable.size(); ++i)
                if (readable[i].ready && !receive(*waiting[i])) return;
            lastReplyAt = platform::tickCount64();
        }
    }

private:
    static constexpr std::uint32_t kPollSliceMs = 100;

    bool sendBatch(ConnectionT& connection, unsigned batchSize)
    {
        if (batchSize == 0) return true;
        connection.sentAt = SteadyClock::now();
        if (!sendAll(connection.socket.get(), m_batch.data(), m_request.size() * batchSize)) {
            m_report.failure = socketFailure("send failed");
            return false;
        }
        connection.outstanding = batchSize;
        return true;
    }

    bool receive(ConnectionT& connection)
    {
        const int received = platform::receiveSocket(connection.socket.get(), m_chunk, sizeof m_chunk);
        if (received <= 0) {
            m_report.failure = received == 0 ? "the server closed the connection" : socketFailure("receive failed");
            return false;
        }
        if (connection.reader.procReadData(m_chunk, static_cast<std::size_t>(received)) == 0) return true;
        const auto latency =
            std::chrono::duration_cast<std::chrono::nanoseconds>(SteadyClock::now() - connection.sentAt);
        MAL::UTI::RingBufferReadLockC lock(connection.receiveBuffer);
        while (connection.receiveBuffer.frontMessage(m_frame)) {
            connection.receiveBuffer.popMessage();
            // Events reach every client at any time (a start-up still settling sends some): counted, not
            // taken for a reply.
            if (isEvent(*m_coder, m_frame)) {
                ++m_report.events;
                continue;
            }
            if (connection.outstanding == 0) {
                m_report.failure = "a reply to a command that was not sent";
                return false;
            }
            --connection.outstanding;
            if (isSuccessReply(*m_coder, m_frame, m_plan.commandId))
                m_report.latenciesNs.push_back(static_cast<std::uint64_t>(latency.count()));
            else
                ++m_report.badReplies;
        }
        return true;
    }

    const LoadPlanT& m_plan;
    LoadReportT& m_report;
    const std::vector<std::uint8_t> m_request;
    // The reply comes in the coding of the command; one coder reads them all.
    const std::unique_ptr<SEP::DataCoderI> m_coder;
    std::vector<std::uint8_t> m_batch;
    std::vector<std::unique_ptr<ConnectionT>> m_connections;
    std::vector<std::uint8_t> m_frame;
    std::uint8_t m_chunk[16 * 1024];
};

}  // namespace

double LoadReportT::requestsPerSecond() const
{
    return elapsedSeconds > 0 ? static_cast<double>(completed) / elapsedSeconds : 0.0;
}

std::uint64_t LoadReportT::percentileNs(double percentile) const
{
    if (latenciesNs.empty()) return 0;
    // Nearest rank: the smallest sample that at least `percentile` % of the samples do not exceed.
    const double rank = std::ceil(percentile / 100.0 * static_cast<double>(latenciesNs.size()));
    const std::size_t index = rank < 1 ? 0 : static_cast<std::size_t>(rank) - 1;
    return latenciesNs[std::min(index, latenciesNs.size() - 1)];
}

bool checkLoadPlan(const LoadPlanT& plan, std::string& failure)
{
    if ((plan.address & kLoopbackMask) != kLoopbackNetwork)
        failure = "only loopback addresses (127.0.0.0/8) may be loaded";
    else if (plan.port == 0)
        failure = "no port given";
    else if (plan.connections < 1 || plan.connections > LoadPlanT::kMaxConnections)
        failure = "connections must be 1 to 10";
    else if (plan.pipeline < 1)
        failure = "pipeline depth must be at least 1";
    else if (plan.requests == 0 && plan.durationMs == 0)
        failure = "neither a request count nor a duration given";
    else
        return true;
    return false;
}

bool runLoad(const LoadPlanT& plan, LoadReportT& report)
{
    report = LoadReportT{};
    if (!checkLoadPlan(plan, report.failure)) return false;
    LoadLoopC loop(plan, report);
    if (!loop.connect()) return false;
    const auto start = SteadyClock::now();
    loop.run();
    report.elapsedSeconds = std::chrono::duration<double>(SteadyClock::now() - start).count();
    std::sort(report.latenciesNs.begin(), report.latenciesNs.end());
    report.completed = report.latenciesNs.size();
    if (report.failure.empty() && report.badReplies > 0)
        report.failure = std::to_string(report.badReplies) + " replies were not success replies to command " +
                         std::to_string(plan.commandId);
    return report.failure.empty();
}

bool awaitFirstReply(const std::string& portFile, std::uint16_t commandId, std::uint32_t timeoutMs,
                     std::string& failure)
{
    const std::uint64_t start = platform::tickCount64();
    const auto request = commandFrame(SEP::CodingE::Binary, commandId);
    const auto coder = SEP::makeCoder(SEP::CodingE::Binary);
    failure = "no port announced in " + portFile;
    while (platform::tickCount64() - start < timeoutMs) {
        unsigned port = 0;
        std::ifstream in(portFile);
        SEP::SepClientC client;
        if (in >> port && port > 0 && port <= 0xFFFF && client.connect("127.0.0.1", static_cast<std::uint16_t>(port))) {
            failure = "no reply on port " + std::to_string(port);
            std::vector<std::uint8_t> frame;
            const std::uint64_t elapsed = platform::tickCount64() - start;
            const auto remaining = static_cast<std::uint32_t>(timeoutMs - std::min<std::uint64_t>(elapsed, timeoutMs));
            if (client.sendBytes(request) && client.receiveFrame(frame, remaining)) {
                if (isSuccessReply(*coder, frame, commandId)) return true;
                failure = "the first reply was not a success reply";
                return false;
            }
        }
        platform::sleepMs(1);
    }
    return false;
}

std::vector<std::uint8_t> commandFrame(SEP::CodingE coding, std::uint16_t commandId)
{
    return SEP::encodeFrame(coding, commandId, SEP::MESSAGE_KIND_COMMAND, {}, {}, {});
}

std::vector<std::uint8_t> apiLevelReplyFrame(SEP::CodingE coding)
{
    return SEP::encodeFrame(coding, 1001, SEP::MESSAGE_KIND_REPLY, {}, {}, [](SEP::DataWriterI& writer) {
        return writer.writeI32(HalvernRpc::kReturnCodeSuccess) && writer.writeI32(HalvernRpc::kFacility) &&
               writer.writeU16(0) && writer.writeI32(HalvernRpc::kApiLevel);
    });
}

bool isEvent(SEP::DataCoderI& coder, const std::vector<std::uint8_t>& frame)
{
    std::uint32_t kind = 0;
    std::uint16_t messageId = 0;
    SEP::AddressC source, destination;
    coder.setReadFrame(frame.data(), frame.size());
    return coder.readHeader(kind, messageId, source, destination) && kind == SEP::MESSAGE_KIND_EVENT;
}

bool isSuccessReply(SEP::DataCoderI& coder, const std::vector<std::uint8_t>& frame, std::uint16_t commandId)
{
    std::uint32_t kind = 0;
    std::uint16_t messageId = 0;
    SEP::AddressC source, destination;
    std::int32_t returnCode = 0;
    std::int32_t facility = 0;
    coder.setReadFrame(frame.data(), frame.size());
    return coder.readHeader(kind, messageId, source, destination) && kind == SEP::MESSAGE_KIND_REPLY &&
           messageId == commandId && coder.readI32(returnCode) && coder.readI32(facility) &&
           returnCode == HalvernRpc::kReturnCodeSuccess && facility == HalvernRpc::kFacility;
}

}  // namespace HalvernBench
