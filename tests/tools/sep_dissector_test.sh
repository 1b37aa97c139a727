#!/usr/bin/env bash
# The Wireshark dissector on a capture of a scripted session with the simulated instrument: halvernctl in
# both codings, an error reply, events, frames that share a segment or span two, and frames whose
# checksum is wrong. tshark must show each field by name and mark the bad checksums.
# Arguments: halvern-sim, halvernctl, sep-dissector-tables, the dissector script.
set -euo pipefail
halvern_sim=$1
halvernctl=$2
tables=$3
dissector=$4

. "$(dirname "$0")/dissector_support.sh"
export HALVERN_SEP_PORT_55557=0 HALVERN_SEP_PORT_55558=0

root=$work/instrument
"$halvern_sim" --root "$root" -- -noupdate > "$work/sim.out" 2>&1 &
pids+=($!)
disown
for _ in $(seq 1 600); do
    [ -s "$root/sim/sep/55557" ] && break
    sleep 0.1
done
port=$(cat "$root/sim/sep/55557" 2>/dev/null) || fail "the instrument announced no SEP port"
ctl() { "$halvernctl" --port "$port" "$@"; }
for _ in $(seq 1 100); do
    ctl api-level > /dev/null 2>&1 && break
    sleep 0.1
done

capture=$work/session.pcapng
start_capture "$port" "$capture"

ctl api-level > /dev/null
ctl --ascii name get > /dev/null
ctl name set "not a name" > /dev/null 2>&1 && fail "a bad name was accepted"
ctl --ascii name set "not a name" > /dev/null 2>&1 || true
# An event listener, then a short press of the power button.
ctl events > "$work/events.out" 2>&1 &
pids+=($!)
sleep 1
"$halvern_sim" ctl --root "$root" efi button hold 100 > /dev/null
sleep 1
# Frames written by hand: two in one segment, one across two segments, two with a wrong checksum.
python3 - "$port" <<'PY'
import socket, sys, time
def crc16(data):
    crc = 0
    for b in data:
        crc ^= b
        for _ in range(8):
            crc = (crc >> 1) ^ 0xA001 if crc & 1 else crc >> 1
    return crc
def ascii_command(msg_id, addresses=b""):
    head = b"SC%d%s," % (msg_id, addresses)
    crc = crc16(head + b":")
    return head + b"%02X%02X:" % (crc & 0xFF, crc >> 8) + b"\r\n"
def escaped(frame):
    return frame.replace(b"\xdd", b"\xdd\xdd").replace(b"\r", b"\xdd\x02") + b"\r\n"
def binary_command(msg_id):
    frame = bytearray([0xD3, 0, 0, 8, 0, 0, msg_id & 0xFF, msg_id >> 8])
    crc = crc16(frame[:1] + frame[3:])
    frame[1:3] = bytes([crc & 0xFF, crc >> 8])
    return escaped(bytes(frame))
def ascii_event(msg_id, parameters):
    head = b"SE%d," % msg_id
    crc = crc16(head + b":" + parameters)
    return head + b"%02X%02X:" % (crc & 0xFF, crc >> 8) + parameters + b"\r\n"
s = socket.create_connection(("127.0.0.1", int(sys.argv[1])))
s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
s.sendall(ascii_command(1001) + ascii_command(1020))
time.sleep(0.3)
split = binary_command(1001)
s.sendall(split[:5]); time.sleep(0.3); s.sendall(split[5:])
time.sleep(0.3)
bad = bytearray(binary_command(1020)); bad[1] ^= 0xFF
s.sendall(bytes(bad)); time.sleep(0.3)
s.sendall(b"SC1001,0000:\r\n"); time.sleep(0.3)
# A command for another node, with its address block (the server drops it; the capture keeps it).
s.sendall(ascii_command(1001, b"@7,2,9,4")); time.sleep(0.3)
# The server sends its events in the binary coding; an ASCII one, as another node may send it.
s.sendall(ascii_event(1000, b"1097,10,0,2")); time.sleep(0.5)
s.close()
PY
sleep 1
stop_capture

dissect() { tshark -X lua_script:"$dissector" -r "$capture" -d "tcp.port==$port,sep" "$@" 2>/dev/null; }
fields=$(dissect -Y sep -T fields -E separator='|' -E occurrence=a -e sep.coding -e sep.kind -e sep.id -e sep.name \
    -e sep.checksum.status -e sep.reply.code -e sep.reply.facility -e sep.reply.level -e sep.reply.error \
    -e sep.field.level -e sep.field.name -e sep.field.code)
echo "$fields" > "$work/fields.txt"
expect() {
    grep -qF -- "$1" "$work/fields.txt" || { cat "$work/fields.txt" >&2; fail "no dissected frame with: $1"; }
}
# A command and its reply, binary; the reply record's field by name.
expect "binary|1|1001|GET_API_LVL|good|||||"
expect "binary|3|1001|GET_API_LVL|good|1097|10|0||51||"
# ASCII command and reply with a string field.
expect "ASCII|1|1020|HOSTNAME_CFG_GET|good|"
expect "ASCII|3|1020|HOSTNAME_CFG_GET|good|1097|10|0|||ZENTOR-1000001|"
# Error replies in both codings, with their text.
expect "binary|3|1021|HOSTNAME_CFG_SET|good|889|10|1|Invalid set of the instrument's name.|"
expect "ASCII|3|1021|HOSTNAME_CFG_SET|good|889|10|1|Invalid set of the instrument's name.|"
expect "binary|1|1021|HOSTNAME_CFG_SET|good||||||not a name|"
# Events in both codings: the button's code by name (press from the server, release by hand).
events=$(dissect -Y "sep.kind == 2 && sep.id == 1000" -T fields -e sep.coding -e sep.name -e sep.field.code.i32)
grep -qP '^binary\tbutton\t1$' <<< "$events" || fail "no binary button event: $events"
grep -qP '^ASCII\tbutton\t2$' <<< "$events" || fail "no ASCII button event: $events"
# Two frames of one segment are two SEP items of one packet; the split frame is reassembled.
[ "$(dissect -Y 'sep.kind == 1 && sep.coding == "ASCII" && sep.id == 1001 && sep.id == 1020' | wc -l)" -ge 1 ] ||
    fail "the two frames of one segment were not both dissected"
[ "$(dissect -Y 'sep.kind == 1 && sep.coding == "binary" && sep.id == 1001' | wc -l)" -ge 2 ] ||
    fail "the frame split over two segments was not reassembled"
# Addresses: destination node and channel, then source node and channel.
[ "$(dissect -Y 'sep.dst.node == 7' -T fields -E separator='|' -e sep.dst.node -e sep.dst.channel -e sep.src.node \
    -e sep.src.channel -e sep.checksum.status)" = "7|2|9|4|good" ] || fail "the address block is not shown"
# Bad checksums are marked, not dropped: the frame is still shown with its id.
[ "$(dissect -Y 'sep.checksum.status == "bad"' -T fields -e sep.id | sort | tr '\n' ' ')" = "1001 1020 " ] ||
    fail "the corrupted frames are not both marked: $(dissect -Y 'sep.checksum.status == "bad"' -T fields -e sep.id)"
dissect -Y 'sep.checksum.status == "bad"' -V | grep "Bad checksum" > /dev/null || fail "no expert note on the bad checksum"
echo "PASS"
