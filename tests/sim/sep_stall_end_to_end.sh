#!/usr/bin/env bash
# A command that never ends holds only its own connection: another client of the same port is answered
# meanwhile, and Ctrl-C or the power button still end Halvern through its close path, with exit code 0,
# the program cancelled and the shutdown response signalled.
set -euo pipefail
halvern=$1
halvern_sim=$2
halvernctl=$(dirname "$halvern")/halvernctl
export HALVERN_SEP_PORT_55557=${HALVERN_SEP_PORT_55557:-0} HALVERN_SEP_PORT_55558=${HALVERN_SEP_PORT_55558:-0}
. "$(dirname "$0")/../support/end_processes.sh"
begin_sim_script
fail() {
    echo "FAIL: $*" >&2
    [ -f "${log:-}" ] && tail -n 40 "$log" | sed 's/^/  log: /' >&2
    exit 1
}
# Up to 30 s for a line of the log.
wait_for_line() {
    local attempt
    for attempt in $(seq 300); do
        if [ -f "$log" ] && grep -aqF -- "$1" "$log"; then return 0; fi
        sleep 0.1
    done
    fail "no \"$1\" in the log"
}

# One run: start the instrument, stall port 55557 with a program that never ends (wait 0: the longest
# wait), ask GET_API_LVL on a second connection, then end Halvern by `how` and time its end.
run() {
    local how=$1
    root=$work/$how
    log=$root/D/logs/Halvern.log
    "$halvern_sim" --root "$root" > "$work/$how.out" 2>&1 &
    sim_pid=$!
    pids+=("$sim_pid")
    wait_for_line "Sucessufully launched Zentor Application"
    mkdir -p "$root/C/Tools" "$work/$how"
    printf '#!/bin/sh\necho $$ > "%s/forever.started"\nexec sleep 1000\n' "$work/$how" > "$root/C/Tools/forever.exe"
    chmod 755 "$root/C/Tools/forever.exe"
    port=$(cat "$root/sim/sep/55557")
    "$halvernctl" --port "$port" --timeout 120000 exec 'C:\Tools\forever.exe' --wait 0 > "$work/$how.exec" 2>&1 &
    pids+=("$!")
    for _ in $(seq 1 100); do [ -f "$work/$how/forever.started" ] && break; sleep 0.1; done
    [ -f "$work/$how/forever.started" ] || fail "the program never started"
    "$halvernctl" --port "$port" --timeout 5000 api-level | grep -F 51 > /dev/null ||
        fail "a second client of the stalled port was not answered"
    local started=$(date +%s%N)
    if [ "$how" = ctrl-c ]; then
        kill -INT "$sim_pid"
    else
        "$halvern_sim" ctl --root "$root" efi button hold 600 > /dev/null || fail "cannot hold the power button"
    fi
    set +e
    wait "$sim_pid"
    code=$?
    set -e
    local tookMs=$(( ($(date +%s%N) - started) / 1000000 ))
    echo "$how: Halvern ended after ${tookMs} ms with $code"
    [ "$code" -eq 0 ] || fail "halvern-sim ended with $code"
    grep -qx "signalled" "$root/kernel/Global/HalvernShutdownResponse" || fail "shutdown response event not signalled"
    grep -aqF "[SysManagerC::DestroyInstance]" "$log" || fail "the instance was not destroyed"
    grep -aqF "[ERROR]: Failed to wait for the process to terminate!" "$log" || fail "the running command was not cancelled"
    kill -0 "$(cat "$work/$how/forever.started")" 2>/dev/null && fail "the program of the cancelled command still runs"
    # Without the stall the close path takes its own time (the applications' answers); the cancelled
    # command may add no more than the servers' 5 s.
    [ "$tookMs" -lt 40000 ] || fail "the close took ${tookMs} ms"
    return 0
}

run ctrl-c
run button
grep -qx "force=1 timeout=0 reboot=0 reason=0x80000000" "$work/button/sim/power/shutdown" || fail "no shutdown recorded"
