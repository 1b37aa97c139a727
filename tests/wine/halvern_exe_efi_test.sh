#!/bin/bash
# Halvern.exe end to end under Wine with the simulated EFI service (efi-service-sim.exe) on real Windows
# named pipes: start-up opens the link and its hardware check logs the status the service reports.
#
#   halvern_exe_efi_test.sh WINE_RUN HALVERN_EXE EFI_SERVICE_EXE POST_CLOSE_EXE BUILD_DIR
#
# Every wait is bounded; on the way out only the processes started here are stopped.
set -u

wine_run=$1
halvern=$2
efi_service=$3
post_close=$4
build=$5

export HALVERN_BUILD_DIR=$build
log=$build/drive_d/logs/Halvern.log
ready=$build/drive_d/efi-service-ready
stop=$build/drive_d/efi-service-stop
cd "$build" || exit 1

halvern_pid=
service_pid=
. "$(dirname "$0")/halvern_exe_support.sh"

stop_all()
{
    touch "$stop"
    for pid in $halvern_pid $service_pid; do
        if alive "$pid"; then
            wait_until 10 process_ended "$pid" || kill -TERM "$pid" 2>/dev/null
        fi
        wait "$pid" 2>/dev/null
    done
    rm -f -- "$ready" "$stop"
    restore_filter_state
}
trap stop_all EXIT

process_ended()
{
    ! alive "$1"
}

started_or_ended()
{
    log_has "InitInstance done!" || ended
}

"$wine_run" --setup || fail "no Wine prefix"
rm -f -- "$log"* "$ready" "$stop"
customer_instrument || fail "cannot make the prefix a customer's instrument"

HALVERN_WINE_TIMEOUT=200 "$wine_run" "$efi_service" --ready 'D:\efi-service-ready' --stop 'D:\efi-service-stop' \
    --hwstatus 'EFIRunningMode:1,FPGAReady:1,HPSReady:0,TELOReady:1,' </dev/null &
service_pid=$!
wait_until 60 test -f "$ready" || fail "the EFI service did not come up"
echo "EFI service up"

HALVERN_WINE_TIMEOUT=150 "$wine_run" "$halvern" </dev/null &
halvern_pid=$!
wait_until 60 started_or_ended
log_has "InitInstance done!" || fail "Halvern.exe did not start"
log_has "Got EFI service HW status: EFIRunningMode:1,FPGAReady:1,HPSReady:0,TELOReady:1," ||
    fail "the hardware check did not read the EFI service"
log_has "[INFO]: isHwErrorDetected: Successfully parsed EFI's HW status" || fail "the status was not parsed"
log_has "[HW Status] MORA (HPS) Ready	: NOT OK" || fail "HPS reported ready although the service says it is not"
log_has "Failed to initialize communication with EFI" && fail "the EFI link failed although the service runs"
echo "Halvern.exe read the EFI service's hardware status"

post_wm_close || fail "no Halvern window to post WM_CLOSE to"
wait_until 60 ended || fail "Halvern.exe did not end within 60 s of WM_CLOSE"
wait "$halvern_pid"
status=$?
halvern_pid=
[ "$status" -eq 0 ] || fail "Halvern.exe ended with $status after WM_CLOSE, expected 0"

touch "$stop"
wait_until 30 process_ended "$service_pid" || fail "the EFI service did not end on its stop file"
wait "$service_pid"
status=$?
service_pid=
[ "$status" -eq 0 ] || fail "the EFI service ended with $status"
echo "PASS"
