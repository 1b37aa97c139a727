#!/usr/bin/env bash
# Halvern on the simulated instrument, as a person runs it: halvern-sim brings it up, a second Halvern is
# refused, Ctrl-C (SIGINT) ends it through its close path with exit code 0. Also the bare program on a
# sim root, without the simulator.
set -euo pipefail
halvern=$1
halvern_sim=$2
work=$(mktemp -d)
# The SEP servers take free ports, so that this run and a running instrument coexist.
export HALVERN_SEP_PORT_55557=${HALVERN_SEP_PORT_55557:-0} HALVERN_SEP_PORT_55558=${HALVERN_SEP_PORT_55558:-0}
pids=()
. "$(dirname "$0")/../support/end_processes.sh"
cleanup() {
    end_processes "${pids[@]}"
    rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; [ -f "${log:-}" ] && sed 's/^/  log: /' "$log" >&2; exit 1; }

# Waits up to 20 s for a line of the log.
wait_for_line() {
    local text=$1
    for _ in $(seq 1 200); do
        [ -f "$log" ] && grep -aqF -- "$text" "$log" && return 0
        sleep 0.1
    done
    fail "no \"$text\" in the log"
}

# Messages of the log without time stamps. Checks read their input to the end (grep without -q): under
# pipefail an early exit would end the writer with SIGPIPE and fail the check.
messages() { cut -f2- "$log" | tr -d '\000'; }

# Ctrl-C for a program, then its exit code, which must be 0.
interrupt_ends_cleanly() {
    local pid=$1 what=$2 code
    kill -INT "$pid"
    set +e
    wait "$pid"
    code=$?
    set -e
    [ "$code" -eq 0 ] || fail "$what ended with $code after Ctrl-C"
}

in_order() {
    local from=1 n
    for text in "$@"; do
        n=$(messages | tail -n +"$from" | grep -anxF -- "$text" | head -1 | cut -d: -f1) || true
        [ -n "$n" ] || fail "\"$text\" missing or out of order"
        from=$((from + n))
    done
}

# --- through the simulator ---
root=$work/instrument
log=$root/D/logs/Halvern.log
# Without --halvern: the simulator finds the program beside itself, as the README's run command relies on.
"$halvern_sim" --root "$root" > "$work/sim.out" 2>&1 &
sim_pid=$!
pids+=("$sim_pid")
wait_for_line "InitInstance done!"
grep -qF "Halvern log $log" "$work/sim.out" || fail "halvern-sim did not report the log file"
# The simulator's EFI service is up before Halvern starts, so the hardware check reads it.
in_order "[HW Status] *****************************" \
    "Got EFI service HW status: EFIRunningMode:0,FPGAReady:1,HPSReady:1,TELOReady:1," \
    "[INFO]: isHwErrorDetected: Successfully parsed EFI's HW status" "[HW Status] FPGA Ready	: OK"
in_order "[HW Status] Quillo Ready	: OK" "[INFO] Result Hardware Components Check SUCCESSFULLY"
ctl() { "$halvern_sim" ctl --root "$root" "$@"; }
# The start set the instrument's own clock from its RTC and, without a user's choice, the default zone.
in_order "W32Time Service started." "The time zone (standard) name was set successfully."
ctl clock get | grep -F " zone W. Europe Standard Time" > /dev/null || fail "the instrument's zone is not the default one"
[ "$(ctl efi button press)" = "OK pressed (1 reader)" ] || fail "the power button did not reach Halvern's reader"
wait_for_line "++WM_EFI_NOTIFICATION : Notification 1 received"
ctl efi nonsense > /dev/null && fail "an unknown control command was accepted"
# The start waited for the sensor board's boot on its console, marked its kernel log and found its link.
messages | grep -F "Waiting for MORA boot (UART), login: " > /dev/null || fail "Halvern did not log in on the board's console"
in_order "MORA boot OK (UART)" "Verify MORA ethernet connection before starting Zentor Application!" "MORA Ethernet link OK" \
    "Sucessufully launched Zentor Application" "Halvern [wWinMain]: MORA Ethernet link OK"
ctl board kmsg | grep -F "VANT: Halvern started" > /dev/null || fail "no start marker in the sensor board's kernel log"
halvernctl=$(dirname "$halvern")/halvernctl
sep() { "$halvernctl" --port "$(cat "$root/sim/sep/55557")" "$@"; }
# Unplugged, the link comes back when the verify/fix check restarts the adapter through the device tool.
ctl board eth unplug > /dev/null || fail "cannot unplug the sensor board's Ethernet"
sep test-cmd 1 --wait 10000 > /dev/null || fail "the verify/fix test command did not bring the link back"
in_order "Test command: verify/fix MORA eth, timeout: 10000" "MORA Eth verification: connection failed, attempting to fix" \
    "Executing command to restart VANT Ethernet" "MORA Ethernet connection successful."
ctl board kmsg | grep -F "VANT: Restarting VANT Ethernet adapter" > /dev/null || fail "the repair was not marked on the board"
# Commands on the board's shell: a failing one is an error reply, a working one returns its output.
set +e
sep exec --mora false > /dev/null 2>&1
code=$?
set -e
[ "$code" -eq 5 ] || fail "a failing command on the sensor board gave exit code $code"
sep exec --mora -- uname -o | grep -F "GNU/Linux" > /dev/null || fail "the sensor board's shell did not answer"
sep calibration-status | grep -F "touch calibration: new settings stored" > /dev/null || fail "no touch calibration result"
ctl mutex hold touch > /dev/null || fail "cannot hold the touch calibration's mutex"
sep calibration-status | grep -F "touch calibration: running now" > /dev/null || fail "the running calibration was not seen"
# Start-up opened the access point on the channel its selection chose and wrote to the driver; a selection
# asked for by a client is announced to the clients as the channel-selected event.
messages | grep -E "^Got results of channel selection: [0-9]+, HT" > /dev/null || fail "no channel was selected at start-up"
in_order "Start WiFi access point"
ctl wlan ap show | grep -F "state active" > /dev/null || fail "the access point is not up after start-up"
sep wlan get | grep -E "access point: +on" > /dev/null || fail "halvernctl does not see the access point on"
events=$work/events.txt
"$halvernctl" --port "$(cat "$root/sim/sep/55557")" events --count 1 > "$events" 2>&1 &
pids+=("$!")
# The listener may still be connecting when the first selection ends: ask again until it heard one.
sep wlan select --band 5 > /dev/null || fail "the channel selection was not started"
for _ in $(seq 1 20); do
    sleep 0.5
    grep -F "wlan-channel-selected" "$events" > /dev/null && break
    sep wlan select --band 5 > /dev/null 2>&1 || true  # refused while the previous one still runs
done
grep -F "wlan-channel-selected" "$events" > /dev/null || fail "the channel selection was not announced: $(cat "$events")"
# The test WLAN driver from the USB drive replaces the regular one; the country set is the one read back.
sep wlan-driver --test "F:\\wlan_test_drv" > /dev/null || fail "the test WLAN driver was not installed"
grep -qxF qcwlantest.sys "$root/sim/drivers/loaded" || fail "the test WLAN driver is not loaded"
in_order "Found matching driver: oem3.inf" "Device driver found after 0 retries"
sep country set DE > /dev/null || fail "the WLAN country was not set"
sep country get | grep -F DE > /dev/null || fail "the WLAN country set is not the one read back"
# Stopping the service breaks Halvern's notification pipe; Halvern goes on and still closes cleanly.
ctl efi service stop > /dev/null || fail "cannot stop the EFI service"
wait_for_line "[EFIServiceIPC::ReadResponseFromEFI] [WARN]: Notification pipe has been broken"
ctl efi service start > /dev/null || fail "cannot start the EFI service again"

set +e
HALVERN_ROOT=$root timeout 10 "$halvern"
second=$?
set -e
[ "$second" -eq 0 ] || fail "second instance exited with $second"
grep -qxF "[ERROR]: Another Halvern instance detected, quitting." <(messages) || fail "second instance not refused"

interrupt_ends_cleanly "$sim_pid" halvern-sim
banner="======= Halvern Application started, version: 4.0.0.0 ======="
rule=$(printf '%*s' "${#banner}" '' | tr ' ' '=')
in_order "$rule" "$banner" "$rule" \
    "InitInstance done!" "++ WM_CLOSE received" "Set AppShutdownRequestState::WAIT_SHUTDOWN_CALL state" \
    "WM_CLOSE - SHUTDOWN: 15" "[2] DestroyLocalComponents" "[SysManagerC::DestroyInstance]" "++ WM_DESTROY received" \
    "Halvern [wWinMain]: Main Message loop terminated, exiting Halvern application" "[1] DestroyLocalComponents"
grep -qx "signalled" "$root/kernel/Global/HalvernShutdownResponse" || fail "shutdown response event not signalled"

# --- holding the power button shuts the instrument down through the close path ---
root=$work/button
log=$root/D/logs/Halvern.log
"$halvern_sim" --root "$root" > "$work/button.out" 2>&1 &
sim_pid=$!
pids+=("$sim_pid")
# The window handles the button once the start-up has launched the applications.
wait_for_line "Sucessufully launched Zentor Application"
"$halvern_sim" ctl --root "$root" efi button hold 600 > /dev/null || fail "cannot hold the power button"
set +e
wait "$sim_pid"
code=$?
set -e
[ "$code" -eq 0 ] || fail "halvern-sim ended with $code after the power button"
in_order "++WM_EFI_NOTIFICATION : Notification 1 received" "++WM_EFI_NOTIFICATION : Notification 2 received" \
    ">>> Initiate System Shutdown >>>" "Configured power cycle request: 2, force: 1, timeout: 0" \
    "++ WM_CLOSE received" "Request Zentor Application Exit" "Initiate Shutdown sequence" \
    "[SysManagerC::PowerCycleScannerDevice]: System Shutdown initiated successfully " \
    "[2] DestroyLocalComponents" "++ WM_DESTROY received"
# The simulated instrument is off: the sensor board halted over ssh, Windows shut down without reboot.
grep -qx "force=1 timeout=0 reboot=0 reason=0x80000000" "$root/sim/power/shutdown" || fail "no shutdown recorded"
grep -qx "root@127.0.0.1 init 0" "$root/sim/sensorboard/halted" || fail "the sensor board was not halted"
grep -qx "frontend exited 0" "$root/sim/apps/log" || fail "the frontend did not end by itself"
grep -qxF "halvern-sim: power LED steps: OFF:OFF:OFF ON:OFF:OFF OFF:OFF:OFF BLINK:OFF:OFF" "$work/button.out" ||
    fail "the power LED did not go red, then blinking red"
grep -qx "LED:BLINK:OFF:OFF" "$root/sim/efi/commands" || fail "the controller's record lacks the blinking LED"
grep -qx "BASIC:REBOOT" "$root/sim/efi/commands" && fail "a shutdown told the controller to restart"

# --- a remote reboot request: the same power-off, with the controller asked to restart (the restart
# itself is halvern_sim_cli's) ---
root=$work/reboot
log=$root/D/logs/Halvern.log
"$halvern_sim" --root "$root" --no-reboot > "$work/reboot.out" 2>&1 &
sim_pid=$!
pids+=("$sim_pid")
wait_for_line "Sucessufully launched Zentor Application"
halvernctl=$(dirname "$halvern")/halvernctl
"$halvernctl" --port "$(cat "$root/sim/sep/55557")" power-off --reboot --force > /dev/null ||
    fail "the reboot request was not answered"
set +e
wait "$sim_pid"
code=$?
set -e
[ "$code" -eq 0 ] || fail "halvern-sim ended with $code after the reboot request"
in_order "Received power cycle request in standard mode." "Configured power cycle request: 1, force: 1, timeout: 0" \
    "++ WM_CLOSE received" "Request Zentor Application Exit" "Initiate Reboot sequence" "Set power LED to blinking RED" \
    "[SysManagerC::PowerCycleScannerDevice]: System Shutdown initiated successfully "
grep -qx "force=1 timeout=0 reboot=0 reason=0x80000000" "$root/sim/power/shutdown" || fail "Windows was not shut down"
grep -qxF "halvern-sim: power LED steps: OFF:OFF:OFF BLINK:OFF:OFF" "$work/reboot.out" ||
    fail "the power LED did not blink red for the reboot"
[ "$(grep -x -e "LED:BLINK:OFF:OFF" -e "BASIC:REBOOT" "$root/sim/efi/commands" | tail -2 | tr '\n' ' ')" = \
    "LED:BLINK:OFF:OFF BASIC:REBOOT " ] || fail "the controller was not told to restart after the blinking LED"

# --- a standard output whose reader has gone ("| head"): neither program dies of it ---
root=$work/head
log=$root/D/logs/Halvern.log
"$halvern_sim" --root "$root" -- -noupdate > >(head -1 > "$work/head.out") 2>&1 &
sim_pid=$!
pids+=("$sim_pid")
wait_for_line "Sucessufully launched Zentor Application"
# Halvern's own output during its start (the process runner's lines) came after the reader had gone.
kill -0 "$sim_pid" 2> /dev/null || fail "halvern-sim died of its closed output"
interrupt_ends_cleanly "$sim_pid" "halvern-sim with a closed output"
in_order "InitInstance done!" "++ WM_CLOSE received" "[2] DestroyLocalComponents" "++ WM_DESTROY received" \
    "[1] DestroyLocalComponents"
grep -qx "signalled" "$root/kernel/Global/HalvernShutdownResponse" || fail "shutdown response event not signalled"

# --- the bare program on a sim root, ended by SIGINT, with -noupdate ---
root=$work/bare
log=$root/D/logs/Halvern.log
mkdir -p "$root/D/logs"
HALVERN_ROOT=$root "$halvern" -noupdate &
pid=$!
pids+=("$pid")
wait_for_line "InitInstance done!"
interrupt_ends_cleanly "$pid" halvern
in_order "starting halvern with option -noupdate" "Halvern [HwRelatedInit] [ERROR]: Failed to initialize communication with EFI" \
    "[ERROR]: isHwErrorDetected: Failed to execute HW status EFI command" "InitInstance done!" "++ WM_CLOSE received" \
    "[1] DestroyLocalComponents"

# --- the instrument without Halvern, which a test then runs itself ---
root=$work/only
log=$root/D/logs/Halvern.log
"$halvern_sim" --root "$root" --no-halvern > "$work/only.out" 2>&1 &
only_pid=$!
pids+=("$only_pid")
for _ in $(seq 1 100); do [ -S "$root/sim/control" ] && break; sleep 0.1; done
"$halvern_sim" ctl --root "$root" efi battery L rsoc 7 > /dev/null || fail "the instrument alone takes no commands"
"$halvern_sim" ctl --root "$root" rtc vlf > /dev/null || fail "the clock cannot lose its supply"
# A customer's instrument: its failed hardware check is logged and the start goes on.
"$halvern_sim" ctl --root "$root" uwf on > /dev/null || fail "the write filter cannot be switched on"
HALVERN_ROOT=$root "$halvern" &
pid=$!
pids+=("$pid")
wait_for_line "InitInstance done!"
grep -qF "Got EFI service HW status: " "$log" || fail "Halvern did not reach the instrument's EFI service"
grep -qxF "enableSpbDevices done!" <(messages) || fail "Halvern did not enable the I2C devices"
grep -qF "enableSpbDevices Failed" "$log" && fail "Halvern did not reach the instrument's I2C devices"
grep -qF "RTC Configured	: NOT OK" "$log" || fail "a clock without its data counted as configured"
kill -INT "$pid"
wait "$pid" || fail "halvern on the instrument alone did not end cleanly"
kill -INT "$only_pid"
wait "$only_pid" || fail "halvern-sim --no-halvern did not end cleanly on Ctrl-C"

# --- without a sim root it says what is missing ---
set +e
env -u HALVERN_ROOT "$halvern" 2> "$work/err.txt"
code=$?
set -e
[ "$code" -eq 2 ] && grep -q "HALVERN_ROOT is not set" "$work/err.txt" || fail "missing sim root not reported"
echo "end-to-end: all checks passed"
