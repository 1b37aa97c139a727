#!/bin/bash
# Halvern.exe under Wine hears a USB device come and go: post_device_change.exe sends its window the device
# change Windows sends to a window registered for the USB device interface, and Halvern reads its USB list
# again each time. WM_CLOSE then ends it with exit code 0.
#
# The prefix is a customer's instrument for this test (halvern_exe_support.sh) and gets its own state back
# afterwards. Under Wine the customer mode's changes to the machine are refused (docs/wine-safety.md).
#
#   halvern_exe_device_change_test.sh WINE_RUN HALVERN_EXE POST_DEVICE_CHANGE_EXE POST_CLOSE_EXE BUILD_DIR
#
# Every wait is bounded; on the way out only the process started here is stopped.
set -u

wine_run=$1
halvern=$2
post_device_change=$3
post_close=$4
build=$5

export HALVERN_BUILD_DIR=$build
log=$build/drive_d/logs/Halvern.log
cd "$build" || exit 1

halvern_pid=
. "$(dirname "$0")/halvern_exe_support.sh"

leave()
{
    stop_halvern
    restore_filter_state
}
trap leave EXIT

refreshes()
{
    grep -cF "[SysManagerC::RefreshUsbDevices]" "$log" 2>/dev/null
}

refreshes_reach()
{
    [ "$(refreshes)" -ge "$1" ]
}

started_or_ended()
{
    log_has "InitInstance done!" || ended
}

"$wine_run" --setup || fail "no Wine prefix"
rm -f -- "$log"*
customer_instrument || fail "cannot make the prefix a customer's instrument"

HALVERN_WINE_TIMEOUT=150 "$wine_run" "$halvern" </dev/null &
halvern_pid=$!
wait_until 60 started_or_ended
log_has "InitInstance done!" || fail "Halvern.exe did not start"
log_has "[RegisterUsbDeviceNotification] [ERROR]" && fail "the window was not registered for USB devices"
# The list as it was at the start.
wait_until 30 refreshes_reach 1 || fail "Halvern.exe did not read its USB list at the start"
before=$(refreshes)

sent=false
for _ in 1 2 3 4 5; do
    if HALVERN_WINE_TIMEOUT=30 "$wine_run" "$post_device_change" arrival; then
        sent=true
        break
    fi
    sleep 1
done
$sent || fail "no Halvern window took the device arrival"
wait_until 30 refreshes_reach $((before + 1)) || fail "the arrival did not make Halvern.exe read its USB list"
HALVERN_WINE_TIMEOUT=30 "$wine_run" "$post_device_change" removal || fail "the window did not take the removal"
wait_until 30 refreshes_reach $((before + 2)) || fail "the removal did not make Halvern.exe read its USB list"
echo "Halvern.exe read its USB list at the arrival and at the removal"

post_wm_close || fail "no Halvern window to post WM_CLOSE to"
wait_until 60 ended || fail "Halvern.exe did not end within 60 s of WM_CLOSE"
wait "$halvern_pid"
status=$?
halvern_pid=
[ "$status" -eq 0 ] || fail "Halvern.exe ended with $status after WM_CLOSE, expected 0"
echo "PASS"
