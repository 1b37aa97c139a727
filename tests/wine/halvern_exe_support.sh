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
