#!/usr/bin/env bash
# halvern-sim and halvernctl as a developer uses them: halvernctl finds a simulated instrument's ports from
# its sim root, a second instrument on busy ports says why it cannot run and how to run it, `ctl help`
# lists the instrument's commands, a reboot starts Halvern again as a boot would (the name set for the
# next start takes effect, the access point comes up from its settings), and an update waits for Halvern
# to end for the updater.
# Arguments: halvern-sim, halvernctl.
set -euo pipefail
halvern_sim=$1
halvernctl=$2
work=$(mktemp -d)
pids=()
. "$(dirname "$0")/../support/end_processes.sh"
cleanup() {
    end_processes "${pids[@]}"
    rm -rf "$work"
}
trap cleanup EXIT
fail() { echo "FAIL: $*" >&2; sed 's/^/  sim: /' "$work"/*.out >&2 || true; exit 1; }
wait_for() {  # wait_for SECONDS COMMAND...
    local seconds=$1
    shift
    for _ in $(seq 1 $((seconds * 10))); do "$@" > /dev/null 2>&1 && return 0; sleep 0.1; done
    return 1
}

root=$work/first
HALVERN_SEP_PORT_55557=0 HALVERN_SEP_PORT_55558=0 "$halvern_sim" --root "$root" -- -noupdate > "$work/first.out" 2>&1 &
first=$!
pids+=("$first")
wait_for 60 test -s "$root/sim/sep/55557" || fail "the instrument announced no SEP port"
wait_for 30 "$halvernctl" --root "$root" api-level || fail "halvernctl does not find the ports through --root"
port=$(cat "$root/sim/sep/55557")
[ "$(HALVERN_ROOT=$root "$halvernctl" --value apiLevel status)" = 51 ] || fail "no status through HALVERN_ROOT"
"$halvernctl" --root "$work/nothing" api-level 2> "$work/noroot.err" && fail "a root without an instrument was used"
grep -q "no simulated instrument at $work/nothing" "$work/noroot.err" || fail "$(cat "$work/noroot.err")"

# A second instrument on the first one's port.
HALVERN_SEP_PORT_55557=$port HALVERN_SEP_PORT_55558=0 timeout 120 "$halvern_sim" --root "$work/second" -- -noupdate \
    > "$work/second.out" 2>&1 && fail "the second instrument ran on a busy port"
grep -q "could not open its SEP ports" "$work/second.out" || fail "no reason for the busy port"
grep -q "HALVERN_SEP_PORT_55557=0" "$work/second.out" || fail "no fix for the busy port"

"$halvern_sim" ctl --root "$root" help > "$work/help.txt" || fail "ctl help failed"
grep -q "^  efi$" "$work/help.txt" || fail "ctl help does not list efi: $(cat "$work/help.txt")"

# bash completion of halvern-sim: its options, and the running instrument's commands after ctl.
. "$(dirname "$0")/../../tools/bash-completion/halvern-sim"
COMP_WORDS=("$halvern_sim" --no)
COMP_CWORD=1
_halvern_sim
[ "${COMPREPLY[*]}" = "--no-halvern --no-reboot" ] || fail "options completed as: ${COMPREPLY[*]}"
COMP_WORDS=("$halvern_sim" ctl --root "$root" e)
COMP_CWORD=4
_halvern_sim
[ "${COMPREPLY[*]}" = efi ] || fail "ctl commands completed as: ${COMPREPLY[*]}"

# The reboot: a new name and a running access point.
"$halvernctl" --root "$root" name set LAB-SCANNER-7 > /dev/null || fail "name set failed"
"$halvernctl" --root "$root" wlan set --ssid Lab-7 --password scan-the-world --on > /dev/null || fail "wlan set failed"
[ "$("$halvernctl" --root "$root" --value pendingName status)" = LAB-SCANNER-7 ] || fail "no pending name in status"
"$halvernctl" --root "$root" power-off --reboot > /dev/null || fail "the reboot was refused"
wait_for 60 grep -q "halvern-sim: rebooting" "$work/first.out" || fail "no \"rebooting\""
wait_for 60 grep -q "Halvern starts again" "$work/first.out" || fail "Halvern was not started again"
wait_for 60 test -s "$root/sim/sep/55557" || fail "the restarted Halvern announced no SEP port"
wait_for 30 "$halvernctl" --root "$root" api-level || fail "the restarted Halvern does not answer"
[ "$("$halvernctl" --root "$root" --value name name)" = LAB-SCANNER-7 ] || fail "the new name did not take effect"
wait_for 30 sh -c "[ \"\$('$halvernctl' --root '$root' --value enabled wlan)\" = true ]" ||
    fail "the access point did not come up from its settings"
[ "$("$halvernctl" --root "$root" --value ssid wlan)" = Lab-7 ] || fail "the access point lost its SSID"
kill -0 "$first" || fail "halvern-sim ended with the reboot"

# An update waits for its outcome: Halvern ending for the updater, or a clear failure when it does not.
mkdir -p "$root/F/system" "$root/sim/apps"
echo image > "$root/F/system/software.img"
"$halvernctl" --root "$root" update --wait 2 'f:\system\software.img' > /dev/null 2> "$work/update.err" &&
    fail "an update without the updater's request to end was taken for done"
grep -q "Halvern kept running for 2 s after the update began" "$work/update.err" || fail "$(cat "$work/update.err")"
echo "shutdown-request=yes" > "$root/sim/apps/firmware-updater"
"$halvernctl" --root "$root" update --wait 60 'f:\system\software.img' > "$work/update.out" ||
    fail "the update failed: $(cat "$work/update.out")"
grep -q "Halvern ended for the updater" "$work/update.out" || fail "$(cat "$work/update.out")"
echo "PASS"
