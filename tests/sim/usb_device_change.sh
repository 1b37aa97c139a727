#!/usr/bin/env bash
# A USB device plugged into and pulled from the simulated instrument while Halvern runs: the bus change reaches
# Halvern's window as a device change, a SEP client hears event 1004 with 1 and then 0, and the USB list that
# halvernctl reads follows the bus. The stick (a volume) and a device that is no volume both count.
#
#   usb_device_change.sh HALVERN HALVERN_SIM HALVERNCTL
set -euo pipefail
halvern=$1
halvern_sim=$2
halvernctl=$3
work=$(mktemp -d)
export HALVERN_SEP_PORT_55557=0 HALVERN_SEP_PORT_55558=0
pids=()
. "$(dirname "$0")/../support/end_processes.sh"
cleanup() {
    end_processes "${pids[@]}"
    rm -rf "$work"
}
trap cleanup EXIT
root=$work/instrument
log=$root/D/logs/Halvern.log
events=$work/events.txt
fail() {
    echo "FAIL: $*" >&2
    [ -f "$events" ] && sed 's/^/  events: /' "$events" >&2
    [ -f "$log" ] && sed 's/^/  log: /' "$log" >&2
    exit 1
}

# Polls every 100 ms for at most 20 s until "$@" succeeds.
within_20s() {
    for _ in $(seq 1 200); do
        "$@" && return 0
        sleep 0.1
    done
    return 1
}
log_has() { [ -f "$log" ] && grep -aqF -- "$1" "$log"; }
# The number of lines of the events file that match the extended expression $1.
events_matching() { grep -acE -- "$1" "$events" || true; }
events_reach() { [ "$(events_matching "$1")" -ge "$2" ]; }
ctl() { "$halvern_sim" ctl --root "$root" "$@"; }
sep() { "$halvernctl" --port "$(cat "$root/sim/sep/55557")" "$@"; }

"$halvern_sim" --root "$root" --halvern "$halvern" > "$work/sim.out" 2>&1 &
pids+=("$!")
within_20s log_has "InitInstance done!" || fail "Halvern did not start"
sep usb count | grep -qxF "USB devices: 0" || fail "a fresh instrument has USB devices: $(sep usb count)"

"$halvernctl" --port "$(cat "$root/sim/sep/55557")" events > "$events" 2>&1 &
pids+=("$!")
# The client is listening once it heard a button press.
ctl efi button press > /dev/null
within_20s events_reach '^event 1000 button' 1 || fail "the event client did not connect"

ctl usb device add 046D C52B 3 > /dev/null || fail "cannot add a device to the bus"
within_20s events_reach '^event 1004 usb' 1 || fail "no USB event after a device came"
sep usb count | grep -qxF "USB devices: 1" || fail "the list does not hold the device: $(sep usb count)"
sep usb at 0 > "$work/at0" || fail "no device at index 0 after it came"
grep -qxF "vendor id: 046D" "$work/at0" && grep -qxF "product id: C52B" "$work/at0" && grep -qxF "port: 3" "$work/at0" ||
    fail "the device read back is not the one added: $(cat "$work/at0")"
ctl usb device remove 3 > /dev/null || fail "cannot remove the device"
within_20s events_reach '^event 1004 usb' 2 || fail "no USB event after the device went"
sep usb count | grep -qxF "USB devices: 0" || fail "the list still holds the device: $(sep usb count)"
sep usb at 0 > /dev/null 2>&1 && fail "a device is read back at index 0 of an empty list"
# Event 1004 with 1 (halvernctl says "attached"), then with 0 ("removed").
[ "$(grep -aA1 '^event 1004 usb' "$events" | grep -aoE 'USB device: [a-z]+' | head -2 | tr '\n' ';')" = \
    "USB device: attached;USB device: removed;" ] || fail "the USB events are not attached then removed"

# The stick is a USB device as well: Halvern hears it plugged and pulled.
ctl usb plug DATA > /dev/null || fail "cannot plug the stick"
within_20s events_reach '^event 1004 usb' 3 || fail "no USB event after the stick came"
ctl usb unplug > /dev/null || fail "cannot pull the stick"
within_20s events_reach '^event 1004 usb' 4 || fail "no USB event after the stick went"
[ "$(grep -acF '[SysManagerC::RefreshUsbDevices]: ' "$log")" -ge 5 ] || fail "the list was not read at every change"
echo PASS
