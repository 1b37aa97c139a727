#!/usr/bin/env bash
# The Wireshark dissector over a capture of every command of the command table (its request, its reply
# and an error reply) and every event, in both codings, played between two loopback sockets by a script
# that codes the records as the tables of sep.lua describe them. No frame may raise a Lua error or fail
# its record; values are typed (numbers compare as numbers, a time is a date); error replies are marked;
# each reply names its command and the response time.
# Arguments: sep-dissector-tables, the dissector script.
set -euo pipefail
tables=$1
dissector=$2

. "$(dirname "$0")/dissector_support.sh"

"$tables" > "$work/tables.lua"
python3 - "$work" <<'PY' &
import os, re, socket, struct, sys, time
work = sys.argv[1]
text = open(os.path.join(work, "tables.lua")).read()
field = re.compile(r'\{"([^"]*)", "([^"]*)"\}')
commands = [(int(m.group(1)), field.findall(m.group(2)), field.findall(m.group(3)))
            for m in re.finditer(r'\[(\d+)\] = \{name = "[^"]*", request = \{(.*?)\}, reply = \{(.*)\}\},', text)]
events = [(int(m.group(1)), field.findall(m.group(2)))
          for m in re.finditer(r'\[(\d+)\] = \{name = "[^"]*", record = \{(.*)\}\},', text)]
assert len(commands) > 60 and len(events) == 8, (len(commands), len(events))

def crc16(data):
    crc = 0
    for b in data:
        crc ^= b
        for _ in range(8):
            crc = (crc >> 1) ^ 0xA001 if crc & 1 else crc >> 1
    return crc

# Values that make sense where the records carry a time; the rest are plain figures.
TIMES = {1018: [2026, 11, 23, 10, 0, 30], 1019: [2026, 11, 23, 10, 0, 30],
         1053: [30, 0, 10, 23, 10, 126], 1054: [30, 0, 10, 23, 10, 126]}
def values(msg_id, record):
    out, times = [], list(TIMES.get(msg_id, []))
    for name, wire in record:
        if wire == "bool": out.append((wire, True))
        elif wire == "str": out.append((wire, 'say "%s"' % name))
        elif wire.startswith("bytes:"): out.append((wire, (name.encode() + bytes(int(wire[6:])))[:int(wire[6:])]))
        elif name == "level": out.append((wire, 51))
        elif times and wire == "i32": out.append((wire, times.pop(0)))
        elif wire.startswith("i"): out.append((wire, -7))
        else: out.append((wire, 51))
    return out
WIDTH = {"u8": "<B", "i8": "<b", "u16": "<H", "i16": "<h", "u32": "<I", "i32": "<i", "bool": "<B"}
def binary(kind, msg_id, params):
    body = bytearray()
    for wire, v in params:
        if wire in WIDTH: body += struct.pack(WIDTH[wire], int(v))
        elif wire == "str": body += b'"' + v.replace('"', "\x1a").encode() + b'"'
        else: body += v
    frame = bytearray([0xD3, 0, 0, 0, 0, kind]) + struct.pack("<H", msg_id) + body
    frame[3:5] = struct.pack("<H", len(frame))
    frame[1:3] = struct.pack("<H", crc16(frame[:1] + frame[3:]))
    return bytes(frame).replace(b"\xdd", b"\xdd\xdd").replace(b"\r", b"\xdd\x02") + b"\r\n"
def ascii(kind, msg_id, params):
    parts = []
    for wire, v in params:
        if wire == "bool": parts.append(b"1" if v else b"0")
        elif wire in WIDTH: parts.append(b"%d" % v)
        elif wire == "str": parts.append(b'"' + v.replace('"', "\x1a").encode() + b'"')
        else: parts.append(v.hex().upper().encode())
    head = b"S" + b"CER"[kind:kind + 1] + b"%d," % msg_id
    payload = b",".join(parts)
    crc = crc16(head + b":" + payload)
    return head + b"%02X%02X:" % (crc & 0xFF, crc >> 8) + payload + b"\r\n"
SUCCESS = [("i32", 1097), ("i32", 10), ("u16", 0)]
ERROR = [("i32", 889), ("i32", 10), ("u16", 1), ("str", "General failure ( no such thing)")]

listener = socket.socket()
listener.bind(("127.0.0.1", 0))
listener.listen(1)
open(os.path.join(work, "port.new"), "w").write(str(listener.getsockname()[1]))
os.rename(os.path.join(work, "port.new"), os.path.join(work, "port"))
for _ in range(300):
    if os.path.exists(os.path.join(work, "go")): break
    time.sleep(0.1)
client = socket.create_connection(listener.getsockname())
server, _ = listener.accept()
for s in (client, server):
    s.setsockopt(socket.IPPROTO_TCP, socket.TCP_NODELAY, 1)
sent = 0
def send(sock, data):
    global sent
    sock.sendall(data)
    sent += 1
    time.sleep(0.002)
for code in (binary, ascii):
    for msg_id, request, reply in commands:
        send(client, code(0, msg_id, values(msg_id, request)))
        send(server, code(2, msg_id, SUCCESS + values(msg_id, reply)))
        send(client, code(0, msg_id, values(msg_id, request)))
        send(server, code(2, msg_id, ERROR))
    for msg_id, record in events:
        send(server, code(1, msg_id, SUCCESS + values(msg_id, record)))
time.sleep(0.3)
client.close(); server.close(); listener.close()
open(os.path.join(work, "sent"), "w").write(str(sent))
PY
pids+=($!)
python_pid=$!
for _ in $(seq 1 100); do [ -s "$work/port" ] && break; sleep 0.1; done
port=$(cat "$work/port") || fail "the frame player announced no port"

capture=$work/table.pcapng
start_capture "$port" "$capture"
touch "$work/go"
wait "$python_pid" || fail "the frame player failed"
sleep 0.5
stop_capture

dissect() { tshark -X lua_script:"$dissector" -r "$capture" -d "tcp.port==$port,sep" "$@" 2> "$work/tshark.err"; }
dissect -V > "$work/verbose.txt"
! grep -q "Lua Error" "$work/verbose.txt" "$work/tshark.err" ||
    fail "Lua errors: $(grep -m3 "Lua Error" "$work/verbose.txt" "$work/tshark.err")"
! grep -q "Parameters do not match the record\|No SEP header" "$work/verbose.txt" ||
    fail "frames that did not decode: $(grep -B30 -m1 "Parameters do not match\|No SEP header" "$work/verbose.txt" | grep "Message id\|Coding")"
dissected=$(dissect -Y sep -T fields -E occurrence=a -E aggregator=' ' -e sep.id | wc -w)
[ "$dissected" = "$(cat "$work/sent")" ] || fail "$(cat "$work/sent") frames sent, $dissected dissected"

# Numbers are numbers: the API level's reply in both codings, and nothing above 100.
[ "$(dissect -Y 'sep.field.level == 51' -T fields -e sep.coding | sort | tr '\n' ' ')" = "ASCII binary " ] ||
    fail "sep.field.level does not compare as a number: $(dissect -Y 'sep.field.level == 51' -T fields -e sep.coding)"
[ -z "$(dissect -Y 'sep.field.level > 100')" ] || fail "51 compared above 100"
[ "$(dissect -Y 'sep.field.enabled == 1 && sep.id == 1003' -T fields -e sep.id | wc -l)" = 2 ] ||
    fail "a bool is not a bool"
# A time is a date, in both records that carry one.
for id in 1018 1053; do
    dissect -Y "sep.id == $id && sep.kind == 3 && sep.reply.code == 1097" -T fields -e sep.time |
        grep -q "Nov 23, 2026 10:00:30" || fail "no date in reply $id: $(dissect -Y "sep.id == $id" -T fields -e sep.time)"
done
# Error replies: in the Info column and as an expert note.
dissect -Y 'sep.reply.code == 889 && sep.id == 1004' -T fields -e _ws.col.Info | grep -q "ERROR: General failure" ||
    fail "the error reply is not marked in Info"
[ "$(dissect -Y '_ws.expert.message contains "Error reply"' -T fields -e sep.id | wc -l)" -ge 128 ] ||
    fail "error replies without their expert note"
# Each reply names its command, and the command its reply (a command learns of its reply on the second pass).
read -r command_frame response_in <<< "$(dissect -2 -Y 'sep.kind == 1 && sep.id == 1001 && sep.coding == "binary"' \
    -T fields -e frame.number -e sep.response_in | head -1)"
[ -n "$response_in" ] || fail "the command does not name its reply"
[ "$(dissect -Y "frame.number == $response_in" -T fields -e sep.request_in -e sep.id | cut -f1,2)" = \
    "$command_frame	1001" ] || fail "the reply does not name its command"
dissect -Y "frame.number == $response_in" -T fields -e sep.response_time | grep -q "^0\.0" ||
    fail "no response time"
echo "PASS"
