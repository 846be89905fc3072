# The orchestrator's four queries after ptp4l was the grandmaster, against
# what tshark decoded on the same link: every counter equals tshark's count,
# nothing was dropped, the time-stamp record holds the Follow_Up and
# Delay_Resp times ptp4l sent, t2 - t1 and t4 - t3 equal the record's times
# and are transit times on a veth (same clock both ends): within (0, 1 ms).
import json, sys
steps = {j["name"]: j["decoded"] for j in map(json.loads, open(sys.argv[1])) if "decoded" in j}
rows = [line.rstrip("\n").split("\t") for line in open(sys.argv[2]) if line.strip()]
for r in rows:
    r[0] = str(int(r[0], 0))  # tshark writes the type as 0x08
count = lambda t: sum(r[0] == str(t) for r in rows)
stat = {k: int(v) for k, v in steps["get_ptp_pkt_stat"].items()}
want = {"syncRx": count(0), "followUpRx": count(8), "delayReqTx": count(1), "delayRespRx": count(9),
        "announceRx": count(11)}
got = {k: stat.pop(k, 0) for k in want}
ts, d21, d43 = steps["get_ptp_timestamp"], steps["get_ptp_t2_sub_t1"], steps["get_ptp_t4_sub_t3"]
fu = {r[1]: f"{r[2]}.{int(r[3]):09d}" for r in rows if r[0] == "8"}
dr = {r[1]: f"{r[4]}.{int(r[5]):09d}" for r in rows if r[0] == "9"}
ns = lambda t: int(t.replace(".", ""))
checks = [
    (got == want, f"counters {got}, tshark {want}"),
    (not stat, f"unexpected counters {stat}"),
    (fu.get(ts["syncSeq"]) == ts["t1"], f"t1 {ts['t1']} seq {ts['syncSeq']}, Follow_Up {fu.get(ts['syncSeq'])}"),
    (dr.get(ts["delaySeq"]) == ts["t4"], f"t4 {ts['t4']} seq {ts['delaySeq']}, Delay_Resp {dr.get(ts['delaySeq'])}"),
    (ns(ts["t2"]) - ns(ts["t1"]) == int(d21["lastNs"]), f"t2 - t1 {d21['lastNs']} against the record"),
    (ns(ts["t4"]) - ns(ts["t3"]) == int(d43["lastNs"]), f"t4 - t3 {d43['lastNs']} against the record"),
    (int(d21["samples"]) == want["followUpRx"] and int(d43["samples"]) == want["delayRespRx"], "sample counts"),
]
for d in (d21, d43):
    checks.append((0 < int(d["minNs"]) <= int(d["maxNs"]) < 1000000, f"delays {d}"))
print(f"measure: {want}, t2-t1 {d21}, t4-t3 {d43}")
bad = [why for ok, why in checks if not ok]
print("\n".join(bad))
sys.exit(1 if bad else 0)
