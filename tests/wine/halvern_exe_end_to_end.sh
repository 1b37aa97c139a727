#!/usr/bin/env bash
# The shipped Halvern.exe on the simulated instrument under Wine (halvern-sim --windows), end to end as a
# person runs it: start-up through the sensor board's UART boot, the SEP servers, the hardware check, the
# applications and the Ethernet check; SEP from both ports against the same instrument that
# `halvern-sim ctl` acts on; events on two clients; a USB device plugged and pulled; a short and a long press
# of the power button; a second start on the same sim root (and its prefix), ended by Ctrl-C.
#
#   halvern_exe_end_to_end.sh HALVERN_SIM HALVERNCTL WINDOWS_BUILD ROOT
#
# Where the Wine run differs from the host build's, the check names the row of docs/facilities.md that
# explains it. Every wait is bounded; only the processes started here are ended.
set -euo pipefail
halvern_sim=$1
halvernctl=$2
windows_build=$3
root=$4
[ -x "$halvern_sim" ] && [ -x "$halvernctl" ] || {
    echo "SKIP: the host build (halvern-sim, halvernctl) is not there; build the host preset first"
    exit 77
}
work=$(mktemp -d)
export HALVERN_SEP_PORT_55557=0 HALVERN_SEP_PORT_55558=0
log=$root/D/logs/Halvern.log
pids=()
. "$(dirname "$0")/../support/end_processes.sh"
cleanup() {
    end_processes "${pids[@]}"
    rm -rf "$work"
}
trap cleanup EXIT
fail() {
    echo "FAIL: $*" >&2
    [ -f "$log" ] && sed 's/^/  log: /' "$log" | tail -n 150 >&2
    for out in "$work"/*.out; do [ -f "$out" ] && sed "s|^|  $(basename "$out"): |" "$out" >&2; done
    exit 1
}

# Waits up to $2 seconds (default 60) for a line of the log holding $1.
wait_for_line() {
    local text=$1 steps=$((${2:-60} * 10))
    for _ in $(seq 1 "$steps"); do
        [ -f "$log" ] && grep -aqF -- "$text" "$log" && return 0
        sleep 0.1
    done
    fail "no \"$text\" in the log"
}
messages() { cut -f2- "$log" | tr -d '\000'; }
# Whether a line of the log carries `text`. The whole log is read: a grep -q that stops at the first match
# would end the writer with SIGPIPE, which pipefail turns into "not found" once the log is long.
logged() { messages | grep -aF -- "$1" > /dev/null; }
# Each text begins a line of the log, in this order.
in_order() {
    local from=1 n
    for text in "$@"; do
        n=$(messages | tail -n +"$from" | grep -anF -- "$text" | head -1 | cut -d: -f1) || true
        [ -n "$n" ] || fail "\"$text\" missing or out of order"
        from=$((from + n))
    done
}
ctl() { "$halvern_sim" ctl --root "$root" "$@"; }
sep() { "$halvernctl" --port "$(cat "$root/sim/sep/$1")" "${@:2}"; }
ended() { ! kill -0 "$1" 2>/dev/null; }
wait_until_ended() {
    for _ in $(seq 1 $(($2 * 10))); do
        ended "$1" && return 0
        sleep 0.1
    done
    return 1
}

# A start on the sim root: a fresh log, no record of an earlier power-off and an empty USB bus.
start_instrument() {
    rm -f "$log" "$root/sim/power/shutdown" "$root/sim/sensorboard/halted" "$root/sim/apps/log" "$root/sim/usb/devices"
    started_at=$(date +%s)
    "$halvern_sim" --windows --windows-build "$windows_build" --root "$root" > "$work/$1.out" 2>&1 &
    sim_pid=$!
    pids+=("$sim_pid")
}

# --- the first start (it makes the sim root's prefix when there is none) ---
start_instrument first
wait_for_line "InitInstance done!" 600
echo "first start: InitInstance done! after $(($(date +%s) - started_at)) s"
wait_for_line "Halvern [wWinMain]: MORA Ethernet link OK" 60
for port in 55557 55558; do
    for _ in $(seq 1 100); do [ -s "$root/sim/sep/$port" ] && break; sleep 0.1; done
    [ -s "$root/sim/sep/$port" ] || fail "the port of $port was not recorded in sim/sep"
done
grep -qF "Halvern log $log" "$work/first.out" || fail "halvern-sim did not report the log file"
# Through the board's console on COM3, the EFI service's pipes and the SEP servers to the applications.
# The hardware check fails under Wine (facility "PCI components"); a customer's instrument goes on.
in_order "Waiting for MORA boot (UART), login: " "MORA boot OK (UART)" "Started SEP server on port " \
    "Started SEP server on port " "[HW Status] *****************************" \
    "Got EFI service HW status: EFIRunningMode:0,FPGAReady:1,HPSReady:1,TELOReady:1," \
    "[HW Status] UART MORA Ready	: OK" "[ERROR] Result Hardware Components Check FAILED!" "InitInstance done!" \
    "Sucessufully launched Zentor Application" "Halvern [wWinMain]: MORA Ethernet link OK"
ctl board kmsg | grep -F "VANT: Halvern started" > /dev/null || fail "no start marker in the sensor board's kernel log"
# The applications, started by Halvern.exe as Windows programs, ran as the instrument's stand-ins in order.
# Their records come over the relay a moment after Halvern.exe logged the launch.
for _ in $(seq 1 100); do grep -qx "frontend started" "$root/sim/apps/log" 2>/dev/null && break; sleep 0.1; done
grep -x "[a-z]* started" "$root/sim/apps/log" | grep -vx "route started" > "$work/apps"
for app in console diagnostics backend frontend; do
    grep -qx "$app started" "$work/apps" || fail "the $app was not started: $(cat "$work/apps")"
done
# The console and the diagnostics service start together (their records may come in either order), the
# backend a moment later, the frontend last.
line_of() { grep -nx "$1 started" "$work/apps" | head -1 | cut -d: -f1; }
[ "$(line_of console)" -lt "$(line_of backend)" ] && [ "$(line_of diagnostics)" -lt "$(line_of backend)" ] &&
    [ "$(line_of backend)" -lt "$(line_of frontend)" ] ||
    fail "the applications were not started in order: $(cat "$work/apps")"

# SEP from both ports, on the controller state that halvern-sim ctl changes.
ctl efi battery L rsoc 42 > /dev/null || fail "cannot set the battery"
sep 55557 battery | grep -qx "battery L charge: 42 %" || fail "port 55557 does not see the instrument's battery"
ctl efi power battery > /dev/null || fail "cannot switch to battery"
sep 55558 power-source | grep -qx "power-source register: 2" || fail "port 55558 does not see the battery supply"
sep 55557 efi "BASIC:FWVERSION" | grep -q '^reply: "[0-9]' || fail "no EFI pass-through"
sep 55558 uart MORA 'uname -o\r\n' --wait 1000 | grep -qF "GNU/Linux" || fail "no UART transaction with the sensor board"
# A program on this computer: the route tool's stand-in prints the instrument's route table.
sep 55557 exec -- 'C:\Windows\System32\route.exe' print | grep -qF "127.0.0.0 255.0.0.0" ||
    fail "no process run on the computer module"
sep 55558 exec --mora -- uname -o | grep -qF "GNU/Linux" || fail "no process run on the sensor board"
sep 55557 time get | grep -q "^time zone: " || fail "no time information"
# Wine answers with the name of the machine it runs on (facility "computer name").
name=$(sep 55558 name get | sed -n 's/^name: "\(.*\)"$/\1/p')
[ -n "$name" ] || fail "no instrument name"

# Events on two clients: a short press gives both the two button events, and no shutdown.
"$halvernctl" --port "$(cat "$root/sim/sep/55557")" events --count 2 > "$work/events1.out" 2>&1 &
events1=$!
"$halvernctl" --port "$(cat "$root/sim/sep/55558")" events --count 2 > "$work/events2.out" 2>&1 &
events2=$!
pids+=("$events1" "$events2")
sleep 2
[ "$(ctl efi button hold 200)" = "OK held 200 ms (1 reader)" ] || fail "the button did not reach Halvern.exe's reader"
wait_until_ended "$events1" 20 && wait_until_ended "$events2" 20 || fail "a client did not get two events"
for out in "$work/events1.out" "$work/events2.out"; do
    [ "$(grep -c "^event 1000 button" "$out")" -eq 2 ] && grep -qF "pressed (1)" "$out" &&
        grep -qF "released (2)" "$out" || fail "not the two button events in $(basename "$out"): $(cat "$out")"
done
wait_for_line "++WM_EFI_NOTIFICATION : Notification 2 received" 10
sleep 1
ended "$sim_pid" && fail "a short press ended Halvern.exe"
logged ">>> Initiate System Shutdown >>>" && fail "a short press started a shutdown"

# A USB device comes and goes: halvern-sim hands the bus change to post_device_change.exe, which sends
# Halvern.exe's window WM_DEVICECHANGE as Windows does, and a client hears event 1004 with 1 ("attached"), then
# 0 ("removed"). Wine lists no USB devices (facility "USB devices and device changes"): the list Halvern.exe
# reads again at each change stays empty here, where the host build's follows the bus.
"$halvernctl" --port "$(cat "$root/sim/sep/55557")" events > "$work/usb-events.out" 2>&1 &
usb_events=$!
pids+=("$usb_events")
sleep 2
usb_events_reach() { [ "$(grep -ac '^event 1004 usb' "$work/usb-events.out")" -ge "$1" ]; }
wait_for_usb_events() {
    for _ in $(seq 1 600); do
        usb_events_reach "$1" && return 0
        sleep 0.1
    done
    fail "the client did not hear USB event $1"
}
refreshes_before=$(grep -acF "[SysManagerC::RefreshUsbDevices]" "$log" || true)
ctl usb device add 046D C52B 3 > /dev/null || fail "cannot add a device to the bus"
wait_for_usb_events 1
ctl usb device remove 3 > /dev/null || fail "cannot remove the device"
wait_for_usb_events 2
[ "$(grep -aA1 '^event 1004 usb' "$work/usb-events.out" | grep -aoE 'USB device: [a-z]+' | head -2 | tr '\n' ';')" = \
    "USB device: attached;USB device: removed;" ] || fail "the USB events are not attached then removed"
[ "$(grep -acF "[SysManagerC::RefreshUsbDevices]" "$log")" -ge $((refreshes_before + 2)) ] ||
    fail "Halvern.exe did not read its USB list at each change"
sep 55558 usb count | grep -qxF "USB devices: 0" || fail "Wine listed USB devices: $(sep 55558 usb count)"
end_processes "$usb_events"

# A long press: the shutdown notification, the power sequence, the board halted, Windows shut down.
"$halvernctl" --port "$(cat "$root/sim/sep/55557")" events --count 3 > "$work/shutdown-event.out" 2>&1 &
pids+=("$!")
sleep 1
ctl efi button hold 600 > /dev/null || fail "cannot hold the power button"
wait_until_ended "$sim_pid" 120 || fail "the long press did not end Halvern.exe within 120 s"
set +e
wait "$sim_pid"
code=$?
set -e
[ "$code" -eq 0 ] || fail "halvern-sim --windows ended with $code after the long press"
grep -q "^event 1003 shutdown" "$work/shutdown-event.out" || fail "no shutdown event: $(cat "$work/shutdown-event.out")"
in_order "++WM_EFI_NOTIFICATION : Notification 1 received" "++WM_EFI_NOTIFICATION : Notification 2 received" \
    ">>> Initiate System Shutdown >>>" "Configured power cycle request: 2, force: 1, timeout: 0" \
    "++ WM_CLOSE received" "Request Zentor Application Exit" "Initiate Shutdown sequence" \
    "[2] DestroyLocalComponents" "++ WM_DESTROY received"
# The diagnostics service's answer came back through its pipe before the service ended.
logged "[SysManagerC::ShutdownDiagnosticsService] got 3 bytes from" ||
    fail "the diagnostics service's answer to its shutdown request was lost"
grep -qx "root@127.0.0.1 init 0" "$root/sim/sensorboard/halted" || fail "the sensor board was not halted over ssh"
# Windows' own shutdown never reaches the machine under Wine (facility "shutting Windows down"): the guard
# refuses it as access denied; the instrument saw everything before it.
in_order "Initiate Shutdown sequence" "[SysManagerC::PowerCycleScannerDevice] [ERROR]: Failed to initiate Power cycle on VANT, ERROR(5)"
grep -qF "halvern-sim: power LED steps: " "$work/first.out" || fail "halvern-sim did not report the power LED"

# --- a second start on the same sim root reuses its prefix; Ctrl-C closes Halvern.exe ---
start_instrument second
wait_for_line "InitInstance done!" 120
echo "second start: InitInstance done! after $(($(date +%s) - started_at)) s"
wait_for_line "Sucessufully launched Zentor Application" 60
# A stopped EFI service breaks Halvern.exe's notification pipe; while it is stopped its pipes cannot be
# opened (as on Windows) and Halvern.exe goes on.
ctl efi service stop > /dev/null || fail "cannot stop the EFI service"
wait_for_line "[EFIServiceIPC::ReadResponseFromEFI] [WARN]: Notification pipe has been broken" 20
sleep 2
broken=$(messages | grep -c "Notification pipe has been broken" || true)
# Halvern.exe looks again every 100 ms; a pipe that still opened and broke at once would spin much faster.
[ "$broken" -le 40 ] || fail "the stopped service's pipe broke $broken times in 2 s"
ctl efi service start > /dev/null || fail "cannot start the EFI service again"
kill -INT "$sim_pid"
wait_until_ended "$sim_pid" 90 || fail "Ctrl-C did not end Halvern.exe within 90 s"
set +e
wait "$sim_pid"
code=$?
set -e
[ "$code" -eq 0 ] || fail "halvern-sim --windows ended with $code after Ctrl-C"
grep -qF "halvern-sim: asking Halvern.exe to close" "$work/second.out" || fail "Ctrl-C was not passed on"
in_order "InitInstance done!" "++ WM_CLOSE received" "WM_CLOSE - SHUTDOWN: 15" "[2] DestroyLocalComponents" \
    "++ WM_DESTROY received" "Halvern [wWinMain]: Main Message loop terminated, exiting Halvern application" \
    "[1] DestroyLocalComponents"
echo "Halvern.exe end to end: all checks passed"
