#!/bin/bash
# Halvern.exe end to end under Wine: it starts and writes its banner, a second instance refuses to run,
# and WM_CLOSE ends the first one with exit code 0.
#
#   halvern_exe_test.sh WINE_RUN HALVERN_EXE POST_CLOSE_EXE BUILD_DIR
#
# Every wait is bounded; on the way out only the processes started here are stopped.
set -u

wine_run=$1
halvern=$2
post_close=$3
build=$4

export HALVERN_BUILD_DIR=$build
log=$build/drive_d/logs/Halvern.log
cd "$build" || exit 1

halvern_pid=
. "$(dirname "$0")/halvern_exe_support.sh"

leave()
{
    if [ -n "$halvern_pid" ] && alive "$halvern_pid"; then
        stop_halvern
        # Whatever Wine still runs in the harness's own prefix goes with it.
        WINEPREFIX=$build/wineprefix timeout 30 wineserver -k 2>/dev/null
    fi
    stop_halvern
    restore_filter_state
}
trap leave EXIT

started()
{
    log_has " Halvern Application started, version: 4.0.0.0 " && log_has "InitInstance done!"
}

started_or_ended()
{
    started || ended
}

"$wine_run" --setup || fail "no Wine prefix"
rm -f -- "$log"*
customer_instrument || fail "cannot make the prefix a customer's instrument"

# 1. The first instance comes up and opens its window.
HALVERN_WINE_TIMEOUT=150 "$wine_run" "$halvern" </dev/null &
halvern_pid=$!
wait_until 60 started_or_ended
started || fail "Halvern.exe did not start (banner and \"InitInstance done!\" missing)"
alive "$halvern_pid" || fail "Halvern.exe ended right after start-up"
echo "first instance started"

# 2. A second instance sees the first, says so and ends with 0.
HALVERN_WINE_TIMEOUT=60 "$wine_run" "$halvern"
second_status=$?
[ "$second_status" -eq 0 ] || fail "the second instance ended with $second_status, expected 0"
log_has "[ERROR]: Another Halvern instance detected, quitting." || fail "the second instance did not log its refusal"
alive "$halvern_pid" || fail "the first instance ended when the second started"
echo "second instance refused to run"

# 3. WM_CLOSE to the first instance's window ends it with 0.
post_wm_close || fail "no Halvern window to post WM_CLOSE to"
wait_until 60 ended || fail "Halvern.exe did not end within 60 s of WM_CLOSE"
wait "$halvern_pid"
first_status=$?
halvern_pid=
[ "$first_status" -eq 0 ] || fail "Halvern.exe ended with $first_status after WM_CLOSE, expected 0"
log_has "++ WM_CLOSE received" || fail "\"++ WM_CLOSE received\" missing"
log_has "++ WM_DESTROY received" || fail "\"++ WM_DESTROY received\" missing"
echo "WM_CLOSE ended the first instance with 0"
echo "PASS"
