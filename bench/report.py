#!/usr/bin/env python3
"""Turns one run of scripts/bench into its table (Markdown, printed and kept as table.md) and the plot of
the latency distributions (latency.png, through gnuplot)."""
import json
import pathlib
import re
import subprocess
import sys

PATTERNS = [
    ("c1", "1 connection, closed loop"),
    ("c10", "10 connections, closed loop"),
    ("c10-p16", "10 connections, pipelined 16"),
    ("c10-ascii", "10 connections, closed loop, ASCII coding"),
]
TARGETS = [
    ("halvern-api", "Halvern GET_API_LVL"),
    ("halvern-bat", "Halvern EFI_GET_BAT_STATUS"),
    ("pipe-floor", "raw pipe, the 4 transactions of EFI_GET_BAT_STATUS"),
    ("redis", "redis-server PING"),
    ("echo", "echo floor"),
]


def read_sep_load(path):
    result = json.loads(path.read_text())
    if "failure" in result:
        sys.exit(f"{path.name}: {result['failure']}")
    cdf = path.with_suffix(".cdf")
    result["cdf"] = [tuple(map(float, line.split())) for line in cdf.read_text().splitlines()] if cdf.exists() else []
    return result


def read_redis(path):
    text = path.read_text().replace("\r", "\n")
    rps = float(re.search(r"throughput summary: ([\d.]+) requests per second", text).group(1))
    summary = re.search(r"avg\s+min\s+p50\s+p95\s+p99\s+max\s*\n\s*([\d.\s]+)", text).group(1).split()
    # The percentile section only: the cumulative one after it has lines of the same form.
    by_percentile = text.split("Latency by percentile distribution:")[1].split("Cumulative distribution")[0]
    cdf = [(float(p), float(ms)) for p, ms in re.findall(r"([\d.]+)% <= ([\d.]+) milliseconds", by_percentile)]
    p999 = next(ms for p, ms in cdf if p >= 99.9)
    return {"rps": rps, "p50_ms": float(summary[2]), "p99_ms": float(summary[4]), "p999_ms": p999,
            "max_ms": float(summary[5]), "cdf": cdf}


def load(results):
    """The median run (by request rate) of each server under each load."""
    runs = {}
    for pattern, _ in PATTERNS:
        for target, _ in TARGETS:
            repeats = [read_sep_load(path) for path in sorted(results.glob(f"{target}-{pattern}-r*.json"))]
            repeats += [read_redis(path) for path in sorted(results.glob(f"{target}-{pattern}-r*.txt"))]
            if repeats:
                repeats.sort(key=lambda run: run["rps"])
                runs[(target, pattern)] = repeats[(len(repeats) - 1) // 2]
                runs[(target, pattern)]["repeats"] = len(repeats)
    return runs


def ratio(numerator, denominator):
    return f"{numerator / denominator:.2f}" if numerator and denominator else "-"


def load_table(runs):
    lines = ["| load | server | requests/s | p50 ms | p99 ms | p99.9 ms | max ms | runs |",
             "|---|---|---:|---:|---:|---:|---:|---:|"]
    for pattern, pattern_name in PATTERNS:
        for target, target_name in TARGETS:
            run = runs.get((target, pattern))
            if run is None:
                continue
            lines.append(f"| {pattern_name} | {target_name} | {run['rps']:.0f} | {run['p50_ms']:.3f} | "
                         f"{run['p99_ms']:.3f} | {run['p999_ms']:.3f} | {run['max_ms']:.3f} | {run['repeats']} |")
    lines += ["", "| load | Halvern/reference (rate, goal >= 1) | Halvern/floor (time per request, goal <= 1.5) |",
              "|---|---:|---:|"]
    for pattern, pattern_name in PATTERNS:
        halvern = runs.get(("halvern-api", pattern))
        redis = runs.get(("redis", pattern))
        echo = runs.get(("echo", pattern))
        if halvern is None:
            continue
        versus_redis = ratio(halvern["rps"], redis["rps"]) if redis else "-"
        versus_floor = ratio(echo["rps"], halvern["rps"]) if echo else "-"
        lines.append(f"| {pattern_name} | {versus_redis} | {versus_floor} |")
    battery = runs.get(("halvern-bat", "c1"))
    pipe = runs.get(("pipe-floor", "c1"))
    if battery and pipe:
        lines += ["", "| EFI_GET_BAT_STATUS, 1 connection | time per request against its raw pipe floor (goal <= 2) |",
                  "|---|---:|", f"| Halvern / raw pipe | {ratio(pipe['rps'], battery['rps'])} |"]
    return lines


def footprint_table(results):
    path = results / "footprint.json"
    if not path.exists():
        return []
    footprint = json.loads(path.read_text())
    return ["", "| footprint | measured | goal |", "|---|---:|---:|",
            f"| first answered command after process start | {footprint['startup_ms']:.0f} ms | < 1000 ms |",
            f"| resident memory after start-up | {footprint['rss_idle_kib'] / 1024:.1f} MiB | |",
            f"| resident memory with 10 clients (sampled under load) | {footprint['rss_load_kib'] / 1024:.1f} MiB "
            "| < 16 MiB |",
            f"| peak resident memory (VmHWM) | {footprint['hwm_kib'] / 1024:.1f} MiB | |",
            f"| CPU while idle for {footprint['idle_seconds']} s | {footprint['idle_cpu_percent']:.4f} % | < 0.1 % |",
            f"| wake-ups while idle (context switches of all threads per second, no client) | "
            f"{footprint.get('idle_wakeups_per_s', float('nan')):.2f} /s | 0 periodic |"]


def codec_table(results):
    path = results / "codec.json"
    if not path.exists():
        return []
    lines = ["", "| codec | MB/s | messages/s |", "|---|---:|---:|"]
    for entry in json.loads(path.read_text())["benchmarks"]:
        lines.append(f"| {entry['name']} | {entry['bytes_per_second'] / 1e6:.1f} | "
                     f"{entry['items_per_second']:.0f} |")
    return lines


def plot(runs, results):
    # x: 1/(1 - percentile), so the tail gets as much room as the median.
    series = []
    for target, target_name in TARGETS:
        run = runs.get((target, "c10"))
        if run is None:
            continue
        data = results / f"plot-{target}.dat"
        data.write_text("".join(f"{1.0 / max(1.0 - p / 100.0, 1e-5)} {ms}\n" for p, ms in run["cdf"]))
        series.append(f"'{data}' using 1:2 with linespoints title '{target_name}'")
    if not series:
        return
    script = "\n".join([
        "set terminal pngcairo size 1000,600" if has_pngcairo() else "set terminal png size 1000,600",
        f"set output '{results / 'latency.png'}'",
        "set title 'Latency by percentile, 10 connections, closed loop'",
        "set logscale x", "set logscale y",
        "set xlabel 'percentile'", "set ylabel 'latency (ms)'",
        "set xtics ('0%%' 1, '90%%' 10, '99%%' 100, '99.9%%' 1000, '99.99%%' 10000, '99.999%%' 100000)",
        "set key top left noenhanced", "set grid",
        "plot " + ", ".join(series), ""])
    subprocess.run(["gnuplot"], input=script, text=True, check=True)


def has_pngcairo():
    terminals = subprocess.run(["gnuplot", "-e", "set terminal"], capture_output=True, text=True)
    return "pngcairo" in terminals.stdout + terminals.stderr


def main():
    results = pathlib.Path(sys.argv[1])
    runs = load(results)
    lines = load_table(runs) + footprint_table(results) + codec_table(results)
    (results / "table.md").write_text("\n".join(lines) + "\n")
    print("\n".join(lines))
    plot(runs, results)


if __name__ == "__main__":
    main()
