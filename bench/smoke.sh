#!/usr/bin/env bash
# The benchmark tools answer for a handful of requests: the echo floor serves both codings, the load
# generator counts every reply, and the codec benchmarks run. No timing is judged here.
set -euo pipefail
echo_server=$1 load=$2 codec=$3
work=$(mktemp -d)
echo_pid=
cleanup() {
    if [ -n "$echo_pid" ]; then kill "$echo_pid" 2>/dev/null || true; wait "$echo_pid" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT

"$echo_server" --port 0 --port-file "$work/port" > "$work/echo.out" &
echo_pid=$!
for _ in $(seq 100); do [ -s "$work/port" ] && break; sleep 0.05; done
port=$(cat "$work/port")

for coding in "" --ascii; do
    out=$("$load" --port "$port" -c 3 -P 4 -n 60 $coding)
    echo "$out"
    grep -q '"requests":60' <<< "$out" || { echo "expected 60 answered requests ${coding:-binary}"; exit 1; }
done

# A port nobody serves is a failure, not an empty success.
kill "$echo_pid"; wait "$echo_pid" 2>/dev/null || true; echo_pid=
if "$load" --port "$port" -n 5 > "$work/refused.out" 2>&1; then
    echo "the load generator reported success without a server"; cat "$work/refused.out"; exit 1
fi

"$codec" --benchmark_min_time=0.001 > "$work/codec.out"
for name in encode_frame/small_command/binary deframe_decode/wlan_cfg_reply/ascii; do
    grep -q "$name" "$work/codec.out" || { echo "codec benchmark $name did not run"; cat "$work/codec.out"; exit 1; }
done
echo "bench tools answer"
