#!/usr/bin/env python3
"""What -resolvers promises beyond one resolver, against scripted resolvers on loopback: names
answered by the good resolvers while a dead one, one that refuses and one that fails the names
are set aside or passed by, a name's next attempt never on the resolver just tried; a liar's
answers never used; a resolver that refuses beyond its rate slowed until it takes every name;
the forms a resolver list may take, and the lists that stop a run.

    pool_checks.py ZIB CHECK      (exit 77: skipped)"""
import collections, json, os, re, socket, sys, tempfile, threading, time
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from zibtest import Responder, act, reply, rr, run_zib

ANSWER = bytes([192, 0, 2, 7])
LIE = bytes([192, 0, 2, 66])


def qname(query):
    at, labels = 12, []
    while at < len(query) and query[at]:
        labels.append(query[at + 1:at + 1 + query[at]].decode("latin-1"))
        at += query[at] + 1
    return ".".join(labels)


def resolver(names_get):
    """Check names (made up by zib) and nx* names do not exist; other names get `names_get`."""
    def make(query):
        name = qname(query)
        if name.startswith(("zib", "nx")):
            return reply(flags=0x8183)(query)
        return names_get(query)
    return make


HONEST = resolver(reply([rr(1, ANSWER)]))


def pool_file(work, responders, extra_lines=()):
    path = os.path.join(work, "resolvers.txt")
    with open(path, "w") as f:
        f.write("".join(extra_lines) + "".join("127.0.0.1:%d\n" % r.port for r in responders))
    return path


def attempts_by_line(out):
    """line -> [(attempt, "address:port", status, data)] from -json rows, one entry per attempt."""
    seen = collections.defaultdict(dict)
    for line in out.decode().splitlines():
        o = json.loads(line)
        seen[o["line"]].setdefault(o["attempt"], ("%s:%d" % (o["server"], o["port"]), o["status"], o.get("rdata")))
    return {line: [a[k] for k in sorted(a)] for line, a in seen.items()}


def spread(zib):
    """A dead resolver, one that refuses every name and one that fails every name (both answer
    the check), before two good ones: every name ends answered by a good one, and no attempt
    goes where the name's last one went."""
    results = []
    for mode in ([], ["-inflight", "8"]):
        good = [Responder(cycle=[HONEST]), Responder(cycle=[HONEST])]
        bad = [Responder(cycle=[act()]), Responder(cycle=[resolver(reply(flags=0x8185))]),
               Responder(cycle=[resolver(reply(flags=0x8182))])]
        with tempfile.TemporaryDirectory() as work:
            path = pool_file(work, bad + good)
            names = "".join("n%d.test\n" % i for i in range(40)).encode()
            status, out, _ = run_zib(zib, ["-url_pipe", "-resolvers", path, "-retry", "2", "-timeout_ms", "400", "-json"] + mode, names)
        for r in good + bad:
            r.close()
        good_ones = {"127.0.0.1:%d" % r.port for r in good}
        lines = attempts_by_line(out)
        ends_good = all(a[-1][0] in good_ones and a[-1][1] == "success" for a in lines.values())
        moves_on = all(x[0] != y[0] for a in lines.values() for x, y in zip(a, a[1:]))
        results.append(status == 0 and sorted(lines) == list(range(1, 41)) and ends_good and moves_on)
    return all(results), "one at a time, in flight: %s" % results


def liar(zib):
    """A resolver that answers names that do not exist, beside two honest ones: found out by the
    check, named by -stats, and none of its answers in the rows."""
    honest = [Responder(cycle=[HONEST]), Responder(cycle=[HONEST])]
    lying = Responder(cycle=[reply([rr(1, LIE)])])
    with tempfile.TemporaryDirectory() as work:
        path = pool_file(work, [lying] + honest)
        names = "".join(("nx%d.test\n" if i % 3 == 0 else "n%d.test\n") % i for i in range(30)).encode()
        status, out, err = run_zib(zib, ["-url_pipe", "-resolvers", path, "-timeout_ms", "400", "-json", "-stats", "-inflight", "4"], names)
    for r in honest + [lying]:
        r.close()
    lines = attempts_by_line(out)
    liar_at = "127.0.0.1:%d" % lying.port
    untouched = all(a[0] != liar_at and a[2] != "192.0.2.66" for attempts in lines.values() for a in attempts)
    named = re.search(r"resolver %s: .*lying" % re.escape(liar_at), err.decode()) is not None
    return status == 0 and len(lines) == 30 and untouched and named, "%d names, liar named by -stats: %s" % (len(lines), named)


def rate_limit(zib):
    """One resolver that refuses beyond 200 queries a second (a burst of 10), counted at their
    arrival: zib slows down to it, every name is answered, and it asks at most 2 queries a name
    (1.4 to 1.7 on a quiet machine, by how far its start overshoots the limit; on a busy one the
    replies that say "slow down" come late, and a name may be refused more than 6 times)."""
    lock, bucket = threading.Lock(), {"tokens": 10.0, "at": 0.0}

    def limited(query):
        with lock:
            now = responder.times[-1]
            bucket["tokens"] = min(10.0, bucket["tokens"] + (now - bucket["at"]) * 200)
            bucket["at"] = now
            if bucket["tokens"] < 1:
                return reply(flags=0x8185)(query)
            bucket["tokens"] -= 1
        return reply([rr(1, ANSWER)])(query)

    responder = Responder(cycle=[limited])
    with tempfile.TemporaryDirectory() as work:
        path = pool_file(work, [responder])
        names = "".join("n%d.test\n" % i for i in range(400)).encode()
        status, out, _ = run_zib(zib, ["-url_pipe", "-resolvers", path, "-retry_rcodes", "REFUSED", "-retry", "10",
                                       "-inflight", "50", "-json_names"], names)
    responder.close()
    outcomes = collections.Counter(json.loads(l)["outcome"] for l in out.decode().splitlines())
    queries = len(responder.queries)
    return status == 0 and outcomes == {"answered": 400} and queries <= 800, "%s, %d queries" % (dict(outcomes), queries)


def forms(zib):
    """Comments, blank lines, a repeated address and an IPv6 address with its port: two
    resolvers, both asked. A line that is not an address, an empty list, an unreadable file and
    -resolvers beside -server: one line naming the problem, exit status 255, nothing asked."""
    v4 = Responder(cycle=[HONEST])
    try:
        v6 = Responder(cycle=[HONEST], host="::1")
    except OSError:
        v6 = None
    results = []
    with tempfile.TemporaryDirectory() as work:
        path = os.path.join(work, "good.txt")
        six = "[::1]:%d  # the same machine\n" % v6.port if v6 else ""
        with open(path, "w") as f:
            f.write("# resolvers\n\n  127.0.0.1:%d\t\n%s127.0.0.1:%d\n" % (v4.port, six, v4.port))
        status, out, err = run_zib(zib, ["-url_pipe", "-resolvers", path, "-inflight", "4", "-stats", "-csv", "-timeout_ms", "400"],
                                   "".join("n%d.test\n" % i for i in range(8)).encode())
        servers = {l.split(",")[4] for l in out.decode().splitlines()[2:]}
        listed = re.findall(r"(?m)^resolver (\S+): ", err.decode())
        results.append(status == 0 and servers == ({"127.0.0.1", "::1"} if v6 else {"127.0.0.1"}) and len(listed) == (2 if v6 else 1))
        bad = {"bad.txt": "127.0.0.1\n\n192.0.2.300\n", "empty.txt": "# none\n\n"}
        for name, text in bad.items():
            with open(os.path.join(work, name), "w") as f:
                f.write(text)
        for args, message in (
                (["-resolvers", os.path.join(work, "bad.txt")], "resolvers file %s, line 3: not an address: 192.0.2.300\n" % os.path.join(work, "bad.txt")),
                (["-resolvers", os.path.join(work, "empty.txt")], "resolvers file %s: no resolver in it\n" % os.path.join(work, "empty.txt")),
                (["-resolvers", os.path.join(work, "none.txt")], "resolvers file %s: No such file or directory\n" % os.path.join(work, "none.txt")),
                (["-resolvers", path, "-server", "127.0.0.1"], "use one of -server, -server6 and -resolvers\n"),
                (["-resolvers", path, "-retry_rcodes", "SERVFAIL,BOGUS"], "invalid retry_rcodes: SERVFAIL,BOGUS\n")):
            asked = len(v4.queries)
            status, out, err = run_zib(zib, ["-url", "a.test"] + args)
            results.append(status == 255 and err.decode() == message and len(v4.queries) == asked)
    v4.close()
    if v6:
        v6.close()
    return all(results), "list read, IPv6 %s; errors: %s" % ("asked" if v6 else "not here", results[1:])


def main():
    zib, check = sys.argv[1], sys.argv[2]
    ok, detail = {"spread": spread, "liar": liar, "rate_limit": rate_limit, "forms": forms}[check](zib)
    print("%s: %s (%s)" % (check, {True: "ok", False: "FAILED", None: "skipped"}[ok], detail))
    sys.exit(77 if ok is None else 0 if ok else 1)


if __name__ == "__main__":
    main()
