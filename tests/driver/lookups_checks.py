#!/usr/bin/env python3
"""-qtypes and -cidr against nsd (the zones of tests/data, as interop.py serves them): each
(name, type) block equals the -qtype run of that type, and each address of a range the -ip or
-ip6 run of that address, which the interop test holds to dig; the PTR records of a range are
dig -x's. Bad ranges are bad names; a /8 runs in flat memory; a stopped run resumed by its hint
holds every lookup once.

Usage: lookups_checks.py ZIB CHECK"""
import ipaddress, json, os, signal, subprocess, sys, tempfile, time
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
import interop

NAMES = "www.example.test\nmail.example.test\nnope.example.test\nexample.test\n"
FAILURES = []


def fail(message):
    FAILURES.append(message)
    print("FAIL: " + message)


def zib(args, stdin=""):
    r = subprocess.run([ZIB] + args.split() + ["-server", "127.0.0.1", "-port", str(PORT)], input=stdin.encode(),
                       capture_output=True, timeout=120)
    return r.returncode, r.stdout.decode(), r.stderr.decode()


def objects(args, stdin=""):
    code, out, err = zib("-json_names -retry 1 -timeout_ms 500 " + args, stdin)
    if code != 0:
        fail("%s: exit %d %s" % (args, code, err))
    return [json.loads(line) for line in out.splitlines()]


def comparable(o):
    return (o["line"], o["asked"], o["type_name"], o["outcome"], o["rcode"],
            sorted(json.dumps(r, sort_keys=True) for r in o["answer"]))


def check_types():
    types = ["A", "AAAA", "MX"]
    single = {t: objects("-url_pipe -qtype " + t, NAMES) for t in types}
    want = [comparable(single[t][i]) for i in range(4) for t in types]
    for mode in ["", "-inflight 8", "-inflight 8 -unordered"]:
        got = [comparable(o) for o in objects("-url_pipe -qtypes A,AAAA,MX " + mode, NAMES)]
        if (sorted(got) if "unordered" in mode else got) != (sorted(want) if "unordered" in mode else want):
            fail("-qtypes %s: %s" % (mode, got))
    # The text report: each block the rows of its -qtype run, names in order.
    code, out, _ = zib("-url www.example.test -qtypes MX,A -csv")
    blocks = [zib("-url www.example.test -qtype %s -csv" % t)[1] for t in ("MX", "A")]
    # Past the run header: every column but the ID and the times.
    rows = lambda text: [(f[:3] + f[7:]) for f in (line.split(",") for line in text.splitlines()[1:])]
    if rows(out) != rows(blocks[0]) + rows(blocks[1])[1:]:
        fail("-qtypes MX,A rows: %r" % out)
    for args, message in [("-qtype A -qtypes MX", "use -qtype or -qtypes, not both"),
                          ("-qtypes A,BOGUS", "invalid qtypes: A,BOGUS"), ("-qtypes ''", "invalid qtypes")]:
        code, _, err = zib("-url www.example.test " + args)
        if code != 255 or message not in err:
            fail("%s: exit %d %r" % (args, code, err))


def dig_x(address):
    r = subprocess.run([interop.DIG, "@127.0.0.1", "-p", str(PORT), "+short", "+time=1", "-x", address],
                       capture_output=True, text=True, timeout=10)
    return r.stdout.split()


def check_ranges():
    got = objects("-ip_pipe -cidr -inflight 16", "192.0.2.0/28\n192.0.2.16/33\n192.0.2.1/24\n")
    if [o["asked"] for o in got[:16]] != ["192.0.2.%d" % i for i in range(16)] or any(o["line"] != 1 for o in got[:16]):
        fail("/28 addresses: %s" % [o["asked"] for o in got[:16]])
    for o in got[:16]:
        want = dig_x(o["asked"])
        if sorted(r["rdata"] for r in o["answer"]) != sorted(want):
            fail("%s: %s, dig -x %s" % (o["asked"], o["answer"], want))
    bad = [(o["line"], o["outcome"], o.get("reason")) for o in got[16:]]
    if bad != [(2, "bad name", "prefix out of range"), (3, "bad name", "host bits set beyond the prefix")]:
        fail("bad ranges: %s" % bad)
    got = objects("-ip6_pipe -cidr", "2001:db8::/124\n2001:db8::/96\n")
    if [o["asked"] for o in got[:16]] != [str(ipaddress.ip_address("2001:db8::") + i) for i in range(16)] or got[16].get("outcome") != "bad name":
        fail("/124: %s" % [o["asked"] for o in got])
    for o in got[:16]:
        want = dig_x(o["asked"])
        if sorted(r["rdata"] for r in o["answer"]) != sorted(want):
            fail("%s: %s, dig -x %s" % (o["asked"], o["answer"], want))


def rss_kib(pid):
    with open("/proc/%d/status" % pid) as f:
        return int([l for l in f if l.startswith("VmRSS")][0].split()[1])


def check_big_range():
    """A /8 is produced as it is asked: memory after 2,000 lookups and after many more alike."""
    out = tempfile.TemporaryFile()
    p = subprocess.Popen([ZIB, "-ip", "10.0.0.0/8", "-cidr", "-inflight", "200", "-csv", "-timeout_ms", "200",
                          "-server", "127.0.0.1", "-port", str(PORT)], stdout=out, stderr=subprocess.DEVNULL)
    samples = []
    for _ in range(40):
        time.sleep(0.25)
        out.seek(0, 2)
        if out.tell() > 200000 and not samples:
            samples.append((out.tell(), rss_kib(p.pid)))
    samples.append((out.tell(), rss_kib(p.pid)))
    p.send_signal(signal.SIGINT)
    p.wait(10)
    (b0, r0), (b1, r1) = samples[0], samples[-1]
    grew = r1 > r0 + 4096 and "--sanitized" not in sys.argv  # the sanitizer's quarantine grows by design
    if b1 < 4 * b0 or grew:
        fail("/8: %d KiB at %d bytes written, %d KiB at %d" % (r0, b0, r1, b1))


def check_resume():
    """Stopped, then resumed as the hint says: every lookup once."""
    stdin = "".join("192.0.2.%d/30\n" % (4 * i) for i in range(40))
    work = tempfile.mkdtemp()
    path = os.path.join(work, "out.jsonl")
    for first in (True, False):
        args = "-ip_pipe -cidr -qtypes PTR,TXT -json_names -inflight 4 -qps 400 -out " + path
        if not first:
            args += " -skip_lines %s -append" % skip
        p = subprocess.Popen([ZIB] + args.split() + ["-server", "127.0.0.1", "-port", str(PORT)], stdin=subprocess.PIPE,
                             stderr=subprocess.PIPE)
        p.stdin.write(stdin.encode())
        p.stdin.close()
        if first:
            time.sleep(0.3)
            p.send_signal(signal.SIGINT)
        err = p.stderr.read().decode()
        p.wait(30)
        if first:
            skip = err.split("-skip_lines ")[1].split()[0]
    lookups = [(o["asked"], o["type_name"]) for o in map(json.loads, open(path))]
    want = [("192.0.2.%d" % a, t) for a in range(160) for t in ("PTR", "TXT")]
    if sorted(lookups) != sorted(want) or len(set(lookups)) != len(lookups):
        fail("resumed after line %s: %d lookups, %d distinct, %d wanted" % (skip, len(lookups), len(set(lookups)), len(want)))


def main():
    global ZIB, PORT
    ZIB, check = os.path.abspath(sys.argv[1]), sys.argv[2]
    if not interop.NSD or not interop.DIG:
        print("skipped: nsd or dig is not here")
        sys.exit(77)
    work = tempfile.mkdtemp(prefix="zib-lookups.")
    nsd, PORT = interop.start_nsd(work, True)
    try:
        {"types": check_types, "ranges": check_ranges, "big_range": check_big_range, "resume": check_resume}[check]()
    finally:
        interop.stop_nsd(nsd)
    sys.exit(1 if FAILURES else 0)


if __name__ == "__main__":
    main()
