#!/usr/bin/env bash
# clkcheck's throughput on a large capture beside tshark's on the same file:
# a G.8275.1 link (Announces 8 a second, two-step Syncs, Delay_Req and
# Delay_Resp 16 a second) of FRAMES frames, written here, read by
# `clkcheck FILE --profile g8275.1` and by `tshark -r FILE -Y ptp` printing the
# fields clkcheck decodes. Also clkcheck's peak memory on a tenth of the
# capture and on all of it: the same, since it streams.
#   bench/clkcheck.sh CLKCHECK [FRAMES] [--rows]   (1,000,000 by default; --rows: report.sh's table rows only)
set -euo pipefail
clkcheck=$1 frames=${2:-1000000} rows=${3:-}
command -v tshark >/dev/null || { echo "bench/clkcheck.sh: no tshark (scripts/deps.sh check)" >&2; exit 77; }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

python3 - "$tmp" "$frames" <<'PY'
import struct, sys
tmp, total = sys.argv[1], int(sys.argv[2])
M, S = bytes.fromhex("001b19fffe000001"), bytes.fromhex("7c2e0dfffe000002")
def msg(t, clock, seq, log, flags=0, body=b"\0" * 10, req=None):
    length = 34 + len(body) + (10 if req else 0)
    return (bytes([t, 2]) + struct.pack(">H", length) + bytes([24, 0]) + struct.pack(">HQ", flags, 0) + bytes(4)
            + clock + struct.pack(">HHBb", 1, seq, 0, log) + body + (req + b"\0\1" if req else b""))
def frame(payload):
    return bytes.fromhex("011b19000000020000000001") + b"\x88\xf7" + payload
def write(path, n):
    with open(path, "wb") as f:
        f.write(struct.pack("<IHHiIII", 0xA1B23C4D, 2, 4, 0, 0, 65535, 1))
        written, i, t0 = 0, 0, 1700000000 * 10**9
        while written < n:
            t = t0 + i * 62500000
            recs = [(t, msg(0, M, i & 0xFFFF, -4, 0x0200)), (t + 10**6, msg(8, M, i & 0xFFFF, -4)),
                    (t + 2 * 10**7, msg(1, S, i & 0xFFFF, 127)), (t + 205 * 10**5, msg(9, M, i & 0xFFFF, -4, req=S))]
            if i % 2 == 0:
                recs.append((t + 5 * 10**6, msg(11, M, (i // 2) & 0xFFFF, -3, body=bytes(10) + bytes.fromhex(
                    "0025008006214e5d80") + M + b"\0\0\x20")))
            for ts, p in sorted(recs):
                if written == n: break
                fr = frame(p)
                f.write(struct.pack("<IIII", ts // 10**9, ts % 10**9, len(fr), len(fr)) + fr)
                written += 1
            i += 1
write(tmp + "/large.pcap", total)
write(tmp + "/tenth.pcap", total // 10)
PY

# run NAME COMMAND...: wall seconds and peak RSS (kB) into $tmp/NAME
run() {
  local name=$1; shift
  /usr/bin/time -f '%e %M' -o "$tmp/$name" "$@" >"$tmp/$name.out" 2>"$tmp/$name.err" || [ $? -le 1 ]
}
run tenth "$clkcheck" "$tmp/tenth.pcap" --profile g8275.1
run clkcheck "$clkcheck" "$tmp/large.pcap" --profile g8275.1
run tshark tshark -r "$tmp/large.pcap" -Y ptp -T fields -e frame.time_epoch -e ptp.v2.messagetype -e ptp.v2.domainnumber \
  -e ptp.v2.flags -e ptp.v2.clockidentity -e ptp.v2.sourceportid -e ptp.v2.sequenceid -e ptp.v2.logmessageperiod \
  -e ptp.v2.an.grandmasterclockidentity -e ptp.v2.an.priority1 -e ptp.v2.an.grandmasterclockclass \
  -e ptp.v2.an.localstepsremoved -e ptp.v2.dr.requestingsourceportid
[ "$(wc -l <"$tmp/tshark.out")" -eq "$frames" ] || { echo "bench/clkcheck.sh: tshark failed:" >&2; cat "$tmp/tshark.err" >&2; exit 1; }
grep -q "keeps g8275.1" "$tmp/clkcheck.out" || { echo "bench/clkcheck.sh: the capture does not keep its profile:" >&2;
  grep -m5 '^frame' "$tmp/clkcheck.out" >&2; exit 1; }
# GNU time writes "Command exited with non-zero status N" first for clkcheck's findings: the last line counts.
last() { tail -n 1 "$tmp/$1"; }
read -r cs ck <<<"$(last clkcheck)"; read -r ts tk <<<"$(last tshark)"; read -r _ tenthk <<<"$(last tenth)"
mb=$(( $(stat -c %s "$tmp/large.pcap") / 1000000 ))
rate() { awk -v n="$frames" -v s="$1" 'BEGIN {printf "%.0f frames/s", n / (s > 0 ? s : 0.01)}'; }
out=$(printf '%s\t%s\n' \
  "clkcheck on $frames frames ($mb MB), g8275.1" "$(rate "$cs") ($cs s)" \
  "tshark -r -Y ptp, the same fields, same file" "$(rate "$ts") ($ts s)" \
  "clkcheck peak RSS, a tenth / all of the capture" "$((tenthk / 1024)) / $((ck / 1024)) MB" \
  "tshark peak RSS, all of the capture" "$((tk / 1024)) MB")
if [ -n "$rows" ]; then echo "$out"; else column -t -s $'\t' <<<"$out"; fi
