#!/usr/bin/env python3
"""zib -iterative against a DNS tree of its own: nsd on 127.0.0.10 and up (and ::1), port 53,
inside a user and network namespace (unshare -rn), so no root is needed and nothing leaves the
machine. The tree (tests/data/tree) has a root, two TLDs and zones that make a resolver work: a
dead name server, a glueless delegation, glue from outside the zone delegated, a lame server, an
IPv6-only server, CNAME and DNAME links across zones, a loop, a reply too big for UDP. A fresh
unbound asked through the same tree is the oracle for every name it can answer.

Usage: iterative_checks.py ZIB CHECK"""
import json, os, shutil, signal, subprocess, sys, tempfile, time
HERE = os.path.dirname(os.path.abspath(__file__))
TREE = os.path.join(HERE, "..", "data", "tree")
NSD = shutil.which("nsd") or shutil.which("nsd", path="/usr/sbin:/usr/local/sbin")
UNBOUND = shutil.which("unbound") or shutil.which("unbound", path="/usr/sbin:/usr/local/sbin")
DIG = shutil.which("dig")

# Each server of the tree: its address and the zones it serves.
SERVERS = [("127.0.0.10", ["."]), ("127.0.0.11", ["test"]), ("127.0.0.12", ["other"]),
           ("127.0.0.13", ["example.test"]), ("127.0.0.15", ["hosting.other"]),
           ("127.0.0.16", ["glueless.test"]), ("127.0.0.17", ["poison.test"]), ("127.0.0.18", ["lame.test"]),
           ("::1", ["six.test"])]
ORACLE = "127.0.0.53"
NAMES = ["www.example.test", "alias.example.test", "www.dn.example.test", "nope.example.test",
         "host.glueless.test", "host.poison.test", "host.six.test", "www.example.test"]


def start(argv, work, ready):
    proc = subprocess.Popen(argv, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=open(work + ".log", "w"),
                            start_new_session=True)
    for _ in range(100):
        if proc.poll() is None and ready():
            return proc
        time.sleep(0.05)
    sys.exit("%s did not start: %s" % (argv[0], open(work + ".log").read()[-400:]))


def dig(server, name, *args):
    r = subprocess.run([DIG, "@" + server, "+time=5", "+tries=2", name] + list(args), capture_output=True, text=True)
    return r.stdout


def start_tree(work):
    procs = []
    for address, zones in SERVERS:
        w = os.path.join(work, "nsd-" + address.replace(":", "_"))
        os.mkdir(w)
        conf = os.path.join(w, "nsd.conf")
        with open(conf, "w") as f:
            f.write('server: ip-address: %s port: 53 username: "" chroot: "" database: "" server-count: 1 %s\n'
                    '  zonesdir: "%s" pidfile: "%s/pid" xfrdfile: "%s/xfrd" zonelistfile: "%s/zl" logfile: "%s/log"\n'
                    '  cookie-secret-file: "%s/cookies"\nremote-control: control-enable: no\n'
                    % (address, "do-ip4: no" if ":" in address else "do-ip6: no", TREE, w, w, w, w, w))
            for z in zones:
                f.write('zone: name: "%s" zonefile: "%s.zone"\n' % (z, "root" if z == "." else z))
        apex = zones[0]
        procs.append(start([NSD, "-d", "-c", conf], w, lambda: "SOA" in dig(address, apex, "SOA", "+norec")))
    return procs


def start_oracle(work):
    hints = os.path.join(work, "root.hints")
    with open(hints, "w") as f:
        f.write(". 3600 NS a.root.\na.root. 3600 A 127.0.0.10\n")
    conf = os.path.join(work, "unbound.conf")
    with open(conf, "w") as f:
        f.write('server:\n interface: %s\n port: 53\n username: ""\n chroot: ""\n directory: "%s"\n pidfile: ""\n'
                ' root-hints: "%s"\n do-not-query-localhost: no\n module-config: "iterator"\n'
                ' local-zone: "test." nodefault\n local-zone: "127.in-addr.arpa." nodefault\n do-ip6: yes\n'
                ' prefer-ip6: no\n harden-referral-path: no\n qname-minimisation: no\n use-syslog: no\n'
                ' logfile: "%s/unbound.log"\n verbosity: 0\n access-control: 127.0.0.0/8 allow\n'
                ' infra-host-ttl: 60\n outgoing-interface: 127.0.0.53\n outgoing-interface: ::1\n' % (ORACLE, work, hints, work))
    return start([UNBOUND, "-d", "-c", conf], os.path.join(work, "unbound"),
                 lambda: "status: NOERROR" in dig(ORACLE, "www.other", "A"))


def zib(args, stdin=""):
    r = subprocess.run([ZIB] + args.split(), input=stdin.encode(), capture_output=True, timeout=60)
    return r.returncode, r.stdout.decode(), r.stderr.decode()


def names(args, stdin):
    code, out, err = zib("-url_pipe -iterative -roots %s -json_names -timeout_ms 300 %s" % (ROOTS, args), stdin)
    if code != 0 and "-strict_exit" not in args:
        fail("zib ended with %d: %s" % (code, err))
    return [json.loads(line) for line in out.splitlines()], err


FAILURES = []


def fail(message):
    FAILURES.append(message)
    print("FAIL: " + message)


def records(section):
    return sorted((r["name"].lower().rstrip("."), r["type_name"], r["rdata"]) for r in section)


def oracle_records(name, qtype):
    out = dig(ORACLE, name, qtype, "+noall", "+answer", "+comments")
    rcode = out.split("status: ")[1].split(",")[0] if "status: " in out else "none"
    rows = []
    for line in out.splitlines():
        if line and not line.startswith(";"):
            owner, _ttl, _klass, rtype, data = line.split(None, 4)
            rows.append((owner.lower().rstrip("."), rtype, data.strip()))
    return rcode, sorted(rows)


def check_oracle():
    """Every name's rcode and answer records as unbound gives them through the same tree."""
    for qtype, batch in [("A", NAMES), ("AAAA", ["www.example.test"]), ("MX", ["mail.example.test", "www.example.test"]),
                         ("TXT", ["big.example.test"])]:
        got, _ = names("-qtype %s -inflight 4" % qtype, "\n".join(batch) + "\n")
        for name, obj in zip(batch, got):
            rcode, want = oracle_records(name, qtype)
            mine = records(obj["answer"])
            # zib writes rdata as dig does for these types; a TXT's strings are compared joined.
            if qtype == "TXT":
                mine = [(n, t, d.replace('" "', "")) for n, t, d in mine]
                want = [(n, t, d.replace('" "', "")) for n, t, d in want]
            if obj["rcode"] != rcode or mine != want:
                fail("%s %s: zib %s %s, unbound %s %s" % (name, qtype, obj["rcode"], mine, rcode, want))
        if qtype == "TXT" and got and got[0].get("transport") != "tcp":
            fail("big.example.test TXT did not end over TCP: %s" % got[0].get("transport"))


def check_resolution():
    """What a resolver must get right beyond the answers: the server that gave the last word, a
    loop, glue from outside the zone never kept, queries shared, the cache, the limits."""
    got, _ = names("-trace", "www.example.test\nloop1.example.test\nwww.example.test\nhost.lame.test\n")
    first, loop, again, lame = got
    if first["server"] != "127.0.0.13" or first["outcome"] != "answered":
        fail("www.example.test: server %s outcome %s" % (first["server"], first["outcome"]))
    steps = [s["led_to"] for s in first["trace"]]
    if steps[:2] != ["referral to test.", "referral to example.test."] or steps[-1] != "answer":
        fail("www.example.test trace: %s" % steps)
    if loop["outcome"] != "failed" or "loop" not in loop.get("reason", ""):
        fail("loop1.example.test: %s %s" % (loop["outcome"], loop.get("reason")))
    # unbound's answer for it comes and goes: the lame server is checked here, not against it.
    if [r["rdata"] for r in lame["answer"]] != ["192.0.2.3"] or not any(
            s["led_to"].startswith("lame") for s in lame["trace"]):
        fail("host.lame.test: %s" % lame)
    if again["queries"] != 0:
        fail("a name asked again took %d queries, not its cached answer" % again["queries"])
    # The glue of poison.test named www.example.test 192.0.2.66: asked after it, the name has
    # its own address.
    got, _ = names("", "host.poison.test\nwww.example.test\n")
    if [r["rdata"] for r in got[1]["answer"]] != ["127.0.0.17"]:
        fail("glue from outside poison.test was kept: %s" % got[1]["answer"])
    # Names under one zone at once share the queries above it.
    batch = "".join("n%d.other\n" % i for i in range(40))
    stats = os.path.join(WORK, "stats.json")
    got, _ = names("-inflight 40 -stats_json " + stats, batch)
    sent = json.load(open(stats))["iterative"]["queries"]
    if len(got) != 40 or any(o["rcode"] != "NXDOMAIN" for o in got) or sent != 41:
        fail("40 names under other.: %d results, %d queries" % (len(got), sent))
    # A name that cannot end in time fails with its reason; the rows of the text report name the
    # server of the last word.
    got, _ = names("-name_timeout_ms 100 -timeout_ms 1000", "host.example.test\n")
    if got[0]["outcome"] != "failed" or got[0].get("reason") != "more than -name_timeout_ms":
        fail("-name_timeout_ms: %s" % got[0])
    code, out, _ = zib("-url www.example.test -iterative -roots %s -csv" % ROOTS)
    if code != 0 or ",127.0.0.13," not in out or "127.0.0.17" not in out:
        fail("the CSV row of www.example.test: %r" % out)


def check_command_line():
    hints = os.path.join(WORK, "bad.hints")
    with open(hints, "w") as f:
        f.write(". NS a.root.\na.root. A 127.0.0.10\nnot a hint\n")
    for args, message in [("-iterative -server 127.0.0.1", "use -iterative without -server, -server6 or -resolvers"),
                          ("-iterative -roots " + hints, "roots file %s, line 3: neither an address nor a root hint" % hints),
                          ("-server 127.0.0.1 -trace", "-roots, -trace, -cache_mb and -name_timeout_ms need -iterative"),
                          ("-iterative -cache_mb 0", "invalid cache_mb: 0")]:
        code, out, err = zib("-url www.example.test " + args)
        if code != 255 or message not in err:
            fail("%s: exit %d, %r" % (args, code, err))


def main():
    global ZIB, WORK, ROOTS
    ZIB, check = os.path.abspath(sys.argv[1]), sys.argv[2]
    if not NSD or not DIG or (check == "oracle" and not UNBOUND):
        print("skipped: nsd, dig or unbound is not here")
        sys.exit(77)
    if os.environ.get("ZIB_IN_NAMESPACE") != "1":
        env = dict(os.environ, ZIB_IN_NAMESPACE="1")
        try:
            sys.exit(subprocess.run(["unshare", "-rn", sys.executable] + sys.argv, env=env).returncode)
        except OSError:
            sys.exit(77)
    if subprocess.run(["ip", "link", "set", "lo", "up"]).returncode != 0:
        print("skipped: no network namespace of our own here")
        sys.exit(77)
    WORK = tempfile.mkdtemp(prefix="zib-tree.")
    ROOTS = os.path.join(WORK, "roots")
    with open(ROOTS, "w") as f:
        f.write("127.0.0.10\n")
    procs = []
    try:
        if check != "command_line":
            procs = start_tree(WORK)
        if check == "oracle":
            procs.append(start_oracle(WORK))
        {"oracle": check_oracle, "resolution": check_resolution, "command_line": check_command_line}[check]()
    finally:
        for p in procs:
            os.killpg(p.pid, signal.SIGTERM)
            p.wait(10)
        shutil.rmtree(WORK, ignore_errors=True)
    sys.exit(1 if FAILURES else 0)


if __name__ == "__main__":
    main()
