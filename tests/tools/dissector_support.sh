# Sourced by the dissector's tests, after `tables` (sep-dissector-tables) and `dissector` (sep.lua) are
# set: skips without the capture tools, checks the record tables, and gives a work folder, the list
# `pids` of processes to end on exit, fail, and a loopback capture of one port.
for tool in tshark dumpcap python3; do
    command -v "$tool" > /dev/null || { echo "SKIP: $tool is not installed"; exit 77; }
done
"$tables" --check "$dissector"

work=$(mktemp -d)
pids=()
. "$(dirname "${BASH_SOURCE[0]}")/../support/end_processes.sh"
cleanup() {
    end_processes "${pids[@]}"
    rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

# start_capture PORT FILE: captures the port's traffic on loopback into FILE, from when it returns.
start_capture() {
    dumpcap -q -i lo -f "tcp port $1" -w "$2" > "$work/dumpcap.out" 2>&1 &
    dumpcap_pid=$!
    pids+=("$dumpcap_pid")
    for _ in $(seq 1 100); do
        grep -q "Capturing on" "$work/dumpcap.out" 2>/dev/null && break
        sleep 0.1
    done
    sleep 0.5
}
stop_capture() {
    kill -TERM "$dumpcap_pid"
    wait "$dumpcap_pid" 2>/dev/null || true
}
