#pragma once
// The figures of a load run as the benchmark tools print them, one JSON object per run.
#include <nlohmann/json.hpp>

#include "bench/LoadGenerator.h"

namespace HalvernBench {

inline double toMs(std::uint64_t nanoseconds)
{
    return static_cast<double>(nanoseconds) / 1e6;
}

// Count, duration, rate and the latency percentiles of `report`, added to `result`.
inline nlohmann::json& addFigures(nlohmann::json& result, const LoadReportT& report)
{
    result["requests"] = report.completed;
    result["seconds"] = report.elapsedSeconds;
    result["rps"] = report.requestsPerSecond();
    result["p50_ms"] = toMs(report.percentileNs(50));
    result["p99_ms"] = toMs(report.percentileNs(99));
    result["p999_ms"] = toMs(report.percentileNs(99.9));
    result["max_ms"] = toMs(report.maxNs());
    return result;
}

}  // namespace HalvernBench
