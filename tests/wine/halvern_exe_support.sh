# Sourced by the Wine scripts that run Halvern.exe: bounded waits and the log of D:\logs\Halvern.log. The
# sourcing script sets $log and $halvern_pid.

alive()
{
    kill -0 "$1" 2>/dev/null
}

ended()
{
    ! alive "$halvern_pid"
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

# Ends Halvern.exe when the script leaves early: TERM, then KILL after 10 s.
stop_halvern()
{
    [ -n "$halvern_pid" ] || return 0
    if alive "$halvern_pid"; then
        kill -TERM "$halvern_pid" 2>/dev/null
        wait_until 10 ended || kill -KILL "$halvern_pid" 2>/dev/null
    fi
    wait "$halvern_pid" 2>/dev/null
    halvern_pid=
}

fail()
{
    echo "FAIL: $*"
    echo "----- D:\\logs\\Halvern.log"
    cat "$log" 2>/dev/null
    exit 1
}

log_has()
{
    grep -qF -- "$1" "$log" 2>/dev/null
}

# Sends WM_CLOSE to Halvern.exe's main window with post_close.exe ($post_close), up to five times a second
# apart while the window is not there yet.
post_wm_close()
{
    local attempt
    for attempt in 1 2 3 4 5; do
        HALVERN_WINE_TIMEOUT=30 "$wine_run" "$post_close" && return 0
        [ "$attempt" -lt 5 ] && sleep 1
    done
    return 1
}

# Without the instrument's hardware its hardware check fails; on a customer's instrument (the write filter
# protects it) the start goes on all the same. customer_instrument makes the prefix one and notes the state it
# had; restore_filter_state gives that back, so the tests that share the prefix find it as they left it.
filter_key='HKLM\System\ControlSet001\Services\HalvernHelper\Status'
previous_filter_state=
set_filter_state()
{
    HALVERN_WINE_TIMEOUT=60 "$wine_run" reg add "$filter_key" /v FilterState /t REG_DWORD /d "$1" /f >/dev/null 2>&1
}
customer_instrument()
{
    previous_filter_state=$(HALVERN_WINE_TIMEOUT=60 "$wine_run" reg query "$filter_key" /v FilterState 2>/dev/null |
        grep -o '0x[0-9a-fA-F]*' | head -1)
    set_filter_state 1
}
restore_filter_state()
{
    set_filter_state $((${previous_filter_state:-0}))
}
