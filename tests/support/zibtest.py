"""Shared by the end-to-end tests: a scriptable DNS responder on 127.0.0.1 at a port the system
picks, zib run as a child process, and golden outputs compared byte for byte after masking the
random message IDs, dates and times."""
import os, re, select, socket, struct, subprocess, sys, threading, time

DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "data")


# --- replies --------------------------------------------------------------------------------
def name(dotted):
    out = b"".join(bytes([len(p)]) + p.encode() for p in dotted.split(".") if p)
    return out + b"\0"


def rr(rtype, rdata, owner=None, ttl=300, klass=1):
    """One record; without an owner it points at the question name."""
    head = name(owner) if owner is not None else b"\xc0\x0c"
    return head + struct.pack(">HHIH", rtype, klass, ttl, len(rdata)) + rdata


def question_end(query):
    at = 12
    while at < len(query) and query[at]:
        at += query[at] + 1
    return min(at + 5, len(query))


def reply(an=(), ns=(), ar=(), flags=0x8180, with_question=True):
    def make(query):
        q = query[12:question_end(query)] if with_question else b""
        head = query[:2] + struct.pack(">HHHHH", flags, int(with_question), len(an), len(ns), len(ar))
        return head + q + b"".join(an) + b"".join(ns) + b"".join(ar)
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
    def flip(query):
        data = make(query)
        return bytes([data[0] ^ 0xFF, data[1] ^ 0xFF]) + data[2:]
    return flip


def a_reply(*addresses):
    return reply(an=[rr(1, bytes(int(x) for x in a.split("."))) for a in addresses])


class act:
    """What the responder does with one query: send make(query) after `delay` seconds, from
    the listening socket or from a fresh one; make None stays silent."""
    def __init__(self, make=None, delay=0.0, elsewhere=False):
        self.make, self.delay, self.elsewhere = make, delay, elsewhere


def as_act(x):
    return x if isinstance(x, act) else act(x)


class Responder:
    """Answers each datagram by the next step of its script, then by `otherwise`. Lives at
    most `lifetime` seconds, so a forgotten responder cannot hang a run."""
    def __init__(self, script=(), otherwise=None, lifetime=120, port=0, cycle=()):
        self.script, self.otherwise = [as_act(s) for s in script], as_act(otherwise)
        self.cycle = [as_act(s) for s in cycle]  # answers in turn once the script is done
        self.queries, self.lock = [], threading.Lock()
        self.sock = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self.sock.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 1 << 22)
        self.sock.bind(("127.0.0.1", port))
        self.port = self.sock.getsockname()[1]
        self.deadline, self.stopped = time.monotonic() + lifetime, False
        self.thread = threading.Thread(target=self.serve, daemon=True)
        self.thread.start()

    def serve(self):
        while not self.stopped and time.monotonic() < self.deadline:
            if not select.select([self.sock], [], [], 0.1)[0]:
                continue
            query, sender = self.sock.recvfrom(65536)
            with self.lock:
                step = (self.script.pop(0) if self.script else
                        self.cycle[len(self.queries) % len(self.cycle)] if self.cycle else self.otherwise)
                self.queries.append(query)
            if step.make is not None:
                threading.Timer(step.delay, self.send, (step, step.make(query), sender)).start()

    def send(self, step, data, sender):
        try:
            if step.elsewhere:
                with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
                    s.sendto(data, sender)
            else:
                self.sock.sendto(data, sender)
        except OSError:  # a late reply after close(): nobody waits for it any more
            pass

    def asked(self):
        """Each query as the server saw it, ID left out: flags, counts, question name, type."""
        with self.lock:
            queries = list(self.queries)
        lines = []
        for q in queries:
            at, labels = 12, []
            while at < len(q) and q[at]:
                labels.append(q[at + 1:at + 1 + q[at]].decode("latin-1"))
                at += q[at] + 1
            qtype, qclass = struct.unpack(">HH", q[at + 1:at + 5]) if len(q) >= at + 5 else (-1, -1)
            lines.append("asked %s %s type %d class %d, %d bytes, id byte 1 %02x" % (
                q[2:12].hex(), ".".join(labels) + ".", qtype, qclass, len(q), q[1] if len(q) > 1 else 0))
        return lines

    def close(self):
        """Stops answering; queries still queued in the socket are recorded, not answered."""
        self.stopped = True
        self.thread.join()
        while select.select([self.sock], [], [], 0)[0]:
            self.queries.append(self.sock.recvfrom(65536)[0])
        self.sock.close()


def peak_memory(zib, args, stdin, limit=120, **popen):
    """Runs zib with its report thrown away; returns (status, peak RSS in KiB), the peak
    sampled from /proc while it runs (Linux)."""
    with open(os.devnull, "wb") as sink:
        p = subprocess.Popen(["zib"] + args, executable=zib, stdin=subprocess.PIPE, stdout=sink,
                             stderr=subprocess.PIPE, **popen)
        feeder = threading.Thread(target=lambda: (p.stdin.write(stdin), p.stdin.close()))
        feeder.start()
        peak, deadline = 0, time.monotonic() + limit
        while p.poll() is None and time.monotonic() < deadline:
            try:
                with open("/proc/%d/status" % p.pid) as f:
                    peak = max([peak] + [int(l.split()[1]) for l in f if l.startswith("VmHWM")])
            except (OSError, ValueError):
                pass
            time.sleep(0.02)
        if p.poll() is None:
            p.kill()
        feeder.join()
        return p.wait(), peak


# --- running zib ----------------------------------------------------------------------------
def run_zib(zib, args, stdin=b"", timeout=120, wrap=(), **popen):
    """zib with `args`, started as plain "zib" so that run headers and XML read the same
    wherever the binary lives. Returns (status, stdout, stderr)."""
    argv = list(wrap) + ([zib] if wrap else ["zib"]) + list(args)
    if stdin is None:  # no standard input at all: descriptor 0 closed
        popen.setdefault("preexec_fn", lambda: os.close(0))
    popen.setdefault("stdout", subprocess.PIPE)
    p = subprocess.run(argv, executable=None if wrap else zib, input=stdin,
                       stdin=subprocess.DEVNULL if stdin is None else None,
                       stderr=subprocess.PIPE, timeout=timeout, **popen)
    return p.returncode, p.stdout or b"", p.stderr


ROW_ID = re.compile(r"((?:question|answer|authority|additions) *(\W{0,3}|\t)"
                    r"(?:success|sock err|timeout|unkresp|invalid) *\2)[0-9a-f]+(?=\2)")
DUMP_ID = re.compile(r"(packet that was (?:sent|recv'd)\n0000 0000:  )(..)(.{48})(.)")


def mask(text, port=None):
    """IDs, dates and times become {ID}, {D} and {T}; the responder's port becomes PORT."""
    text = text.decode("utf-8", "backslashreplace") if isinstance(text, bytes) else text
    text = ROW_ID.sub(r"\1{ID}", text)
    text = re.sub(r"<packet_id>[0-9a-f]{4}</packet_id>", "<packet_id>{ID}</packet_id>", text)
    text = DUMP_ID.sub(lambda m: m.group(1) + "{I}" + m.group(3) + "*", text)
    text = re.sub(r"\d{4}-\d\d-\d\d|\d\d/\d\d/\d{4}", "{D}", text)
    text = re.sub(r"\d\d:\d\d:\d\d(\.\d{3})?", "{T}", text)
    if port is not None:
        text = text.replace("-port %d" % port, "-port PORT")
    return text.replace("\x1b[2K\r" + " " * 27 + "\r", "{ERASE}")


def golden(expected_path, actual, update):
    """Compares with the expected file, or rewrites it with --update. Returns True when equal."""
    if update:
        with open(expected_path, "w") as f:
            f.write(actual)
        return True
    with open(expected_path) as f:
        expected = f.read()
    if expected == actual:
        return True
    import difflib
    sys.stdout.writelines(difflib.unified_diff(expected.splitlines(True), actual.splitlines(True),
                                               expected_path, "actual"))
    return False
