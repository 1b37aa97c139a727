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

first_pid=

log_has()
{
    grep -qF -- "$1" "$log" 2>/dev/null
}

alive()
{
    kill -0 "$1" 2>/dev/null
}

first_ended()
{
    ! alive "$first_pid"
}

# Polls every 200 ms for at most $1 seconds until "$2 ..." succeeds.
wait_until()
{
    local steps=$(($1 * 5))
    shift
    while ! "$@"; do
        steps=$((steps - 1))
        [ "$steps" -gt 0 ] || return 1
        sleep 0.2
    done
}

stop_first()
{
    [ -n "$first_pid" ] || return 0
    if alive "$first_pid"; then
        kill -TERM "$first_pid" 2>/dev/null
        wait_until 10 first_ended || kill -KILL "$first_pid" 2>/dev/null
        # Whatever Wine still runs in the harness's own prefix goes with it.
        WINEPREFIX=$build/wineprefix timeout 30 wineserver -k 2>/dev/null
    fi
    wait "$first_pid" 2>/dev/null
    first_pid=
}
trap stop_first EXIT

fail()
{
    echo "FAIL: $*"
    echo "----- D:\\logs\\Halvern.log"
    cat "$log" 2>/dev/null
    exit 1
}

started()
{
    log_has " Halvern Application started, version: 4.0.0.0 " && log_has "InitInstance done!"
}

started_or_ended()
{
    started || first_ended
}

"$wine_run" --setup || fail "no Wine prefix"
rm -f -- "$log"*

# 1. The first instance comes up and opens its window.
HALVERN_WINE_TIMEOUT=150 "$wine_run" "$halvern" </dev/null &
first_pid=$!
wait_until 60 started_or_ended
started || fail "Halvern.exe did not start (banner and \"InitInstance done!\" missing)"
alive "$first_pid" || fail "Halvern.exe ended right after start-up"
echo "first instance started"

# 2. A second instance sees the first, says so and ends with 0.
HALVERN_WINE_TIMEOUT=60 "$wine_run" "$halvern"
second_status=$?
[ "$second_status" -eq 0 ] || fail "the second instance ended with $second_status, expected 0"
log_has "[ERROR]: Another Halvern instance detected, quitting." || fail "the second instance did not log its refusal"
alive "$first_pid" || fail "the first instance ended when the second started"
echo "second instance refused to run"

# 3. WM_CLOSE to the first instance's window ends it with 0.
posted=false
for _ in 1 2 3 4 5; do
    if HALVERN_WINE_TIMEOUT=30 "$wine_run" "$post_close"; then
        posted=true
        break
    fi
    sleep 1
done
$posted || fail "no Halvern window to post WM_CLOSE to"
wait_until 60 first_ended || fail "Halvern.exe did not end within 60 s of WM_CLOSE"
wait "$first_pid"
first_status=$?
first_pid=
[ "$first_status" -eq 0 ] || fail "Halvern.exe ended with $first_status after WM_CLOSE, expected 0"
log_has "++ WM_CLOSE received" || fail "\"++ WM_CLOSE received\" missing"
log_has "++ WM_DESTROY received" || fail "\"++ WM_DESTROY received\" missing"
echo "WM_CLOSE ended the first instance with 0"
echo "PASS"
