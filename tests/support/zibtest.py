"""Shared by the end-to-end tests: a scriptable DNS responder on 127.0.0.1 at a port the system
picks (UDP, and TCP on the same port when scripted), zib run as a child process, and golden
outputs compared byte for byte after masking the random message IDs, dates and times."""
import collections, difflib, os, re, select, socket, struct, subprocess, sys, threading, time

DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data")


def name(dotted):
    return b"".join(bytes([len(p)]) + p.encode() for p in dotted.split(".") if p) + b"\0"


def rr(rtype, rdata, owner=None, ttl=300, klass=1):
    """One record; without an owner it points at the question name."""
    head = name(owner) if owner is not None else b"\xc0\x0c"
    return head + struct.pack(">HHIH", rtype, klass, ttl, len(rdata)) + rdata


def reply(an=(), ns=(), ar=(), flags=0x8180):
    """The query's ID and question, then the records."""
    def make(query):
        end = 12
        while end < len(query) and query[end]:
            end += query[end] + 1
        head = query[:2] + struct.pack(">HHHHH", flags, 1, len(an), len(ns), len(ar))
        return head + query[12:end + 5] + b"".join(an) + b"".join(ns) + b"".join(ar)
    return make


def capture(stem):
    """A reply captured from nsd, sent under the query's ID."""
    with open(os.path.join(DATA, stem + ".bin"), "rb") as f:
        body = f.read()
    return lambda query: query[:2] + body[2:]


def raw(data):
    return lambda query: data


def foreign(make):
    """The same reply with both ID bytes inverted, so it never matches the query."""
    return lambda query: bytes(b ^ 0xFF for b in make(query)[:2]) + make(query)[2:]


# One step of a script: send make(query) after `delay` seconds, from the listening socket or
# from a fresh one; make None stays silent.
act = collections.namedtuple("act", "make delay elsewhere", defaults=(None, 0.0, False))

# One TCP connection's script, once its framed query is read: write make(query) (bytes, or a list
# of pieces written 0.05 s apart), then close, or with `hold` (and always when make is None)
# leave the connection open until zib closes it.
stream = collections.namedtuple("stream", "make hold", defaults=(None, False))


def framed(make):
    """A reply with its two-byte length in front, as a server sends it over TCP."""
    return lambda query: struct.pack(">H", len(make(query))) + make(query)


def dnspython():
    """Debian's python3-dnspython, the oracle for messages, or None where it is missing."""
    try:
        import dns.flags, dns.message, dns.rcode
    except ImportError:
        sys.path.append("/usr/lib/python3/dist-packages")  # a Python of its own may lack it
        try:
            import dns.flags, dns.message, dns.rcode
        except ImportError:
            return None
    return dns


def edns_text(query):
    """The OPT record of a query as dnspython (Debian's python3-dnspython) reads it."""
    dns = dnspython()
    if not dns:
        return "edns: no dnspython here to read it"
    m = dns.message.from_wire(query)
    return "edns %d, udp %d, flags %s, %d options" % (m.edns, m.payload, dns.flags.edns_to_text(m.ednsflags) or "-",
                                                    len(m.options)) if m.edns >= 0 else "no edns"


def arrival(ancillary):
    """When the kernel took a datagram in (SO_TIMESTAMPNS), so that queries a busy machine lets
    queue up are not bunched together at the time they are read; that time where there is none."""
    for level, kind, data in ancillary:
        if level == socket.SOL_SOCKET and kind == getattr(socket, "SO_TIMESTAMPNS", None):
            seconds, nanoseconds = struct.unpack("qq", data[:16])
            return seconds + nanoseconds / 1e9
    return time.time()


class Responder:
    """Answers each datagram by the next step of its script, then by the steps of `cycle` in
    turn (silence without one, or when the step's make gives None). Records when each query
    arrived (`times`, seconds of the wall clock: compare them with each other only). Lives at most
    `lifetime` seconds, so it cannot hang a run."""
    def __init__(self, script=(), cycle=(), port=0, lifetime=120, tcp=None, host="127.0.0.1"):
        steps = lambda xs: [x if isinstance(x, act) else act(x) for x in xs]
        self.script, self.cycle, self.queries, self.times = steps(script), steps(cycle) or [act()], [], []
        self.streams, self.tcp_queries, self.listener, self.replies = list(tcp or ()), [], None, []
        for _ in range(20):  # a TCP listener wants the UDP port too, which may be taken
            family = socket.AF_INET6 if ":" in host else socket.AF_INET
            self.sock = socket.socket(family, socket.SOCK_DGRAM)
            self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
            if hasattr(socket, "SO_TIMESTAMPNS"):
                self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_TIMESTAMPNS, 1)
            self.sock.bind((host, port))
            self.port = self.sock.getsockname()[1]
            try:
                if tcp is not None:
                    self.listener = socket.socket(family)
                    self.listener.bind((host, self.port))
                    self.listener.listen(8)
                break
            except OSError:
                self.sock.close()
                self.listener.close()
        self.deadline, self.stopped = time.monotonic() + lifetime, False
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        while not self.stopped and time.monotonic() < self.deadline:
            ready = select.select([self.sock] + ([self.listener] if self.listener else []), [], [], 0.1)[0]
            if self.listener in ready:
                conn = self.listener.accept()[0]
                step = self.streams.pop(0) if self.streams else stream()
                threading.Thread(target=self.converse, args=(conn, step), daemon=True).start()
            if self.sock in ready:
                query, ancillary, _, sender = self.sock.recvmsg(65536, 64)
                step = self.script.pop(0) if self.script else self.cycle[len(self.queries) % len(self.cycle)]
                self.queries.append(query)
                self.times.append(arrival(ancillary))
                data = step.make(query) if step.make is not None else None
                if data is not None:
                    self.replies.append(data)
                    threading.Timer(step.delay, self.send, (step, data, sender)).start()

    def send(self, step, data, sender):
        try:
            if step.elsewhere:
                with socket.socket(self.sock.family, socket.SOCK_DGRAM) as s:
                    s.sendto(data, sender)
            else:
                self.sock.sendto(data, sender)
        except OSError:  # a late reply after close(): nobody waits for it any more
            pass

    def converse(self, conn, step):
        """One TCP connection: read the framed query, then do what the step says; at most 5 s."""
        with conn:
            conn.settimeout(5)
            try:
                data = b""
                while len(data) < 2 or len(data) < 2 + struct.unpack(">H", data[:2])[0]:
                    more = conn.recv(65537)
                    if not more:
                        return
                    data += more
                self.tcp_queries.append(data[2:])
                pieces = step.make(data[2:]) if step.make else None
                for i, piece in enumerate([pieces] if isinstance(pieces, bytes) else pieces or []):
                    time.sleep(0.05 if i else 0)
                    conn.sendall(piece)
                if step.hold or pieces is None:
                    conn.recv(1)  # until zib closes, or the 5 s are over
            except OSError:  # zib gave up first
                pass

    def close(self):
        """Stops answering; queries still queued in the socket are recorded, not answered.
        Returns each query as the server saw it, ID left out: flags and counts, name, type, and
        the OPT record of a query that has one; then those that came over TCP."""
        self.stopped = True
        self.thread.join()
        while select.select([self.sock], [], [], 0)[0]:
            self.queries.append(self.sock.recvfrom(65536)[0])
        self.sock.close()
        if self.listener:
            self.listener.close()
        lines = []
        for q in self.queries + self.tcp_queries:
            at, labels = 12, []
            while at < len(q) and q[at]:
                labels.append("".join(chr(b) if 32 <= b < 127 else "\\x%02x" % b for b in q[at + 1:at + 1 + q[at]]))
                at += q[at] + 1
            qtype, qclass = struct.unpack(">HH", q[at + 1:at + 5])
            lines.append("asked %s %s. type %d class %d, %d bytes, id byte 1 %02x%s%s\n" % (
                q[2:12].hex(), ".".join(labels), qtype, qclass, len(q), q[1],
                ", " + edns_text(q) if q[10:12] != b"\0\0" else "", " over tcp" if len(lines) >= len(self.queries) else ""))
        return "".join(lines)


def run_zib(zib, args, stdin=b"", wrap=(), timeout=300, **popen):
    """zib with `args`, started as plain "zib" so that run headers and XML read the same
    wherever the binary lives; stdin None closes descriptor 0, a file object is read as it is.
    Returns (status, out, err)."""
    if stdin is None:
        popen.setdefault("preexec_fn", lambda: os.close(0))
    popen.setdefault("stdout", subprocess.PIPE)
    feed = {"stdin": stdin} if hasattr(stdin, "fileno") else {
        "input": stdin, "stdin": subprocess.DEVNULL if stdin is None else None}
    p = subprocess.run(list(wrap) + [zib if wrap else "zib"] + list(args), executable=None if wrap else zib,
                       stderr=subprocess.PIPE, timeout=timeout, **feed, **popen)
    return p.returncode, p.stdout or b"", p.stderr


def peak_memory(zib, args, stdin):
    """Peak RSS in KiB of a run whose report is thrown away, sampled from /proc (Linux; else 0)."""
    with open(os.devnull, "wb") as sink:
        p = subprocess.Popen(["zib"] + args, executable=zib, stdin=subprocess.PIPE, stdout=sink)
        feeder = threading.Thread(target=lambda: (p.stdin.write(stdin), p.stdin.close()))
        feeder.start()
        peak, deadline = 0, time.monotonic() + 120
        while p.poll() is None and time.monotonic() < deadline:
            try:
                with open("/proc/%d/status" % p.pid) as f:
                    peak = max([peak] + [int(l.split()[1]) for l in f if l.startswith("VmHWM")])
            except (OSError, ValueError):
                pass
            time.sleep(0.02)
        p.kill()
        feeder.join()
        return peak


ROW_ID = re.compile(r"((?:question|answer|authority|additions) *(\W{0,3}|\t)"
                    r"(?:success|sock err|timeout|unkresp|invalid|tcp err) *\2)([0-9a-f]+)(?=\2)")
DUMP_ID = re.compile(r"(packet that was (?:sent|recv'd)\n0000 0000:  )(..)(.{48})(.)")


def mask(text, port=None):
    """IDs, dates and times become {ID}, {D} and {T}, round trips {RTT}; the responder's port
    becomes PORT."""
    text = ROW_ID.sub(r"\1{ID}", text)
    text = re.sub(r"<packet_id>[0-9a-f]{4}</packet_id>", "<packet_id>{ID}</packet_id>", text)
    text = DUMP_ID.sub(lambda m: m.group(1) + "{I}" + m.group(3) + "*", text)
    text = re.sub(r'("id":)\d+|("(?:sent|received)_hex":")[0-9a-f]{2}', r"\1\2{ID}", text)
    text = re.sub(r'"rtt_ms":\d+\.\d{3}', '"rtt_ms":{RTT}', text)
    text = re.sub(r"\d{4}-\d\d-\d\d|\d\d/\d\d/\d{4}", "{D}", text)
    text = re.sub(r"\d\d:\d\d:\d\d(\.\d{3})?", "{T}", text)
    if port is not None:
        text = text.replace("-port %d" % port, "-port PORT").replace('"port":%d,' % port, '"port":PORT,')
    # The -stats summary and the status line: their counts stay, rates and times go.
    text = re.sub(r"(?m)^(names \d+, attempts \d+), .*$", r"\1, {RATE}", text)
    text = re.sub(r"(?m)^rtt ms: p50 \d.*$", "rtt ms: {RTT}", text)
    text = re.sub(r"\d+ names, \d+ names/s, \d+ timeouts, [\d.]+ s", "{PROGRESS}", text)
    return text.replace("\x1b[2K\r" + " " * 27 + "\r", "{ERASE}")


def ids_off_the_wire(out, responder):
    """What mask() hides: the ID of each success row (text, CSV, XML, JSON) must be one that a
    query or a reply on the wire carried (byte 0 low, byte 1 high)."""
    text = out.decode("latin-1")
    ids = [int(m[3], 16) for m in ROW_ID.finditer(text) if "success" in m[1]]
    ids += [int(h, 16) for h in re.findall(r"<status>success</status><packet_id>([0-9a-f]+)<", text)]
    ids += [int(d) for d in re.findall(r'"status":"success","id":(\d+)', text)]
    wire = {m[0] | m[1] << 8 for m in responder.queries + responder.tcp_queries + responder.replies if len(m) > 1}
    return "".join("ROW ID %04x NEITHER ASKED NOR ANSWERED\n" % i for i in sorted(set(ids) - wire))


def golden(expected_path, actual, update, normalize=None):
    """Compares with the expected file (both through `normalize`, if given), or rewrites it with
    --update. True when equal."""
    if update:
        with open(expected_path, "w") as f:
            f.write(actual)
    with open(expected_path) as f:
        expected = f.read()
    if normalize:
        expected, actual = normalize(expected), normalize(actual)
    sys.stdout.writelines(difflib.unified_diff(expected.splitlines(True), actual.splitlines(True),
                                               expected_path, "actual"))
    return expected == actual
