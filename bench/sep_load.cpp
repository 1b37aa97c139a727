// sep-load: the SEP load generator of the benchmarks. Prints one JSON object with the request rate and
// latency percentiles; --cdf writes the latency distribution for the plot.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iostream>

#include "bench/LoadGenerator.h"
#include "bench/ReportJson.h"
#include "framework/DebugLog.h"

namespace {

using HalvernBench::toMs;

// Percentiles spread as an HdrHistogram plot spreads them: ever closer to 100 %, then the maximum.
bool writeDistribution(const HalvernBench::LoadReportT& report, const std::string& path)
{
    std::ofstream out(path);
    for (int step = 0; step <= 50; ++step) {
        const double percentile = 100.0 * (1.0 - std::pow(10.0, -step / 10.0));
        out << percentile << ' ' << toMs(report.percentileNs(percentile)) << '\n';
    }
    out << 100.0 << ' ' << toMs(report.maxNs()) << '\n';
    return static_cast<bool>(out);
}

}  // namespace

int main(int argc, char** argv)
{
    CLI::App app{"SEP load generator: closed-loop or pipelined commands on up to 10 loopback connections"};
    HalvernBench::LoadPlanT plan;
    std::string host = "127.0.0.1";
    bool ascii = false;
    std::string cdfPath;
    std::string portFile;
    std::uint32_t awaitMs = 10000;
    app.add_option("--host", host, "loopback address of the server")->capture_default_str();
    app.add_option("--port", plan.port, "TCP port of the server");
    app.add_option("-c,--connections", plan.connections, "connections, 1 to 10")->capture_default_str();
    app.add_option("-P,--pipeline", plan.pipeline, "commands in flight per connection")->capture_default_str();
    app.add_flag("--ascii", ascii, "ASCII coding instead of binary");
    app.add_option("--command", plan.commandId, "command id")->capture_default_str();
    app.add_option("-n,--requests", plan.requests, "requests in all (instead of --duration-ms)");
    app.add_option("--duration-ms", plan.durationMs, "run time in ms (instead of --requests)");
    app.add_option("--reply-timeout-ms", plan.replyTimeoutMs, "longest time without a reply")->capture_default_str();
    app.add_option("--cdf", cdfPath, "file for the latency distribution (percentile, ms per line)");
    app.add_option("--await-port-file", portFile,
                   "instead of a load: wait for the port in this file and the first reply on it, then print the "
                   "wall-clock time of that reply");
    app.add_option("--await-ms", awaitMs, "longest wait for --await-port-file")->capture_default_str();
    CLI11_PARSE(app, argc, argv);

    // The library's own log is not wanted on a benchmark's output.
    BSS::setDebugLevel(-1);
    if (!portFile.empty()) {
        std::string failure;
        if (!HalvernBench::awaitFirstReply(portFile, plan.commandId, awaitMs, failure)) {
            std::cerr << "sep-load: " << failure << '\n';
            return 1;
        }
        const auto now = std::chrono::system_clock::now().time_since_epoch();
        std::cout << nlohmann::json{{"first_reply_epoch_ns",
                                     std::chrono::duration_cast<std::chrono::nanoseconds>(now).count()}}
                  << '\n';
        return 0;
    }

    plan.coding = ascii ? SEP::CodingE::Ascii : SEP::CodingE::Binary;
    if (!platform::parseIpv4(host == "localhost" ? "127.0.0.1" : host, plan.address)) {
        std::cerr << "sep-load: not an IPv4 address: " << host << '\n';
        return 2;
    }
    HalvernBench::LoadReportT report;
    const bool ok = HalvernBench::runLoad(plan, report);
    nlohmann::json result{{"connections", plan.connections},
                          {"pipeline", plan.pipeline},
                          {"coding", ascii ? "ascii" : "binary"},
                          {"command", plan.commandId},
                          {"bad_replies", report.badReplies},
                          {"events", report.events}};
    HalvernBench::addFigures(result, report);
    if (!ok) result["failure"] = report.failure;
    std::cout << result << '\n';
    if (!cdfPath.empty() && !writeDistribution(report, cdfPath)) {
        std::cerr << "sep-load: cannot write " << cdfPath << '\n';
        return 1;
    }
    if (!ok) std::cerr << "sep-load: " << report.failure << '\n';
    return ok ? 0 : 1;
}
