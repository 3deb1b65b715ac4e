#!/usr/bin/env python3
"""Helper of bench/pool.

    pool_check.py TOOL NAMES_FILE OUTPUT_FILE    prints "RIGHT WRONG FAILED": names answered right
                                                 (a<i>: its address; nx<i>: NXDOMAIN), wrong (the
                                                 liar's 192.0.2.66) and failed (anything else)
    pool_check.py --report SAMPLES ROUNDS NAMES INFLIGHT STATS_JSON
                                                 prints the Markdown tables and the goals
Name a<i>.pool.test has the address 10.<i/65536>.<i/256>.<i> (each modulo 256)."""
import json, re, statistics, sys

LIAR = "192.0.2.66"


def address(name):
    i = int(name.split(".")[0][1:])
    return "10.%d.%d.%d" % (i >> 16 & 255, i >> 8 & 255, i & 255)


def verdicts(tool, text):
    """name -> (addresses answered, said NXDOMAIN)"""
    seen = {}
    if tool.startswith("zib"):
        for line in text.splitlines():
            o = json.loads(line)
            addresses = [r["rdata"] for r in o["answer"] if r["type"] == 1]
            seen[o["asked"]] = (addresses, o["rcode"] == "NXDOMAIN")
    elif tool == "massdns":
        for line in text.splitlines():
            o = json.loads(line)
            answers = o.get("data", {}).get("answers", [])
            seen[o["name"].rstrip(".")] = ([a["data"] for a in answers if a.get("type") == "A"], o.get("status") == "NXDOMAIN")
    elif tool == "adnshost":
        for line in text.splitlines():
            m = re.match(r"(\S+) A INET (\S+)$", line)
            if m:
                seen.setdefault(m.group(1), ([], False))[0].append(m.group(2))
                continue
            m = re.match(r"; failed (\S+) \d+ (\S+) (\S+) ", line)
            if m:
                seen[m.group(3)] = ([], m.group(2) == "nxdomain")
    return seen


def check(tool, names_file, out_file):
    names = [l.strip() for l in open(names_file)]
    seen = verdicts(tool, open(out_file, errors="replace").read())
    right = wrong = 0
    for n in names:
        addresses, nxdomain = seen.get(n, ([], False))
        if LIAR in addresses:
            wrong += 1
        elif (n.startswith("nx") and nxdomain and not addresses) or (n.startswith("a") and addresses == [address(n)]):
            right += 1
    return "%d %d %d" % (right, wrong, len(names) - right - wrong)


def report(samples, rounds, names, inflight, stats_json):
    names = int(names)
    rows = {}
    for line in open(samples):
        tool, rate, rss, user, system, right, wrong, failed, rc = line.split()
        rows.setdefault(tool, []).append((int(rate), int(rss), float(user) + float(system), int(right), int(wrong), int(failed)))
    titles = {"zib": "zib -resolvers (8) -inflight %s" % inflight, "zib-one": "zib -server resolver 1 -inflight 1000",
              "adnshost": "adnshost, the first five", "massdns": "massdns -r (8) -s 10000 -c 3",
              "zib-direct": "zib -server nsd itself, no proxy (CPU reference)"}
    print("| client | names/s | right | wrong | failed | peak RSS KiB | CPU µs per name |")
    print("|---|---:|---:|---:|---:|---:|---:|")
    median = {}
    for tool in ("zib", "zib-one", "adnshost", "massdns", "zib-direct"):
        r = rows.get(tool)
        if not r:
            continue
        median[tool] = statistics.median(x[0] for x in r)
        worst = min(r, key=lambda x: x[3])
        cpu = statistics.median(x[2] for x in r) / names * 1e6
        median[tool, "cpu"] = cpu
        share = lambda v: "%.2f%%" % (100.0 * v / names)
        print("| %s | %d | %s | %s | %s | %d | %.1f |" % (titles[tool], median[tool], share(worst[3]), share(worst[4]),
                                                         share(worst[5]), max(x[1] for x in r), cpu))
    print()
    if "zib" in median:
        z = rows["zib"]
        worst_right = min(x[3] for x in z) / names
        print("Goals: zib -resolvers %d names/s (goal 10,000; %.1f times zib -server resolver 1), %.2f%% right "
              "(goal 99.95%%), %d wrong (goal 0), peak RSS %d KiB (goal under 65,536), CPU per name %.2f times the "
              "single-server figure (goal 1.5)." % (
                  median["zib"], median["zib"] / median.get("zib-one", 1), 100 * worst_right, max(x[4] for x in z),
                  max(x[1] for x in z), median["zib", "cpu"] / median.get(("zib-direct", "cpu"), 1)))
        print()
    try:
        stats = json.load(open(stats_json))
    except (OSError, ValueError):
        return
    print("zib's last run, per resolver (-stats_json):")
    print()
    print("| resolver | queries | answers | timeouts | REFUSED | SERVFAIL | median ms | final rate | state |")
    print("|---|---:|---:|---:|---:|---:|---:|---:|---|")
    for i, s in enumerate(stats["resolvers"]):
        state = s["state"] + (": " + s["reason"] if s["reason"] else "")
        print("| %d %s | %d | %d | %d | %d | %d | %s | %d | %s |" % (
            i + 1, s["address"], s["queries"], s["answers"], s["timeouts"], s["refused"], s["servfail"],
            "-" if s["median_rtt_ms"] is None else "%.1f" % s["median_rtt_ms"], s["rate"], state))


if __name__ == "__main__":
    if sys.argv[1] == "--report":
        report(*sys.argv[2:])
    else:
        print(check(*sys.argv[1:]))
