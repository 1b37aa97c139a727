# Sourced by the test scripts that start the simulated instrument: end_processes PID... asks each to end,
# gives them up to 30 s (halvern-sim ends Halvern through its close path first: killed outright, it would
# leave Halvern running without it), then kills what is left.
end_processes() {
    local pid alive
    for pid in "$@"; do kill -TERM "$pid" 2>/dev/null || true; done
    for _ in $(seq 1 300); do
        alive=0
        for pid in "$@"; do kill -0 "$pid" 2>/dev/null && alive=1; done
        [ "$alive" = 0 ] && break
        sleep 0.1
    done
    for pid in "$@"; do kill -KILL "$pid" 2>/dev/null || true; done
}

# The set-up of a script on the simulated instrument: `work`, a fresh folder, and `pids`, the processes it
# starts (append to it); on every way out they are ended and the folder is removed.
begin_sim_script() {
    work=$(mktemp -d)
    pids=()
    trap 'end_processes "${pids[@]}"; rm -rf "$work"' EXIT
}
