#!/usr/bin/env bash
# Halvern on the simulated instrument under load and faults (tests/load/sep_fault_load.cpp says what is
# done and checked), then its log: no line torn, none left unfinished.
#
#   load_and_faults.sh HALVERN HALVERN_SIM SEP_FAULT_LOAD [--soak SECONDS]
#   load_and_faults.sh --windows WINDOWS_BUILD ROOT HALVERN_SIM SEP_FAULT_LOAD
#
# Without --soak the clients run 30 s (the CI run); a soak run repeats the faults for as long as asked.
# With --windows the Windows build's Halvern.exe runs under Wine (halvern-sim --windows) on the sim root
# ROOT, whose Wine prefix is kept between runs.
set -euo pipefail
windows_build=
if [ "${1:-}" = --windows ]; then
    windows_build=$2
    windows_root=$3
    shift 3
    set -- "" "$@"
    [ -x "$2" ] && [ -x "$3" ] || { echo "SKIP: the host build (halvern-sim, sep-fault-load) is not there"; exit 77; }
fi
halvern=$1
halvern_sim=$2
load=$3
seconds=30
if [ "${4:-}" = --soak ]; then
    [[ ${5:-} =~ ^[0-9]+$ ]] || { echo "usage: $0 HALVERN HALVERN_SIM SEP_FAULT_LOAD [--soak SECONDS]" >&2; exit 2; }
    seconds=$5
fi
work=$(mktemp -d)
pids=()
. "$(dirname "$0")/../support/end_processes.sh"
cleanup() {
    # Halvern first: it is the simulator's client.
    [ ${#pids[@]} -gt 1 ] && end_processes "${pids[1]}"
    [ ${#pids[@]} -gt 0 ] && end_processes "${pids[0]}"
    rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }
wait_for() {
    for _ in $(seq 600); do eval "$1" && return 0; sleep 0.1; done
    fail "timed out waiting for: $1"
}

root=${windows_root:-$work/instrument}
log=$root/D/logs/Halvern.log
# Only 127.0.0.1 may connect, so that a client bound to 127.0.0.2 knocks from outside the allowed ranges.
allow_loopback_only() {
    mkdir -p "$root/registry/HKCU/SOFTWARE/Vexar/Halvern"
    printf 'REG_MULTI_SZ\n127.0.0.1/32\n' > "$root/registry/HKCU/SOFTWARE/Vexar/Halvern/SepAllowedAddressRanges"
}
if [ -n "$windows_build" ]; then
    allow_loopback_only
    rm -f "$log" "$log.old"
    HALVERN_SEP_PORT_55557=0 HALVERN_SEP_PORT_55558=0 "$halvern_sim" --windows --windows-build "$windows_build" \
        --root "$root" > "$work/halvern.out" 2>&1 &
    pids+=($!)
    sim_pid=$!
    wait_for '[ -f "$log" ] && grep -aqF "InitInstance done!" "$log" && [ -s "$root/sim/sep/55558" ]'
    # Halvern.exe is the Wine process halvern-sim started (the figures of its resident set are Wine's).
    wait_for 'halvern_pid=$(pgrep -P "$sim_pid" -f "Halvern.exe" | head -1) && [ -n "$halvern_pid" ]'
else
    "$halvern_sim" --root "$root" --no-halvern > "$work/sim.out" 2>&1 &
    pids+=($!)
    wait_for '[ -S "$root/sim/control" ]'
    allow_loopback_only
    HALVERN_ROOT=$root HALVERN_SEP_PORT_55557=0 HALVERN_SEP_PORT_55558=0 "$halvern" > "$work/halvern.out" 2>&1 &
    pids+=($!)
    halvern_pid=${pids[1]}
    wait_for '[ -f "$log" ] && grep -aqF "InitInstance done!" "$log"'
fi
port=$(cat "$root/sim/sep/55557")
echo "started after ${SECONDS} s"

"$load" --port "$port" --root "$root" --halvern-sim "$halvern_sim" --halvern-pid "$halvern_pid" \
    --flood-port "$(cat "$root/sim/sep/55558")" --seconds "$seconds" \
    --rss-limit-kib "${HALVERN_RSS_LIMIT_KIB:-2048}" || fail "the load and fault run failed (Halvern's log: $(wc -l < "$log") lines)"
kill -0 "$halvern_pid" 2> /dev/null || fail "Halvern did not survive the run"
echo "load done after ${SECONDS} s"

# Lines are whole: each starts with its time stamp, none carries a second one, the file ends with a line end.
stamp='[0-9]{4}-[0-9]{2}-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}'$'\t'
for file in "$log" "$log.old"; do
    [ -f "$file" ] || continue
    torn=$(grep -caE ".${stamp}" "$file" || true)
    [ "$torn" = 0 ] || fail "$torn torn lines in $file: $(grep -aE ".${stamp}" "$file" | head -3)"
    [ -z "$(tail -c 1 "$file")" ] || fail "$file ends inside a line"
done
lost=$(grep -c "Could not open log file" "$work/halvern.out" || true)
echo "log: $(cat "$log" "$log.old" 2> /dev/null | wc -l) lines, no torn line; $lost messages lost while the log folder was away"
