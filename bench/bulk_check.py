#!/usr/bin/env python3
"""Helper of bench/bulk.

    bulk_check.py TOOL NAMES_FILE OUTPUT_FILE   prints "ONCE RIGHT": names with exactly one final
                                                outcome, names that got their own address
    bulk_check.py --report SAMPLES ROUNDS NA NB NC ND MEM_SMALL MEM_BIG
                                                prints the Markdown tables and the goals
Name a<i>.bench.test has the address 10.<i/65536>.<i/256>.<i> (each modulo 256)."""
import json, re, statistics, sys

# The best massdns figures measured on this machine for the issue (same settings): the bar.
MASSDNS_BAR = {"a": 49449, "b": 26712, "c": 1704, "d": 9940}


def address(name):
    i = int(name.split(".")[0][1:])
    return "10.%d.%d.%d" % (i >> 16 & 255, i >> 8 & 255, i & 255)


def check(tool, names_file, out_file):
    names = [l.strip() for l in open(names_file)]
    want = {n: address(n) for n in names}
    text = open(out_file, errors="replace").read()
    final, right = {}, set()  # name -> number of final outcomes; names with the right address
    if tool.startswith("zib"):
        # A name's rows (its attempts) form one block; the rows of the zone's NS and its address
        # carry other names. A name in two blocks would have two outcomes.
        current = None
        for line in text.splitlines()[2:]:
            f = line.split(",")
            name = f[0].rstrip(".")
            if name in want and name != current:
                final[name] = final.get(name, 0) + 1
                current = name
            if f[1] == "answer" and f[-1] == want.get(name):
                right.add(name)
    elif tool == "massdns":
        for line in text.splitlines():
            r = json.loads(line)
            n = r["name"].rstrip(".")
            final[n] = final.get(n, 0) + 1
            if any(a.get("data") == want.get(n) for a in r.get("data", {}).get("answers", [])):
                right.add(n)
    elif tool == "adnshost":
        for line in text.splitlines():
            m = re.match(r"(\S+) A INET (\S+)$", line) or re.match(r"; failed \S+ \d+ \S+ (\S+) ", line)
            if m:
                n = m.group(1)
                final[n] = final.get(n, 0) + 1
                if m.lastindex == 2 and m.group(2) == want.get(n):
                    right.add(n)
    elif tool == "dig":  # +noall +answer: a name without an answer prints nothing
        for line in text.splitlines():
            f = line.split()
            if len(f) == 5 and f[3] == "A":
                n = f[0].rstrip(".")
                final[n] = final.get(n, 0) + 1
                if f[4] == want.get(n):
                    right.add(n)
    else:
        m = re.search(r"Queries completed:\s+(\d+)", text)
        return "%s n/a" % (m.group(1) if m else 0)
    once = sum(1 for n in names if final.get(n) == 1)
    return "%d %d" % (once, len(right & set(names)))


def report(samples, rounds, na, nb, nc, nd, mem_small, mem_big):
    rows = {}
    for line in open(samples):
        tool, scenario, rate, rss, once, right, rc = line.split()
        rows.setdefault((scenario, tool), []).append((int(rate), int(rss), once, right))
    titles = {"a": "a: direct, %s names" % na, "b": "b: 20 ms RTT, %s names" % nb,
              "c": "c: 20 ms RTT, 2%% loss each way, %s names" % nc,
              "d": "d: 20 ms RTT, 2%% of replies 1.5 s late, %s names" % nd}
    print("| scenario | tool | names/s | peak RSS KiB | names with one outcome | right answers |")
    print("|---|---|---:|---:|---:|---:|")
    median = {}
    for s in "abcd":
        for tool in ("zib", "zib-unordered", "adnshost", "dnsperf", "dig", "massdns"):
            r = rows.get((s, tool), [])
            if not r:
                continue
            worst = lambda k: min((x[k] for x in r), key=lambda v: -1 if v == "n/a" else int(v))
            median[s, tool] = statistics.median(x[0] for x in r)
            print("| %s | %s | %d | %d | %s | %s |" % (titles[s], tool, median[s, tool], max(x[1] for x in r),
                                                      worst(2), worst(3)))
    print()
    print("Goals (zib in input order against the others in the same run, and the massdns bar):")
    print()
    for s in "abcd":
        z = median.get((s, "zib"))
        if z is None:
            continue
        parts = ["zib %d names/s" % z, "/ adnshost %.1f" % (z / median[s, "adnshost"]) if (s, "adnshost") in median else "",
                 "/ massdns bar %d: %.2f" % (MASSDNS_BAR[s], z / MASSDNS_BAR[s])]
        if s == "a" and (s, "dnsperf") in median:
            parts.append("/ dnsperf -q 100: %.2f (goal 0.60)" % (z / median[s, "dnsperf"]))
        print("- %s: %s" % (s, " ".join(p for p in parts if p)))
    print()
    for value in (mem_small, mem_big):
        if value == "skipped":
            print("- zib -inflight 1000, long run: skipped")
        else:
            count, kib, secs = value.split()
            print("- zib -inflight 1000 at the default -hold_mb, %s names (%s s): peak RSS %s KiB" % (count, secs, kib))


if __name__ == "__main__":
    if sys.argv[1] == "--report":
        report(*sys.argv[2:])
    else:
        print(check(*sys.argv[1:]))
