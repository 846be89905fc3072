# The measuring slave's four replies against tshark's decode of the same link (see docs/clksim.md, Wire ports).
import json, sys
got = {j["name"]: j["decoded"] for j in map(json.loads, open(sys.argv[1])) if "decoded" in j}
rows = [r.rstrip("\n").split("\t") for r in open(sys.argv[2]) if r.strip()]
seen = lambda t: [r for r in rows if int(r[0], 0) == t]  # tshark writes the type as 0x08
stat = {k: int(v) for k, v in got["get_ptp_pkt_stat"].items()}
want = {"syncRx": 0, "followUpRx": 8, "delayReqTx": 1, "delayRespRx": 9, "announceRx": 11}
want = {k: len(seen(t)) for k, t in want.items()}
ts, d21, d43 = got["get_ptp_timestamp"], got["get_ptp_t2_sub_t1"], got["get_ptp_t4_sub_t3"]
sent = lambda t, seq, a, b: next((f"{r[a]}.{int(r[b]):09d}" for r in seen(t) if r[1] == str(seq)), None)
ns = lambda t: int(t.replace(".", ""))
checks = {
    f"counters {stat}, tshark {want}": stat == want,
    f"t1 {ts['t1']}, Follow_Up {sent(8, ts['syncSeq'], 2, 3)}": sent(8, ts["syncSeq"], 2, 3) == ts["t1"],
    f"t4 {ts['t4']}, Delay_Resp {sent(9, ts['delaySeq'], 4, 5)}": sent(9, ts["delaySeq"], 4, 5) == ts["t4"],
    f"t2 - t1 {d21}": ns(ts["t2"]) - ns(ts["t1"]) == int(d21["lastNs"]) and int(d21["samples"]) == want["followUpRx"],
    f"t4 - t3 {d43}": ns(ts["t4"]) - ns(ts["t3"]) == int(d43["lastNs"]) and int(d43["samples"]) == want["delayRespRx"],
    "delays outside (0, 1 ms)": all(0 < int(d["minNs"]) <= int(d["maxNs"]) < 1000000 for d in (d21, d43)),
}
print(f"measure: {want}, t2-t1 {d21}, t4-t3 {d43}")
bad = [why for why, ok in checks.items() if not ok]
print("\n".join(bad))
sys.exit(1 if bad else 0)
