#!/usr/bin/env python3
"""zib against a real authoritative server: Debian's nsd, run as the current user on 127.0.0.1 (and
::1 where the system has it) at a port picked here, serving the zones of tests/data. dig, asked the
same questions, is the oracle for every record zib decodes; the masked reports are compared with
expected/interop.expected. Every record of records.test.zone, and a few that nsd will not serve
as they are, is asked with -qtype and -json: its "rdata" must be dig +short's line, and
-presentation must show the same text in the text, CSV and XML reports.

    interop.py ZIB [--update]"""
import difflib, html, ipaddress, json, os, re, shutil, signal, socket, subprocess, sys, tempfile, time
HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "support"))
from zibtest import DATA, Responder, golden, mask, name, reply, rr, run_zib

NSD = shutil.which("nsd") or shutil.which("nsd", path="/usr/sbin:/usr/local/sbin")
DIG = shutil.which("dig")
CONF = """server: ip-address: 127.0.0.1 {ip6} port: {port} username: "" chroot: "" database: "" server-count: 1
  ipv4-edns-size: 4096 ipv6-edns-size: 4096
  zonesdir: "{w}" pidfile: "{w}/nsd.pid" xfrdfile: "{w}/xfrd.state" xfrdir: "{w}" zonelistfile: "{w}/zone.list"
  cookie-secret-file: "{w}/cookies" logfile: "{w}/nsd.log"
remote-control: control-enable: no
zone: name: example.test zonefile: "{data}/example.test.zone"
zone: name: 2.0.192.in-addr.arpa zonefile: "{data}/2.0.192.in-addr.arpa.zone"
zone: name: records.test zonefile: "{data}/records.test.zone"
zone: name: big.test zonefile: "{data}/big.test.zone"
zone: name: 8.b.d.0.1.0.0.2.ip6.arpa zonefile: "{data}/8.b.d.0.1.0.0.2.ip6.arpa.zone"
"""
PIPED = "www.example.test\nalias.example.test\nnope.example.test\n"
# (zib's arguments before -server, standard input, the questions dig is asked: name and type)
CASES = [
    ("-url www.example.test -csv", "", [("www.example.test", "A")]),
    ("-url alias.example.test -csv", "", [("alias.example.test", "A")]),  # CNAME chain, then the A
    ("-url host.sub.example.test -csv", "", [("host.sub.example.test", "A")]),  # referral: no answer
    ("-url nope.example.test -csv", "", [("nope.example.test", "A")]),  # NXDOMAIN and the SOA
    ("-ip 192.0.2.10 -csv", "", [("10.2.0.192.in-addr.arpa", "PTR")]),
    ("-mx example.test -csv", "", [("example.test", "MX")]),
    ("-ns example.test -csv", "", [("example.test", "NS")]),
    ("-cname alias.example.test -csv", "", [("alias.example.test", "CNAME")]),
    ("-cname www.example.test -csv", "", [("www.example.test", "CNAME")]),  # no answer, no question row
    ("-txt example.test -csv", "", [("example.test", "TXT")]),
    ("-url www.example.test -qtype AAAA -csv", "", [("www.example.test", "AAAA")]),
    ("-url example.test -qtype soa -csv", "", [("example.test", "SOA")]),
    ("-url_pipe -csv", PIPED, [(n, "A") for n in PIPED.split()]),
    ("-url_pipe", PIPED, []),
    ("-url_pipe -xml", PIPED, []),
    ("-url_pipe -json", PIPED, []),  # each object's rcode and flags checked against dig's header
    ("-txt txt820.big.test -tcp -csv -stats", "", []),  # its rows: TRANSPORT below
]
IP6_PIPED = "2001:DB8::10\n2001:0db8:0:0:0:0:0:53\n2001:db8:0:1:abcd:ef01:2345:6789\n::ffff:192.0.2.1\n"
# Answers too large for 512 bytes (txt820, many: 60 addresses) or for 1,232 (txt1500), and
# ip6.arpa names, asked with -json: (zib's arguments, standard input, and per attempt of a name
# its transport and dig's options for the same question, whose reply that attempt's rows show).
# "@6" asks nsd on ::1 with -server6.
NOEDNS_TC = [("udp", "+noedns +ignore"), ("tcp", "+noedns +tcp")]
TRANSPORT = [
    ("-txt txt820.big.test -tcp", "", NOEDNS_TC),
    ("-txt txt820.big.test -edns 4096", "", [("udp", "+bufsize=4096 +ignore")]),
    ("-txt txt1500.big.test -edns 4096", "", [("udp", "+bufsize=4096 +ignore")]),
    ("-txt txt1500.big.test -dnssec -tcp", "", [("udp", "+dnssec +bufsize=1232 +ignore"), ("tcp", "+dnssec +tcp")]),
    ("-txt txt1500.big.test -tcp_only", "", [("tcp", "+noedns +tcp")]),
    ("-url many.big.test -tcp", "", NOEDNS_TC),
    ("-url many.big.test -edns 4096 -dnssec", "", [("udp", "+bufsize=4096 +dnssec +ignore")]),
    ("-url many.big.test -tcp_only", "", [("tcp", "+noedns +tcp")]),
    ("-txt txt1500.big.test -tcp @6", "", NOEDNS_TC),
    ("-url many.big.test -edns 4096 @6", "", [("udp", "+bufsize=4096 +ignore")]),
    ("-ip6 2001:db8::10", "", [("udp", "+noedns")]),
    ("-ip6_pipe -tcp_only", IP6_PIPED, [("tcp", "+noedns +tcp")]),
]


# (owner, type code, data) of records served by the script: an NSEC3 record, which nsd keeps
# apart, and data that does not read as its type, which dig then shows as nothing at all.
SCRIPTED = [
    ("2t7b4g4vsa5smi47k61mv5bv1a22bojr.records.test", 50,
     bytes.fromhex("0101000c04aabbccdd14") + bytes(range(20)) + bytes.fromhex("0006400000000002")),
    ("short.records.test", 1, b"\x0a\x00\x00"),  # an address one byte short
    ("short.records.test", 15, b"\x00\x0a\x04mail"),  # a name that runs past the data
    ("short.records.test", 16, b"\x03abc\x05de"),  # a string that runs past the data
    ("short.records.test", 29, b"\x01" + bytes(15)),  # LOC of an unknown version
    ("short.records.test", 47, name("next.test") + b"\x00\x01\x00"),  # bitmap ending in a zero byte
    ("short.records.test", 64, b"\x00\x01\x00\x00\x03\x00\x01\x01"),  # port of one byte
]
UNKNOWN_TYPE = 65280  # private use: dig shows any data of it in the generic form


def dig(port, name, qtype, *options, server="127.0.0.1", defaults=("+norec", "+noedns")):
    """dig's text, or "" when no reply came."""
    r = subprocess.run([DIG, "@" + server, "-p", str(port), *defaults, "+time=1", "+tries=1",
                        name, qtype, *options], capture_output=True, timeout=10)
    return "" if r.returncode else r.stdout.decode()


def have_ip6():
    try:
        with socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as s:
            s.bind(("::1", 0))
        return True
    except OSError:
        return False


def start_nsd(work, ip6):
    """nsd on a port that was free for UDP and TCP a moment ago; stopped by its PID later."""
    with socket.socket() as t, socket.socket(type=socket.SOCK_DGRAM) as u:
        u.bind(("127.0.0.1", 0))
        port = u.getsockname()[1]
        t.bind(("127.0.0.1", port))
        if ip6:
            with socket.socket(socket.AF_INET6) as t6, socket.socket(socket.AF_INET6, socket.SOCK_DGRAM) as u6:
                t6.bind(("::1", port))
                u6.bind(("::1", port))
    conf = os.path.join(work, "nsd.conf")
    with open(conf, "w") as f:
        f.write(CONF.format(port=port, w=work, data=os.path.abspath(DATA),
                            ip6="ip-address: ::1 do-ip6: yes" if ip6 else "do-ip6: no"))
    nsd = subprocess.Popen([NSD, "-d", "-c", conf], stdin=subprocess.DEVNULL, start_new_session=True)
    for _ in range(50):
        if nsd.poll() is None and dig(port, "example.test", "SOA", "+short"):
            return nsd, port
        time.sleep(0.1)
    stop_nsd(nsd)
    sys.exit("nsd did not answer on 127.0.0.1 port %d" % port)


def stop_nsd(nsd):
    os.killpg(nsd.pid, signal.SIGTERM)  # nsd and the server processes it forked
    nsd.wait(10)


def as_zib_data(qtype, data):
    """dig's data as zib's CSV writes it: MX/SOA fields joined by ";", TXT with its length octets,
    AAAA with every group and no leading zeros."""
    if qtype in ("MX", "SOA"):
        f = data.split(" ")
        return ";".join(f[:2] + ["0x%08x" % int(n) for n in f[2:]])
    if qtype == "TXT":
        return "".join(chr(len(s)) + s for s in re.findall(r'"([^"]*)"', data)).replace("\r", " ").replace("\n", " ")
    if qtype == "AAAA":
        return ":".join("%x" % int(g, 16) for g in ipaddress.ip_address(data).exploded.split(":"))
    return data


def dig_rows(port, name, qtype, text=None):
    """dig's records as zib's rows, and the "invalid" question row of an unanswered non-CNAME question."""
    rows, section, question = [], None, None
    for line in (text if text is not None else dig(port, name, qtype)).split("\n"):
        heading = re.fullmatch(r";; (QUESTION|ANSWER|AUTHORITY|ADDITIONAL) SECTION:", line)
        if heading or not line:
            section = heading and {"ADDITIONAL": "additions"}.get(heading[1], heading[1].lower())
        elif section == "question":
            question = line[1:].split()[0]
        elif section and not line.startswith(";"):
            owner, ttl, klass, rtype, data = line.split(None, 4)  # dig pads with tabs; the data keeps its blanks
            rows.append(",".join([section, owner, "success",
                                  "1" if klass == "IN" else klass, ttl, rtype, as_zib_data(rtype, data)]))
    if qtype != "CNAME" and not (rows and rows[0].startswith("answer,")):
        rows.insert(0, "question,%s,invalid" % question)
    return rows


def header_mismatches(port, out):
    """JSON objects whose rcode and flags are not what dig reads in the same reply's header (dig
    is told to set RD, as zib does)."""
    for o in map(json.loads, out.decode().splitlines()):
        text = dig(port, o["asked"], "A", "+rec")  # the -url_pipe question
        flags = re.search(r";; flags:([a-z ]*);", text)[1].split()
        if (o["rcode"], o["flags"]) != (re.search(r"status: (\w+)", text)[1], [f for f in ZIB_FLAGS if f in flags]):
            yield "zib %s: rcode %s flags %s; dig:\n%s" % (o["asked"], o["rcode"], o["flags"], text)


ZIB_FLAGS = ("aa", "tc", "rd", "ra", "ad", "cd")


def zib_rows(out):
    """zib's CSV rows after the run header and the heading, in the shape of dig_rows."""
    rows = [line.split(",", 12) + [""] * 12 for line in out.decode("latin-1").split("\n")[2:-1]]
    return ["question,%s,%s" % (f[0], f[2]) if f[1] == "question" else
            ",".join([f[1], f[0], f[2], f[9], f[10], f[8], f[12]]) for f in rows]


def zone_records():
    """(name, type) of every record of records.test.zone."""
    with open(os.path.join(DATA, "records.test.zone")) as f:
        for line in f:
            if line.strip() and line[0] not in ";$":
                owner, rtype = line.split()[:2]
                yield ("records.test" if owner == "@" else owner + ".records.test"), rtype


def unquoted(data):
    """The strings of dig's TXT line as JSON's txt gives them: quotes gone, \\" read as \"."""
    return [s.replace('\\"', '"') for s in re.findall(r'"((?:[^"\\]|\\.)*)"', data)]


def record_mismatches(zib, port, name, qtype, oracle):
    """zib's rdata (and txt) of name/qtype against `oracle`, dig's lines for the same question."""
    status, out, err = run_zib(zib, ["-url", name, "-qtype", qtype, "-json", "-server", "127.0.0.1", "-port", str(port)])
    rows = [o for o in map(json.loads, out.decode().splitlines()) if o["section"] == "answer"]
    if sorted(o["rdata"] for o in rows) != sorted(oracle) or not rows:
        yield "%s %s: zib %s, dig %s %s" % (name, qtype, [o["rdata"] for o in rows], oracle, err)
    for o in rows:
        if o["txt"] != (unquoted(o["rdata"]) if qtype in ("TXT", "SPF") else None):
            yield "%s %s: txt %s for %s" % (name, qtype, o["txt"], o["rdata"])


def scripted_mismatches(zib):
    """The records nsd does not serve, from the scripted responder; where dig cannot read the
    data as its type, its generic form of the same bytes as an unknown type is the oracle."""
    for owner, code, data in SCRIPTED:
        answer = lambda q: reply([rr(int.from_bytes(q[q.index(0, 12) + 1:][:2], "big"), data)])(q)
        responder = Responder(cycle=[answer])
        lines = dig(responder.port, owner, "TYPE%d" % code, "+short", "+nosplit").splitlines()
        if not lines or lines[0].startswith(";;"):
            lines = dig(responder.port, owner, "TYPE%d" % UNKNOWN_TYPE, "+short", "+nosplit").splitlines()
        yield from record_mismatches(zib, responder.port, owner, "TYPE%d" % code, lines)
        responder.close()


def presentation_mismatches(zib, port):
    """-presentation: the data column of text and CSV and XML's presentation attribute hold
    the JSON rdata (unescaped for XML) for records with quotes, blanks, commas and ";"."""
    for name, qtype in (("caa.records.test", "CAA"), ("svcb.records.test", "SVCB")):
        args = ["-url", name, "-qtype", qtype, "-server", "127.0.0.1", "-port", str(port)]
        rdata = json.loads(run_zib(zib, args + ["-json"])[1].splitlines()[0])["rdata"]
        text = run_zib(zib, args + ["-presentation"])[1].decode().splitlines()[2].split(" | ", 12)[12]
        csv = run_zib(zib, args + ["-presentation", "-csv"])[1].decode().splitlines()[2].split(",", 12)[12]
        xml = re.search(r' presentation="([^"]*)">', run_zib(zib, args + ["-presentation", "-xml"])[1].decode())
        if {text, csv, xml and html.unescape(xml[1])} != {rdata}:
            yield "%s -presentation: text %r, CSV %r, XML %r; JSON %r" % (name, text, csv, xml and xml[0], rdata)
def unescape(value):
    """A JSON value's bytes: \\DDD is one byte, a doubled backslash one backslash."""
    return re.sub(r"\\(\d{3}|\\)", lambda m: "\\" if m[1] == "\\" else chr(int(m[1])), value)


def attempt_mismatches(port, args, stdin, attempts, out):
    """Each attempt of each name against dig asking the same question with the attempt's options:
    the transport, the rows (the OPT record's row from dig's EDNS line), rcode, flags and edns."""
    server = "::1" if "-server6" in args else "127.0.0.1"
    objects = [json.loads(line) for line in out.decode().splitlines()]
    names = sorted({o["line"] for o in objects})
    if names != list(range(1, max(1, stdin.count("\n")) + 1)):
        yield "zib %s: rows for the lines %s" % (args, names)
    for line in names:
        mine = [o for o in objects if o["line"] == line]
        asked = mine[0]["asked"]
        question = ["-x", asked, "PTR"] if args[0].startswith("-ip6") else [asked, "TXT" if "-txt" in args else "A"]
        if sorted({o["attempt"] for o in mine}) != list(range(1, len(attempts) + 1)):
            yield "zib %s, %s: attempts %s" % (args, asked, [o["attempt"] for o in mine])
            continue
        for number, (transport, options) in enumerate(attempts, 1):
            text = dig(port, *question, *options.split(), "+nocookie", server=server, defaults=("+rec",))
            rows = dig_rows(port, None, question[-1], text)
            edns = re.search(r"; EDNS: version: (\d+), flags:([a-z ]*); udp: (\d+)", text)
            if edns:
                ttl = int(edns[1]) << 16 | (0x8000 if "do" in edns[2].split() else 0)
                rows.append("additions,,success,%s,%d,OPT,  <none>" % (edns[3], ttl))
            got = [o for o in mine if o["attempt"] == number]
            zib = [",".join([o["section"], unescape(o["query"]), o["status"], str(o["class"]), str(o["ttl"]),
                             o["type_name"], unescape(o["data"])]) for o in got]
            zib = [r if not r.startswith("question,") else ",".join(r.split(",")[:3]) for r in zib]
            flags = re.search(r";; flags:([a-z ]*);", text)[1].split()
            header = {"transport": transport, "rcode": re.search(r"status: (\w+)", text)[1],
                      "flags": [f for f in ZIB_FLAGS if f in flags],
                      "edns": edns and {"version": int(edns[1]), "udp_size": int(edns[3]),
                                        "do": "do" in edns[2].split(), "options": []}}
            seen = {k: got[0].get(k) for k in header}
            if number == len(attempts) and "tc" in seen["flags"]:
                yield "zib %s, %s: the last attempt is truncated" % (args, asked)
            if zib != rows or seen != header:
                yield "zib %s, %s, attempt %d: (- dig %s, + zib)\n%s" % (args, asked, number, options, "\n".join(
                    difflib.unified_diff(rows + [str(header)], zib + [str(seen)], lineterm="", n=99)))


def main():
    zib, update = sys.argv[1], "--update" in sys.argv
    if not NSD or not DIG:
        print("skipped: %s is not installed" % ("nsd" if not NSD else "dig"))
        sys.exit(77)
    report, failed, ip6 = "", False, have_ip6()
    with tempfile.TemporaryDirectory(prefix="zib-nsd-") as work:
        nsd, port = start_nsd(work, ip6)
        try:
            for args, stdin, questions in CASES:
                argv = args.split() + ["-server", "127.0.0.1", "-port", str(port)]
                status, out, err = run_zib(zib, argv, stdin.encode())
                report += mask("== $ zib %s\n%s-- stderr\n%s-- exit %d\n" % (
                    " ".join(argv), out.decode("utf-8", "backslashreplace"), err.decode("utf-8", "backslashreplace"), status), port)
                for mismatch in header_mismatches(port, out) if "-json" in argv else ():
                    failed = True
                    print(mismatch)
                expected = [row for q in questions for row in dig_rows(port, *q)]
                if questions and zib_rows(out) != expected:
                    failed = True
                    print("zib %s: rows differ from dig's (- dig, + zib)" % args)
                    sys.stdout.writelines(d + "\n" for d in difflib.unified_diff(
                        expected, zib_rows(out), "dig", "zib", lineterm="", n=99))
            for question in zone_records():
                oracle = dig(port, *question, "+short", "+nosplit").splitlines()
                for mismatch in record_mismatches(zib, port, *question, oracle):
                    failed = True
                    print(mismatch)
            for mismatch in presentation_mismatches(zib, port):
                failed = True
                print(mismatch)
            # Each case one at a time and with names in flight: the same attempts, the same rows.
            for (args, stdin, attempts), inflight in ((t, n) for t in TRANSPORT for n in ([], ["-inflight", "4"])):
                if "@6" in args and not ip6:
                    print("skipped, no ::1 here: zib %s" % args)
                    continue
                server = ["-server6", "::1"] if "@6" in args else ["-server", "127.0.0.1"]
                argv = args.replace("@6", "").split() + server + ["-port", str(port), "-json"] + inflight
                status, out, err = run_zib(zib, argv, stdin.encode())
                for mismatch in attempt_mismatches(port, argv, stdin, attempts, out):
                    failed = True
                    print(mismatch)
        finally:
            stop_nsd(nsd)
        for mismatch in scripted_mismatches(zib):
            failed = True
            print(mismatch)
    failed |= not golden(os.path.join(HERE, "expected", "interop.expected"), report, update)
    sys.exit(1 if failed else 0)


if __name__ == "__main__":
    main()
