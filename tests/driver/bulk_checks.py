#!/usr/bin/env python3
"""What -inflight promises beyond a table row: input order whatever the replies' order, memory
and descriptors bounded behind a name that never answers, -qps holding its rate, a stop signal
leaving whole rows (XML and JSON), and GNU parallel splitting a list with the rows of one run.

    bulk_checks.py ZIB CHECK [--sanitized]      (exit 77: skipped)"""
import json, os, random, re, shutil, signal, subprocess, sys, time
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from zibtest import Responder, act, mask, reply, rr, run_zib

A = reply([rr(1, bytes([192, 0, 2, 1]))])
NAMES = lambda count: ["n%d.test" % i for i in range(count)]


def zib_args(responder, *extra):
    return ["-url_pipe", "-server", "127.0.0.1", "-port", str(responder.port), "-csv"] + list(extra)


def order(zib):
    """Replies delayed at random by up to 0.3 s arrive shuffled; rows leave in input order."""
    shuffle = random.Random(13)
    responder = Responder(cycle=[act(A, delay=shuffle.random() * 0.3) for _ in range(97)])
    status, out, _ = run_zib(zib, zib_args(responder, "-inflight", "16"), "".join(n + "\n" for n in NAMES(120)).encode())
    responder.close()
    rows = [line.split(",")[0] for line in out.decode().splitlines()[2:]]
    return status == 0 and rows == [n + "." for n in NAMES(120)], "%d rows" % len(rows)


def head_of_line(zib, memory):
    """The first name never gets a reply; while it waits, only the names that fit the ring of 50
    start, whatever follows, and descriptors and memory stay bounded; then the rest goes through."""
    never = lambda query: None if b"\x05never" in query else A(query)
    responder = Responder(cycle=[never])
    names = ["never.test"] + NAMES(5000)
    p = subprocess.Popen(["zib"] + zib_args(responder, "-inflight", "50", "-timeout_ms", "1500"), executable=zib,
                         stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    p.stdin.write("".join(n + "\n" for n in names).encode())  # fits in the pipe: zib reads it slowly
    p.stdin.close()
    peak_fds = peak_kib = 0
    deadline = time.monotonic() + 1.2
    while time.monotonic() < deadline:
        try:
            peak_fds = max(peak_fds, len(os.listdir("/proc/%d/fd" % p.pid)))
            with open("/proc/%d/status" % p.pid) as f:
                peak_kib = max([peak_kib] + [int(l.split()[1]) for l in f if l.startswith("VmHWM")])
        except OSError:  # no /proc here: nothing to sample
            pass
        time.sleep(0.02)
    asked_while_stalled = len(responder.queries)
    out = p.stdout.read()
    p.wait(timeout=60)
    responder.close()
    rows = [line.split(",")[0] for line in out.decode().splitlines()[2:]]
    bounded = asked_while_stalled == 50 and peak_fds <= 50 + 8 and (not memory or peak_kib < 16384)
    return (bounded and p.returncode == 0 and rows == ["never.test"] + [n + "." for n in names[1:]],
            "asked %d while stalled, peak %d descriptors, %d KiB" % (asked_while_stalled, peak_fds, peak_kib))


def qps(zib):
    """-qps 20 spreads 30 queries over 1.45 s, sequentially and in flight alike."""
    results = []
    for mode in ([], ["-inflight", "8"]):
        responder = Responder(cycle=[A])
        status, _, _ = run_zib(zib, zib_args(responder, "-qps", "20", *mode), "".join(n + "\n" for n in NAMES(30)).encode())
        responder.close()
        t = responder.times
        gaps_ok = all(t[i + 10] - t[i] >= 0.45 for i in range(len(t) - 10))  # 10 intervals of 0.05 s
        results.append(status == 0 and len(t) == 30 and gaps_ok and t[-1] - t[0] < 3)
    return all(results), "sequential, in flight: %s" % results


def entries_of(out, fmt):
    """The names of the whole entries a stopped run wrote, in order, or None when anything else is
    there: a cut line, a missing end of document, a JSON line out of its place."""
    if fmt == "-xml":
        lines = out.decode().splitlines()
        found = [re.match(r"<data_entry><query>(.*?)\.</query>.*</data_entry>$", l) for l in lines[4:-1]]
        return [m.group(1) for m in found] if lines[-1:] == ["</logdata>"] and all(found) else None
    if not out.endswith(b"\n"):
        return None
    try:
        objects = [json.loads(l) for l in out.decode().splitlines()]
    except ValueError:
        return None
    in_place = all(o["line"] == i + 1 and o["attempt"] == 1 for i, o in enumerate(objects))
    return [o["asked"] for o in objects] if in_place else None


def interrupt(zib):
    """SIGINT in flight, SIGTERM one at a time, in XML and in JSON Lines: whole entries of the
    first names only, the document closed, exit 130 or 143 even with -strict_exit."""
    results = []
    for fmt, mode, sig, code in (("-xml", ["-inflight", "16"], signal.SIGINT, 130),
                                 ("-xml", [], signal.SIGTERM, 143),
                                 ("-json", ["-inflight", "16", "-strict_exit"], signal.SIGINT, 130),
                                 ("-json", ["-strict_exit"], signal.SIGTERM, 143)):
        responder = Responder(cycle=[act(A, delay=0.05)])
        p = subprocess.Popen(["zib"] + zib_args(responder, fmt, *mode), executable=zib, stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        p.stdin.write("".join(n + "\n" for n in NAMES(400)).encode())
        p.stdin.flush()
        time.sleep(0.8)
        p.send_signal(sig)
        out, _ = p.communicate(timeout=30)  # closes its standard input
        responder.close()
        names = entries_of(out, fmt)
        results.append(p.returncode == code and names is not None and 0 < len(names) < 400 and names == NAMES(len(names)))
    return all(results), "XML in flight, one at a time; JSON the same: %s" % results


def parallel(zib):
    """Four jobs of GNU parallel give the rows of one run, in order, apart from their headers."""
    if not shutil.which("parallel"):
        return None, "GNU parallel is not installed"
    responder = Responder(cycle=[A])
    names = "".join(n + "\n" for n in NAMES(600)).encode()
    rows = lambda out: mask(out.decode(), responder.port).splitlines()[2:]
    _, one, _ = run_zib(zib, zib_args(responder, "-inflight", "20"), names)
    split = subprocess.run(["parallel", "--pipe", "-k", "-j4", "--block", "2k", zib] + zib_args(responder, "-inflight", "20"),
                           input=names, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, timeout=120)
    responder.close()
    parts = [l for l in mask(split.stdout.decode(), responder.port).splitlines() if not l.startswith(("zib ", "query,"))]
    return split.returncode == 0 and parts == rows(one) and len(parts) == 600, "%d rows from the jobs" % len(parts)


def main():
    zib, check = sys.argv[1], sys.argv[2]
    run = {"order": order, "qps": qps, "interrupt": interrupt, "parallel": parallel,
           "head_of_line": lambda z: head_of_line(z, memory="--sanitized" not in sys.argv)}[check]
    ok, detail = run(zib)
    print("%s: %s (%s)" % (check, {True: "ok", False: "FAILED", None: "skipped"}[ok], detail))
    sys.exit(77 if ok is None else 0 if ok else 1)


if __name__ == "__main__":
    main()
