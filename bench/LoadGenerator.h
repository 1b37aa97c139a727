#pragma once
// Closed-loop SEP load: N connections, each sending a batch of `pipeline` commands and waiting for all of
// their replies before the next batch. Every reply is checked (kind, id, success header), so a server that
// answers garbage fast does not look fast.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/SepClientC.h"

namespace HalvernBench {

struct LoadPlanT {
    static constexpr unsigned kMaxConnections = 10;

    std::uint32_t address = 0x7F000001;  // loopback only: the tool refuses anything else
    std::uint16_t port = 0;
    unsigned connections = 1;
    unsigned pipeline = 1;
    SEP::CodingE coding = SEP::CodingE::Binary;
    std::uint16_t commandId = 1001;
    // Requests in all; 0 runs for `durationMs` instead.
    std::uint64_t requests = 0;
    std::uint32_t durationMs = 0;
    // A run in which no reply arrives for this long is ended and reported as failed.
    std::uint32_t replyTimeoutMs = 5000;
};

struct LoadReportT {
    std::uint64_t completed = 0;
    std::uint64_t badReplies = 0;
    // Events that arrived between the replies (not requests, not failures).
    std::uint64_t events = 0;
    double elapsedSeconds = 0;
    // What went wrong, empty when every request was answered correctly.
    std::string failure;
    // Per request, from sending its batch to its reply, sorted.
    std::vector<std::uint64_t> latenciesNs;

    double requestsPerSecond() const;
    // Latency at `percentile` (0..100); 0 without samples.
    std::uint64_t percentileNs(double percentile) const;
    std::uint64_t maxNs() const { return latenciesNs.empty() ? 0 : latenciesNs.back(); }
};

// A plan's own mistakes (no port, more than 10 connections, a non-loopback address) are failures too.
bool checkLoadPlan(const LoadPlanT& plan, std::string& failure);

// Runs the load and fills `report`; false when the run could not be carried out or any reply was wrong.
bool runLoad(const LoadPlanT& plan, LoadReportT& report);

// Waits up to `timeoutMs` for a server to announce its port in `portFile`, then for the reply to
// `commandId` on it; true once a success reply has arrived.
bool awaitFirstReply(const std::string& portFile, std::uint16_t commandId, std::uint32_t timeoutMs,
                     std::string& failure);

// One command frame as a client sends it, in `coding`.
std::vector<std::uint8_t> commandFrame(SEP::CodingE coding, std::uint16_t commandId);
// The reply to GET_API_LVL as Halvern answers it, in `coding`: what the echo floor sends back.
std::vector<std::uint8_t> apiLevelReplyFrame(SEP::CodingE coding);

// True when `frame` is a success reply to `commandId` in the coding of `coder`.
// True for an event frame (events come unasked, between replies).
bool isEvent(SEP::DataCoderI& coder, const std::vector<std::uint8_t>& frame);
bool isSuccessReply(SEP::DataCoderI& coder, const std::vector<std::uint8_t>& frame, std::uint16_t commandId);

}  // namespace HalvernBench
