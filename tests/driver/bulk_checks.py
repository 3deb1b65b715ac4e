#!/usr/bin/env python3
"""What -inflight promises beyond a table row: input order whatever the replies' order, memory
and descriptors bounded behind a name that never answers, -qps holding its rate, a stop signal
leaving whole rows (XML and JSON), and GNU parallel splitting a list with the rows of one run;
and where the status line is drawn.

    bulk_checks.py ZIB CHECK [--sanitized]      (exit 77: skipped)"""
import json, os, pty, random, re, shutil, signal, subprocess, sys, tempfile, threading, time
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from zibtest import Responder, act, mask, reply, rr, run_zib

A = reply([rr(1, bytes([192, 0, 2, 1]))])
NAMES = lambda count: ["n%d.test" % i for i in range(count)]


def zib_args(responder, *extra):
    return ["-url_pipe", "-server", "127.0.0.1", "-port", str(responder.port), "-csv"] + list(extra)


def order(zib):
    """Replies delayed at random by up to 0.1 s arrive shuffled; rows leave in input order, and
    with -unordered the same rows leave in completion order."""
    runs = {}
    for mode in ([], ["-unordered"]):
        shuffle = random.Random(13)
        responder = Responder(cycle=[act(A, delay=shuffle.random() * 0.1) for _ in range(97)])
        status, out, _ = run_zib(zib, zib_args(responder, "-inflight", "16", *mode), "".join(n + "\n" for n in NAMES(300)).encode())
        responder.close()
        runs[" ".join(mode)] = (status, [line.split(",")[0] for line in out.decode().splitlines()[2:]])
    (status, rows), (status_u, rows_u) = runs[""], runs["-unordered"]
    in_order = [n + "." for n in NAMES(300)]
    return (status == status_u == 0 and rows == in_order and sorted(rows_u) == sorted(in_order) and rows_u != in_order,
            "%d rows in order, %d in completion order" % (len(rows), len(rows_u)))


def head_of_line(zib, memory):
    """The first name never gets a reply; while it waits, the names after it are asked and
    finish, until their held rows reach -hold_mb; descriptors and memory stay bounded; then every
    row comes out in input order."""
    never = lambda query: None if b"\x05never" in query else A(query)
    results = []
    # Sanitized builds run several times slower: the first name's wait is longer there. The
    # responder answers a few thousand queries a second on a quiet machine, half that on a
    # busy one: the wait leaves room for all 5,000.
    slow = 1 if memory else 3
    for count, hold, stall, asked_ok in ((5000, [], 12 * slow, lambda n: n == 5001),
                                         (12000, ["-hold_mb", "1"], 4, lambda n: 1000 < n < 11000)):
        responder = Responder(cycle=[never])
        names = ["never.test"] + NAMES(count)
        p = subprocess.Popen(["zib"] + zib_args(responder, "-inflight", "50", "-timeout", str(stall), *hold),
                             executable=zib, stdin=subprocess.PIPE, stdout=subprocess.PIPE)
        feeder = threading.Thread(target=lambda: (p.stdin.write("".join(n + "\n" for n in names).encode()), p.stdin.close()))
        out = []
        reader = threading.Thread(target=lambda: out.append(p.stdout.read()))
        feeder.start()
        reader.start()
        peak_fds = peak_kib = 0
        deadline = time.monotonic() + 60
        while p.poll() is None and time.monotonic() < deadline:
            try:
                peak_fds = max(peak_fds, len(os.listdir("/proc/%d/fd" % p.pid)))
                with open("/proc/%d/status" % p.pid) as f:
                    peak_kib = max([peak_kib] + [int(l.split()[1]) for l in f if l.startswith("VmHWM")])
            except OSError:  # no /proc here, or the run just ended: nothing to sample
                pass
            time.sleep(0.02)
        p.wait(timeout=60)
        feeder.join()
        reader.join()
        responder.close()
        # never.test goes out first; the names asked before its wait ran out were asked past it.
        asked_while_stalled = sum(1 for t in responder.times if t < responder.times[0] + stall - 0.1)
        rows = [line.split(",")[0] for line in out[0].decode().splitlines()[2:]]
        bounded = asked_ok(asked_while_stalled) and peak_fds <= 16 and (not memory or peak_kib < 16384)
        results.append((bounded and p.returncode == 0 and rows == ["never.test"] + [n + "." for n in names[1:]],
                        "asked %d of %d while stalled, peak %d descriptors, %d KiB" % (asked_while_stalled, count + 1, peak_fds, peak_kib)))
    return all(ok for ok, _ in results), "; ".join(detail for _, detail in results)


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


def entries_of(out, fmt, first_line=1):
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
    in_place = all(o["line"] == first_line + i and o["attempt"] == 1 for i, o in enumerate(objects))
    return [o["asked"] for o in objects] if in_place else None


def entries_in_file(data, fmt):
    """The names of a results file that a stopped run began and a resumed run (-append) finished,
    or None when anything else is there: a second heading, a cut or misplaced line."""
    lines = data.decode().split("\r\n" if fmt == "-rfc4180" else "\n")
    if fmt == "-rfc4180":
        if lines[0] != "query,comment,status,id,DNSserv,date,time-UTC,type,tname,class,ttl,size,data" or lines[-1] != "":
            return None
        rows = [l.split(",") for l in lines[1:-1]]
        return [r[0][:-1] for r in rows] if all(len(r) == 13 and r[1] == "answer" for r in rows) else None
    try:
        objects = [json.loads(l) for l in lines[:-1]]
    except ValueError:
        return None
    in_place = lines[-1] == "" and all(o["line"] == i + 1 for i, o in enumerate(objects))
    return [o["asked"] for o in objects] if in_place else None


def resume_into_file(zib, fmt, mode, sig, code):
    """A run into a results file stopped, then resumed with the words of its own hint: the file
    holds every name once, under one heading."""
    with tempfile.TemporaryDirectory(prefix="zib-resume-") as work:
        path = os.path.join(work, "results")
        responder = Responder(cycle=[act(A, delay=0.05)])
        names = "".join(n + "\n" for n in NAMES(400)).encode()
        p = subprocess.Popen(["zib"] + zib_args(responder, fmt, "-out", path, *mode), executable=zib,
                             stdin=subprocess.PIPE, stderr=subprocess.PIPE)
        p.stdin.write(names)
        p.stdin.flush()
        time.sleep(0.8)
        p.send_signal(sig)
        _, err = p.communicate(timeout=30)
        responder.close()
        hint = re.search(rb"stopped: to resume, add (-skip_lines \d+ -append)\n", err)
        if p.returncode != code or not hint:
            return False
        with open(path, "rb") as f:
            first = entries_in_file(f.read(), fmt)
        responder = Responder(cycle=[A])
        status = run_zib(zib, zib_args(responder, fmt, "-out", path, *mode) + hint.group(1).decode().split(), names)[0]
        responder.close()
        with open(path, "rb") as f:
            whole = entries_in_file(f.read(), fmt)
        return status == 0 and first is not None and 0 < len(first) < 400 and whole == NAMES(400)


def interrupt(zib):
    """SIGINT in flight, SIGTERM one at a time, in XML and in JSON Lines: whole entries of the
    first names only, the document closed, exit 130 or 143 even with -strict_exit, and a line
    saying how to go on; going on with -skip_lines asks the rest, so both parts hold every name
    once."""
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
        out, err = p.communicate(timeout=30)  # closes its standard input
        responder.close()
        names = entries_of(out, fmt)
        resume = re.search(rb"stopped: to resume, add -skip_lines (\d+)\n", err)
        first = p.returncode == code and names is not None and 0 < len(names) < 400 and names == NAMES(len(names))
        if not (first and resume):
            results.append(False)
            continue
        responder = Responder(cycle=[A])
        status, rest, _ = run_zib(zib, zib_args(responder, fmt, "-skip_lines", resume.group(1).decode(), *mode),
                                  "".join(n + "\n" for n in NAMES(400)).encode())
        responder.close()
        results.append(status == 0 and names + (entries_of(rest, fmt, int(resume.group(1)) + 1) or []) == NAMES(400))
    results += [resume_into_file(zib, "-json_names", ["-inflight", "16"], signal.SIGINT, 130),
                resume_into_file(zib, "-rfc4180", [], signal.SIGTERM, 143)]
    return all(results), "XML in flight, one at a time; JSON the same; into a file, -json_names, -rfc4180: %s" % results


def progress(zib):
    """Names read from a file: the status line tells the share of the file done and the time left;
    resumed with -skip_lines, the lines skipped count as done from the first status line on."""
    results = []
    for skip, first_share in ((0, 0), (30, 49)):  # 260 of the 530 bytes
        responder = Responder(cycle=[act(A, delay=0.1)])
        with tempfile.TemporaryFile() as names:
            names.write("".join(n + "\n" for n in NAMES(60)).encode())
            names.seek(0)
            status, _, err = run_zib(zib, zib_args(responder, "-inflight", "4", "-progress", "-skip_lines", str(skip)), names)
        responder.close()
        shares = re.findall(rb"(\d+)% of the input(, about \d+ s left)?", err)
        results.append(status == 0 and len(shares) > 2 and any(left for _, left in shares) and
                       int(shares[0][0]) == first_share and all(int(n) <= 100 for n, _ in shares))
    return all(results), "from the top, after 30 of 60 lines: %s" % results


def terminal(zib):
    """The status line on a terminal: drawn while the rows go elsewhere, never over rows on the
    same terminal, unless -progress asks for it."""
    results = []
    for shared, extra, drawn in ((False, [], True), (True, [], False), (True, ["-progress"], True)):
        try:
            master, tty = pty.openpty()
        except OSError as e:
            return None, "no pseudo-terminal here (%s)" % e.strerror
        responder = Responder(cycle=[act(A, delay=0.1)])
        p = subprocess.Popen(["zib"] + zib_args(responder, *extra), executable=zib, stdin=subprocess.PIPE,
                             stdout=tty if shared else subprocess.DEVNULL, stderr=tty)
        os.close(tty)
        p.communicate("".join(n + "\n" for n in NAMES(6)).encode(), timeout=60)
        responder.close()
        seen = b""
        while True:
            try:
                chunk = os.read(master, 65536)  # the rows and lines are far under the terminal's buffer
            except OSError:  # EIO: the terminal is closed on the other side and empty
                break
            if not chunk:
                break
            seen += chunk
        os.close(master)
        results.append(p.returncode == 0 and (b"names/s" in seen) == drawn)
    return all(results), "rows elsewhere, rows on the terminal, and with -progress: %s" % results


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
    run = {"order": order, "qps": qps, "terminal": terminal, "interrupt": interrupt, "parallel": parallel, "progress": progress,
           "head_of_line": lambda z: head_of_line(z, memory="--sanitized" not in sys.argv)}[check]
    ok, detail = run(zib)
    print("%s: %s (%s)" % (check, {True: "ok", False: "FAILED", None: "skipped"}[ok], detail))
    sys.exit(77 if ok is None else 0 if ok else 1)


if __name__ == "__main__":
    main()
