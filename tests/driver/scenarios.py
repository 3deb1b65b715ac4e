#!/usr/bin/env python3
"""zib as a user runs it against a scripted responder: a table of command lines ("@" stands for
"-server 127.0.0.1 -port P"), scripts (UDP, and TCP connections where a row has a fifth element)
and inputs; outputs masked (the ID of a success row must be one a query or reply carried), then
compared with expected/GROUP.expected.

    scenarios.py ZIB GROUP [--update] [--wrap "valgrind ..."] [--inflight N] [--resolvers] [--sanitized]

With --inflight the rows run with "-inflight N" added and must give the same expected output:
only the order in which the responder saw the queries may differ; with --resolvers the
responder is the one resolver of a -resolvers file, and the rows must be those of -server. The rows of the json_names
group also show what the README's jq recipe makes of them; rows with -rfc4180 are read with
Python's csv module, field by field against the -json rows of the same replies. The group
"spreadsheet" reads those rows back through LibreOffice."""
import csv, io, json, os, re, shlex, shutil, struct, subprocess, sys, tempfile, time
sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "support"))
from zibtest import (Responder, act, capture, dnspython, foreign, framed, golden, ids_off_the_wire, mask, name,
                     peak_memory, raw, reply, rr, run_zib, stream)

WWW, NX, MX, NS = capture("nsd-a-www"), capture("nsd-a-nxdomain"), capture("nsd-mx-several"), capture("nsd-ns-apex")
QUESTION_ONLY = reply()
ODD_DATA = reply(an=[rr(1, bytes([1, 2, 3, 4, 5, 6])), rr(2, b"\xc0\xff"), rr(15, b"\x00\x0a\xc0\xff"),
                     rr(6, b"\x03ns1\xc0\x0c\xc0\x0c\x00\x00\x00\x01"), rr(16, b"\x04a\r\nb"),
                     rr(28, bytes(16)), rr(28, b"\x00\xff\x12"), rr(13, b"\x01x"), rr(65, b"\x00\xab\xff"),
                     rr(15, b""), rr(6, name("ns1.example.test") + b"\xc0\x0c" + bytes(range(20)), ttl=2**32 - 1),
                     rr(15, b"\x03\xe7\xc0\x0c"), rr(28, bytes.fromhex("20010db8000000000000000000000010"))])
SHORT = raw(bytes.fromhex("2a0081800001"))
NOT_A_RESPONSE = raw(bytes.fromhex("2a0001000001000000000000"))
TXT_AMP = reply(an=[rr(16, b"\x09a,b|c&<d>")])
BAD_SOA = reply(an=[rr(6, b"\x01x\xff")])  # a label, then a pointer past the end
TC = reply(flags=0x8380)  # truncated: question only, as a server sends it when the answer does not fit
WWW_TCP = framed(WWW)
BADVERS = reply(ar=[rr(41, b"\x00\x0a\x00\x08" + bytes(range(8)) + b"\x00\x03\x00\x02ns", owner="", klass=4096,
                       ttl=1 << 24 | 0x8000)])  # extended rcode 1: BADVERS; DO; options COOKIE and NSID
BYTES = "".join(chr(b) for b in range(1, 256) if b not in b"\n.")  # fgets stops at NUL
EVERY_BYTE = ".".join(BYTES[i:i + 63] for i in range(0, len(BYTES), 63))  # labels the decoder reads
# 14,000 bytes after the records carry the verbose dump past a results file's 64 KiB write
# buffer; the 9-byte TXT string makes the buffer full exactly on a line end, written alone.
PAST_BUFFER = lambda query: reply([rr(16, b"\x09" + b"x" * 9)])(query) + bytes(14000)


def past_last_position(query):
    """64 KiB over TCP: the record at 12 leads to one at 256 whose data runs to 65,525, where the
    next record's fields would pass the last 16-bit position. Read at the wrapped positions, its
    data starts at 0 and its length (256) leads back to 256, once for every count. SOA data of
    zeros reads as two root names and five zeros: a row each."""
    message = bytearray(65535)
    message[0:12] = query[:2] + struct.pack(">HHHHH", 0x8180, 0, 65535, 65535, 65535)
    message[12:23] = b"\0" + struct.pack(">HHIH", 6, 1, 300, 256 - 23)
    message[256:267] = b"\0" + struct.pack(">HHIH", 6, 1, 300, 65525 - 267)
    message[65525:65535] = b"\0" + struct.pack(">HHIB", 1, 1, 300, 1)
    return bytes(message)


# TXT strings whose length byte, which leads the data column, is a tab, a line feed, a carriage
# return, a blank, a quote, a formula mark or a separator (one ends in a blank), one string of
# every byte, and owner names holding quotes, separators, blanks and formula marks.
HOSTILE = reply(an=[rr(16, bytes([n]) + b"x" * (n - 1) + (b" " if n == 9 else b"x"), owner=o) for n, o in zip(
    (9, 10, 13, 32, 34, 43, 44, 45, 59, 61, 64), ('a"b.test', "c,d.test", "e;f.test", "g\th.test", "=x.test", "+x.test",
                                                  "-x.test", "@x.test", " x.test", "x .test", "|.test"))]
                + [rr(16, b"\xff" + bytes(range(255))), rr(1, bytes([192, 0, 2, 1]))])
HOSTILE_INPUT = '=1+1,"q";x\t.test\nhostile.test\n'
# -why_columns: how names end (NXDOMAIN, no data, REFUSED, truncated, time-out, a bad name), and
# a name whose first attempt timed out: its timeout row says the name was answered.
WHY = [NX, QUESTION_ONLY, reply(flags=0x8185), TC, act(), act(), act(), WWW]
WHY_INPUT = "nope.example.test\nnodata.test\nrefused.test\ntc.test\nsilent.test\n...\na|b.test\n"
# Every new switch's number: forms the reader refuses, one past its range, and the forms it
# takes (010 is decimal). Bad names on lines 11, 16 and 54 show port, type and lines skipped
# without a query sent.
NUMBER_FORMS = ["5354abc", "12.7", "1.5", "", "010", "0x35", "o17"]
PAST_RANGE = {"-port": "65536", "-timeout_ms": "86400001", "-inflight": "1000001", "-qps": "10000001",
              "-hold_mb": "65537", "-skip_lines": "9223372036854775808", "-qtype": "65536"}
BAD_NAMES_AT = "".join("...\n" if n in (11, 16, 54) else "\n" for n in range(1, 61))
# The README's recipe for the names that did not resolve: its jq filter, run on the json_names rows.
with open(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "README.md")) as readme:
    JQ_RECIPE = shlex.split(re.search(r"^zib .*-json_names.*\| (jq .*)$", readme.read(), re.M)[1])

# (title, arguments, responder script, standard input); every group is one ctest test.
GROUPS = {
    "command_line": [
        ("no arguments: the usage", "", None, ""),
        ("a help switch wins over a lookup", "-url a.test /? @", None, ""),
        ("-version: the version line, whatever else is asked", "-url a.test @ -VERSION -port 0", None, ""),
        ("a help switch wins over -version", "-version -h", None, ""),
        ("no server: header, message, 255", "-url x -csv_separator ' ; '", None, ""),
        ("no lookup asked", "@", None, ""),
        ("two lookups", "-ns a.test -cname b.test @", None, ""),
        ("results file that cannot be opened", "-url a.test @ -xml -out /nonexistent/dir/x", None, ""),
        ("name of dots: logdata stays open", "-url ... @ -xml", None, ""),
        ("reverse name of dots", "-ip .. @", None, ""),
        ("port out of range", "-url a.test -server 127.0.0.1 -port 70000", None, ""),
        ("port zero", "-url a.test -server 127.0.0.1 -port 0", None, ""),
        ("port not a number", "-url a.test -server 127.0.0.1 -port http", None, ""),
        ("port in hexadecimal", "-url a.test -server 127.0.0.1 -port 0x35 -retry -1", None, ""),
        ("negative retry: nothing sent", "-url a.test @ -retry -1", None, ""),
        ("refused date pattern", "-url a.test @ -dateformat yy/q -retry -1", None, ""),
        ("switch given last without its value", "-url a.test @ -retry -1 -timeout", None, ""),
        ("no standard input at all", "-url_pipe @", None, None),
        ("empty input in XML", "-url_pipe @ -xml", None, ""),
        ("edns below 512", "-url a.test @ -edns 511", None, ""),
        ("edns not wholly a number", "-url a.test @ -edns 1232abc", None, ""),
        ("server and server6 together", "-url a.test -server 127.0.0.1 -server6 ::1", None, ""),
        ("server6 not an IPv6 address", "-url a.test -server6 127.0.0.1", None, ""),
        ("ip6 not an IPv6 address", "-ip6 192.0.2.1 @", None, ""),
        ("an object per row and per name: refused", "-url_pipe @ -json -json_names", None, ""),
        ("RFC 4180 CSV has no run header line, even on error", "-url a.test -rfc4180", None, ""),
        ("a second XML document cannot be appended", "-url_pipe @ -xml -append -out /dev/null", None, ""),
    ] + [("%s %s" % (switch, value or "(empty)"), "-url_pipe -server 127.0.0.1 -json_names %s %s" % (switch, shlex.quote(value)),
          None, BAD_NAMES_AT) for switch in PAST_RANGE for value in NUMBER_FORMS + [PAST_RANGE[switch]]],
    "lookups": [
        ("A in text", "-url www.example.test @", [WWW], ""),
        ("A in XML", "-url www.example.test @ -xml", [WWW], ""),
        ("A, verbose", "-url www.example.test @ -verbose", [WWW], ""),
        ("CNAME chain", "-url alias.example.test @", [capture("nsd-a-chain")], ""),
        ("NXDOMAIN", "-url nope.example.test @ -xml", [NX], ""),
        ("referral", "-url host.sub.example.test @ -csv", [capture("nsd-a-referral")], ""),
        ("AAAA answer", "-url www.example.test @ -xml", [capture("nsd-aaaa-www")], ""),
        ("PTR", "-ip 192.0.2.10 @", [capture("nsd-ptr-reverse")], ""),
        ("MX", "-mx example.test @", [MX], ""),
        ("MX in XML", "-mx example.test @ -xml", [MX], ""),
        ("NS in CSV", "-ns example.test @ -csv", [NS], ""),
        ("CNAME", "-cname alias.example.test @ -xml", [capture("nsd-cname-alias")], ""),
        ("CNAME without an alias writes nothing", "-cname www.example.test @", [QUESTION_ONLY], ""),
        ("TXT", "-txt example.test @", [capture("nsd-txt-strings")], ""),
        ("SOA", "-url example.test @", [capture("nsd-soa-apex")], ""),
        ("SOA in CSV", "-url example.test @ -csv", [capture("nsd-soa-apex")], ""),
        ("SOA in XML", "-url example.test @ -xml", [capture("nsd-soa-apex")], ""),
        ("odd record data", "-url example.test @", [ODD_DATA], ""),
        ("odd record data in CSV", "-url example.test @ -no_whitespace", [ODD_DATA], ""),
        ("odd record data in XML", "-url example.test @ -xml", [ODD_DATA], ""),
        ("odd record data, standard text form", "-url example.test @ -presentation", [ODD_DATA], ""),
        ("odd record data, standard text form in XML", "-url example.test @ -xml -presentation", [ODD_DATA], ""),
        ("unreadable SOA in XML: the tag stays open", "-url example.test @ -xml", [BAD_SOA], ""),
        ("unreadable SOA with -presentation: the attribute closes it", "-url example.test @ -xml -presentation", [BAD_SOA], ""),
        ("two piped kinds: the later in the table wins", "-ip_pipe -url_pipe @ -timeout 0", [], "a.test\n"),
        ("piped A", "-url_pipe @", [WWW, NX], "www.example.test\nnope.example.test\n"),
        ("piped PTR", "-ip_pipe @", [capture("nsd-ptr-reverse")], "192.0.2.10\n"),
        ("piped MX", "-mx_pipe @ -csv", [MX], "example.test\n"),
        ("piped NS", "-ns_pipe @", [NS], "example.test\n"),
        ("piped CNAME", "-cname_pipe @", [capture("nsd-cname-alias")], "alias.example.test\n"),
        ("piped TXT", "-txt_pipe @ -xml", [TXT_AMP], "example.test\n"),
    ],
    "transport": [
        ("silent server, two retries", "-url a.test @ -retry 2 -timeout 0", [], ""),
        ("silent server, verbose", "-url a.test @ -timeout 0 -verbose", [], ""),
        ("foreign ID reported, then retried", "-url a.test @ -retry 1 -verbose", [foreign(WWW)], ""),
        ("foreign ID every time", "-url a.test @ -retry 1 -csv", [foreign(WWW), foreign(WWW)], ""),
        ("reply from another port is taken", "-url a.test @", [act(reply([rr(1, bytes([192, 0, 2, 7]))]), elsewhere=True)], ""),
        ("late reply is lost with its socket", "-url a.test @ -retry 1",
         [act(reply([rr(1, bytes([192, 0, 2, 1]))]), delay=1.5), reply([rr(1, bytes([192, 0, 2, 2]))])], ""),
        ("empty datagram", "-url a.test @", [raw(b"")], ""),
        ("not a response, verbose", "-url a.test @ -verbose", [NOT_A_RESPONSE], ""),
        ("header cut short", "-url a.test @", [SHORT], ""),
        ("question only", "-url a.test @ -xml", [QUESTION_ONLY], ""),
        ("pointer to itself", "-url a.test @", [raw(bytes.fromhex("2a00818000010000000000000c00010001"))], ""),
        ("record data past the end", "-url a.test @", [raw(bytes.fromhex("2a008180000100010000000001610000010001c00c000100010000012c0010c000"))], ""),
        ("send refused: broadcast address", "-url a.test -server 255.255.255.255 -port 9 -retry 1", None, ""),
        ("OPT record offered", "-url a.test @ -edns 4096", [WWW], ""),
        ("dnssec alone offers 1232, verbose", "-url a.test @ -dnssec -verbose", [WWW], ""),
        ("edns in hexadecimal, with dnssec", "-url a.test @ -edns 0x1000 -dnssec", [WWW], ""),
        ("truncated, not followed", "-url a.test @ -strict_exit", [TC], ""),
        ("truncated, then TCP", "-url a.test @ -tcp -strict_exit -stats", [TC], "", [stream(WWW_TCP)]),
        ("TCP reply in pieces", "-url a.test @ -tcp_only -verbose",
         [], "", [stream(lambda q: [WWW_TCP(q)[:1], WWW_TCP(q)[1:30], WWW_TCP(q)[30:]])]),
        ("TCP refused: nothing listens", "-url a.test @ -tcp_only -retry 1 -strict_exit", [], ""),
        ("TCP closed at once", "-url a.test @ -tcp_only -strict_exit", [], "", [stream(lambda q: b"")]),
        ("TCP closed within the length", "-url a.test @ -tcp_only", [], "", [stream(lambda q: b"\x00")]),
        ("TCP length beyond the bytes, closed", "-url a.test @ -tcp_only", [], "",
         [stream(lambda q: struct.pack(">H", 300) + WWW(q))]),
        ("TCP length beyond the bytes, left open", "-url a.test @ -tcp_only -timeout_ms 300", [], "",
         [stream(lambda q: struct.pack(">H", 300) + WWW(q), hold=True)]),
        ("TCP length 0 before a good reply", "-url a.test @ -tcp_only", [], "", [stream(lambda q: b"\0\0" + WWW_TCP(q))]),
        ("TCP never answers, verbose", "-url a.test @ -tcp_only -timeout_ms 300 -verbose", [], "", [stream()]),
        ("TCP fails, the retry truncated again, then TCP answers", "-url a.test @ -tcp -retry 1 -stats", [TC, TC], "",
         [stream(lambda q: b""), stream(WWW_TCP)]),
        ("in flight: -delay before the retry, none before TCP", "-url a.test @ -inflight 2 -tcp -retry 1 -delay 1 -timeout_ms 200",
         [act(), TC], "", [stream(WWW_TCP)]),
        ("a server on 127.0.0.2, none on 127.0.0.1: truncated, then TCP", "-url a.test @127.0.0.2 -tcp", [TC], "", [stream(WWW_TCP)]),
        ("TCP reply of 64 KiB: fields past the last position end the records", "-url a.test @ -tcp_only",
         [], "", [stream(framed(past_last_position))]),
    ],
    "report": [
        ("separator and substitution", "-url 'a|b.test' @ -timeout 0", [], ""),
        ("CSV substitution", "-url 'a,b|c.test' @ -timeout 0 -csv", [], ""),
        ("pipe separator", "-url 'a|b.test' @ -timeout 0 -csv_separator '|'", [], ""),
        ("tab separator", "-url a.test @ -timeout 0 -csv -csv_separator tab", [], ""),
        ("no whitespace", "-url a.test @ -timeout 0 -csv_separator ' ; ' -no_whitespace", [], ""),
        ("quoted fields keep the query", "-url 'a,b.test' @ -timeout 0 -csv -enable_quoted_csv_fields", [], ""),
        ("XML wins over CSV", "-url a.test @ -timeout 0 -csv -xml -verbose", [], ""),
        ("date and time patterns", "-url a.test @ -timeout 0 -dateformat mm/dd/yyyy -timeformat hh:mm:ss", [], ""),
        ("upper-case switches", "-URL a.test @ -TimeOut 0 -CSV", [], ""),
        ("first of a repeated switch wins", "-url a.test @ -timeout 0 -timeout 9 -out /dev/stdout -out x", [], ""),
        ("RFC 4180: quotes, separators, blanks, formula marks, every byte", "-txt_pipe @ -rfc4180 -verbose",
         [QUESTION_ONLY, HOSTILE], HOSTILE_INPUT),
        ("RFC 4180 with ';' and the standard text form", "-txt_pipe @ -rfc4180 -csv_separator ';' -presentation",
         [QUESTION_ONLY, HOSTILE], HOSTILE_INPUT),
        ("RFC 4180 with tabs", "-txt_pipe @ -csv_separator tab -rfc4180", [QUESTION_ONLY, HOSTILE], HOSTILE_INPUT),
    ] + [("why a name ended, %s" % (fmt or "text"), "-url_pipe @ -timeout_ms 300 -retry 1 -why_columns " + fmt, WHY, WHY_INPUT)
         for fmt in ("", "-csv", "-rfc4180", "-xml")],
    # Reports that cannot be written stop the run (a full disk is Linux's /dev/full).
    "output_failure": [
        ("single name into a full disk", "-url a.test @ -timeout 0 -out /dev/full", [], ""),
        ("piped XML into a full disk", "-url_pipe @ -timeout 0 -xml -out /dev/full", [], "a.test\nb.test\n"),
        ("header alone into a full disk", "-url_pipe @ -retry -1 -outfile /dev/full", [], "a.test\n"),
        ("reader gone before the header: nothing asked", "-url_pipe @ -timeout 0", [], "a.test\nb.test\n"),
        ("reader gone, single name", "-url a.test @ -timeout 0", [], ""),
    ],
    # A plain run asks port 53; binding it needs root, so this group alone may be skipped.
    "port_53": [("no -port: port 53", "-url www.example.test @53 -csv", [WWW], "")],
    "piped": [
        ("line ends, blanks and empty lines", "-url_pipe @ -timeout 0", [], "a.test\r\n\n b.test\r\nc.test \n...\nlast.test"),
        ("filter by suffix and prefix", "-url_pipe @ -timeout 0 -filter '*.keep' -filter 'ns*'", [], "a.keep\nb.drop\nns1.drop\nNS2.DROP\nx.KEEP\n"),
        ("filter list and colon", "-url_pipe @ -timeout 0 -filter 'a.test,*mid*' -filter 'x*:*z*'", [], "a.test\nb.test\namidb\nxyz\nxy\ndir/a.test\n"),
        ("delay between names", "-url_pipe @ -timeout 0 -delay 1", [], "a.test\nb.test\n"),
        ("results file", "-url_pipe @ -xml -out /dev/stdout", [WWW], "www.example.test\n"),
        ("clean input: comments, blanks and CRLF", "-url_pipe @ -timeout 0 -clean_input -json_names", [],
         "# hosts\r\n; old\r\n  a.test \r\n\t\r\n\tb.test\t\r\n\r\n c#d.test\r\n #e.test\r\nlast.test"),
        ("results file past the write buffer", "-txt_pipe @ -verbose -out /dev/null", [PAST_BUFFER], "a.test\n"),
        ("clean input: a byte-order mark before the first name", "-url_pipe @ -timeout 0 -clean_input -json_names", [],
         "\xef\xbb\xbfa.test\n\xef\xbb\xbfb.test\n"),
        ("heading once for a run", "-url_pipe @ -timeout 0 -retry 1", [], "a.test\nb.test\n"),
    ],
    # The switches for many names at once; like the groups above, also run with -inflight 8.
    "bulk": [
        ("names in flight: out of range", "-url a.test @ -inflight 0", None, ""),
        ("queries per second: not a number", "-url a.test @ -qps fast", None, ""),
        ("wait in ms: negative", "-url a.test @ -timeout_ms -5", None, ""),
        ("held reports: out of range", "-url a.test @ -hold_mb 0", None, ""),
        ("lines to skip: not one number", "-url_pipe @ -skip_lines 2x", None, ""),
        ("replies out of order, rows in input order", "-url_pipe @ -timeout_ms 3000 -csv",
         [act(reply([rr(1, bytes([192, 0, 2, n]))]), delay=d) for n, d in ((1, 0.6), (2, 0.3), (3, 0))],
         "a.test\nb.test\nc.test\n"),
        ("the wait in ms wins over seconds", "-url a.test @ -timeout 9 -timeout_ms 300 -retry 1", [act(WWW, delay=1), WWW], ""),
        ("summary: rows, response codes", "-url_pipe @ -timeout_ms 300 -csv -stats",
         [WWW, NX, reply(flags=0x8182), reply(flags=0x8185), reply(flags=0x8184), raw(b"")], "".join("n%d.test\n" % i for i in range(7))),
        ("status line when asked", "-url_pipe @ -timeout 0 -progress", [], "a.test\n"),
        ("quiet wins", "-url_pipe @ -timeout 0 -progress -quiet", [], "a.test\n"),
        ("summary without a reply: no round trip", "-url_pipe @ -timeout_ms 100 -stats", [], "a.test\n"),
    ],
    # -json: each line must parse (run_row checks); -strict_exit shows in every "-- exit".
    "json": [
        ("flags and data, verbose", "-url a.test @ -json -strict_exit -verbose", [reply([rr(1, bytes([192, 0, 2, 7]))], flags=0x87b0)], ""),
        ("NOERROR without data", "-url a.test @ -json -strict_exit", [QUESTION_ONLY], ""),
        ("NXDOMAIN", "-url nope.example.test @ -json -strict_exit", [NX], ""),
        ("FORMERR", "-url a.test @ -json -strict_exit", [reply(flags=0x8181)], ""),
        ("SERVFAIL", "-url a.test @ -json -strict_exit", [reply(flags=0x8182)], ""),
        ("NOTIMP", "-url a.test @ -json -strict_exit", [reply(flags=0x8184)], ""),
        ("REFUSED", "-url a.test @ -json -strict_exit", [reply(flags=0x8185)], ""),
        ("an rcode without a name", "-url a.test @ -json -strict_exit", [reply(flags=0x818c)], ""),
        ("unparsable reply", "-url a.test @ -json -strict_exit", [raw(bytes.fromhex("2a00818000010000000000000c00010001"))], ""),
        ("header cut short", "-url a.test @ -strict_exit", [SHORT], ""),
        ("foreign ID", "-url a.test @ -strict_exit", [foreign(WWW)], ""),
        ("time-out", "-url a.test @ -json -strict_exit -timeout 0", [], ""),
        ("time-out, then the answer: the last attempt decides", "-url www.example.test @ -json -strict_exit -retry 1", [act(), WWW], ""),
        ("queries switched off", "-url a.test @ -strict_exit -retry -1", [], ""),
        ("the worst name decides", "-url_pipe @ -csv -strict_exit", [WWW, NX], "www.example.test\nnope.example.test\n"),
        ("bad names, filtered and empty lines", "-url_pipe @ -json -timeout 0 -filter '*.test'", [],
         "a.test\n\nb.drop\n" + "x" * 256 + ".test\n.test\nc.test"),
        ("resume: skipped lines still count", "-url_pipe @ -json -timeout 0 -skip_lines 2 -filter '*.test'", [],
         "a.test\n\nb.test\nc.drop\nd.test\n"),
        ("bad name without JSON: skipped, counted", "-ip_pipe @ -strict_exit", [capture("nsd-ptr-reverse")], "..\n192.0.2.10\n"),
        ("every byte in a name and in TXT data", "-txt_pipe @ -json", [reply([rr(16, bytes(range(256)))])], EVERY_BYTE + ".test\n"),
        ("qtype: the reverse name stays", "-ip 192.0.2.10 @ -qtype txt -timeout 0 -xml", [], ""),
        ("qtype by number: unk in CSV", "-url a.test @ -qtype 0x41 -csv", [reply([rr(65, b"\x00\x01\x00")])], ""),
        ("qtype by number: its mnemonic in JSON", "-url a.test @ -qtype 65 -json", [reply([rr(65, b"\x00\x01\x00")])], ""),
        ("qtype in the generic form, piped", "-mx_pipe @ -qtype type0 -timeout 0 -json", [], "a.test\n"),
        ("qtype unknown", "-url a.test @ -qtype bogus", None, ""),
        ("qtype out of range", "-url a.test @ -qtype 65536 -json", None, ""),
        ("qtype negative", "-url a.test @ -qtype -1", None, ""),
        ("JSON wins over XML and CSV; no header even on error", "-url a.test -xml -csv -json", None, ""),
        ("OPT with an extended rcode and options", "-url a.test @ -json -strict_exit -edns 1232 -verbose", [BADVERS], ""),
        ("ip6.arpa names; a line that is no address", "-ip6_pipe @ -json -timeout 0", [],
         "2001:DB8::1\nnot-an-address\n::ffff:192.0.2.1\n"),
    ],
}
# Rows of other groups again in JSON: the objects say what the rows said. The 64 KiB reply's
# data in hex would be most of the file, and its parse is the same in every format.
in_json = lambda rows: [r for r in rows if not r[0].startswith("TCP reply of 64 KiB")]
GROUPS["json_rows"] = [(r[0], r[1] + " -json") + r[2:] for r in in_json(GROUPS["lookups"] + GROUPS["transport"])]
# One object per name: the transport rows, and how each kind of name ends.
GROUPS["json_names"] = [(r[0], r[1] + " -json_names") + r[2:] for r in in_json(GROUPS["transport"])] + [
    ("time-out, then the answer", "-url www.example.test @ -json_names -strict_exit -retry 1", [act(), WWW], ""),
    ("NXDOMAIN, no data, a reverse name", "-ip_pipe @ -qtype a -json_names -strict_exit", [NX, QUESTION_ONLY],
     "192.0.2.10\n192.0.2.11\n"),
    ("bad names, filtered and empty lines", "-url_pipe @ -json_names -timeout 0 -filter '*.test'", [],
     "a.test\n\nb.drop\n" + "x" * 256 + ".test\n.test\nc.test"),
    ("every byte in a name and in TXT data", "-txt_pipe @ -json_names", [reply([rr(16, bytes(range(256)))])], EVERY_BYTE + ".test\n"),
    ("an object per name with -json: refused", "-url a.test @ -json_names -json", None, ""),
]


def json_lines(out):
    """Every line must parse as one JSON object; a line that does not is flagged in the output. With
    -verbose, dnspython reads the reply too: rcode, flags and edns must say what it says."""
    dns = dnspython()
    for line in out.decode("latin-1").splitlines():
        try:
            o = json.loads(line)
            assert isinstance(o, dict)
        except (ValueError, AssertionError):
            yield "NOT A JSON OBJECT: %r\n" % line
            continue
        try:
            m = dns.message.from_wire(bytes.fromhex(o["received_hex"].replace(" ", "")))
        except Exception:  # no reply, no dnspython, or one it refuses
            continue
        told = {"rcode": dns.rcode.to_text(m.rcode()), "flags": dns.flags.to_text(m.flags).lower().split()[1:]}
        if m.edns >= 0:
            told["edns"] = {"version": m.edns, "udp_size": m.payload, "do": bool(m.ednsflags & dns.flags.DO),
                            "options": [{"code": int(x.otype), "hex": x.to_wire().hex(" ")} for x in m.options]}
        if told != {k: o.get(k) if k != "rcode" else str(o["rcode"]) for k in told}:
            yield "NOT WHAT DNSPYTHON READS: %r\n" % told


def jq_recipe(out):
    """What the README's jq recipe lists for the objects in `out`."""
    if not out:
        return ""
    found = subprocess.run(JQ_RECIPE, input=out, capture_output=True, timeout=60)
    return "-- %s\n%s%s" % (" ".join(map(shlex.quote, JQ_RECIPE)), found.stdout.decode(), found.stderr.decode())


def csv_rows(out, argv):
    """The records of RFC 4180 CSV as Python's csv module reads them, with the row's separator."""
    separator = argv[argv.index("-csv_separator") + 1] if "-csv_separator" in argv else ","
    reader = csv.reader(io.StringIO(out.decode("latin-1"), newline=""), strict=True,
                        delimiter="\t" if separator == "tab" else separator)
    return list(reader)


def csv_mismatches(zib, row, argv, out, extra):
    """Every record of 13 fields under the heading; query, section, status and data as the -json
    rows of the same replies hold them (data: rdata with -presentation)."""
    title, args, script, stdin = row[:4]
    if script is None:
        return
    rows = csv_rows(out, argv)
    json_argv = [a for a in shlex.split(args) + list(extra) if a != "-rfc4180"] + ["-json"]
    responder = Responder(script)
    json_argv[json_argv.index("@"):json_argv.index("@") + 1] = ["-server", "127.0.0.1", "-port", str(responder.port)]
    objects = [json.loads(line) for line in run_zib(zib, json_argv, stdin.encode("latin-1"))[1].splitlines()]
    responder.close()
    # JSON's data is the text report's column: SOA and MX fields are joined by "; ", CSV's by ";".
    csv_data = lambda o: o.get("data", "  <none>").replace("; ", ";") if o.get("type") in (6, 15) else o.get("data", "  <none>")
    data = lambda o: o["rdata"] if "-presentation" in argv and o.get("rdata") is not None else csv_data(o)
    # -why_columns: line, asked and rcode as JSON has them; a bad name's one row is its object.
    why = ["line", "asked", "rcode", "outcome"] if "-why_columns" in argv else []
    heading = ["query", "comment", "status", "id", "DNSserv", "date", "time-UTC", "type", "tname", "class", "ttl",
               "size", "data"] + why
    if rows[:1] != [heading] or any(len(r) != len(heading) for r in rows) or len(rows) != len(objects) + 1:
        yield "CSV RECORDS NOT %d FIELDS UNDER THE HEADING: %r\n" % (len(heading), rows)
    for r, o in zip(rows[1:], objects):
        told = [o.get("query", o["asked"]), o.get("section", "question"), o["status"], data(o)]
        if why:
            told += [str(o["line"]), o["asked"], "" if o.get("rcode") is None else str(o["rcode"])]
        if [r[0], r[1], r[2], r[12]] + r[13:16] != told:
            yield "CSV FIELDS %r, JSON %r\n" % ([r[0], r[1], r[2], r[12]] + r[13:16], told)


def run_row(zib, row, wrap, extra=(), recipe=False, resolvers=None):
    """With `resolvers` (a file name), "@" asks the responder as the one resolver of that file;
    "@127.0.0.2" puts the responder on that address, with nothing on 127.0.0.1 at its port."""
    title, args, script, stdin = row[:4]
    argv = shlex.split(args) + list(extra)
    at = next((i for i, a in enumerate(argv) if a.startswith("@")), None)
    host = argv[at][1:] if at is not None and "." in argv[at] else "127.0.0.1"
    responder = Responder(script or (), port=53 if argv[at] == "@53" else 0, host=host,
                          tcp=row[4] if len(row) > 4 else None) if at is not None else None
    port = responder.port if responder else None
    as_server = ["-server", host] + (["-port", str(port)] if at is not None and argv[at] != "@53" else [])
    if resolvers and responder and argv[at] != "@53":
        with open(resolvers, "w") as f:
            f.write("%s:%d\n" % (host, port))
        argv[at:at + 1] = ["-resolvers", resolvers]
    elif responder:
        argv[at:at + 1] = as_server
    popen = {}
    if title.startswith("reader gone"):  # as in "zib ... | head -0"
        reader, writer = os.pipe()
        os.close(reader)
        popen["stdout"] = writer
    started = time.monotonic()
    status, out, err = run_zib(zib, argv, None if stdin is None else stdin.encode("latin-1"), wrap=wrap, **popen)
    if "-delay" in argv and not extra:  # each pause is a whole second: how many there were, up to four
        err += b"-- paused %d s or more\n" % min(4, int(time.monotonic() - started))
    if "stdout" in popen:
        os.close(popen["stdout"])
    asked = responder.close() if responder else ""
    shown = out.decode("utf-8", "backslashreplace")
    if "-rfc4180" in argv:  # its line ends are CR LF, which the expected file shows as \r
        shown = shown.replace("\r", "\\r")
    block = "== %s\n$ zib %s\n%s%s%s%s-- stderr\n%s-- exit %d\n" % (
        title, " ".join(shlex.quote(a) for a in argv), shown, ids_off_the_wire(out, responder) if responder else "",
        "".join(json_lines(out)) if "-json" in argv or "-json_names" in argv else "",
        jq_recipe(out) if recipe else "".join(csv_mismatches(zib, row, argv, out, extra)) if "-rfc4180" in argv else "",
        err.decode("utf-8", "backslashreplace"), status)
    if extra:
        block = block.replace(" " + " ".join(extra), "")
    if resolvers:  # the command line as -server gives it, and -stats without its resolver line
        block = block.replace("-resolvers " + resolvers, " ".join(as_server))
        block = re.sub(r"(?m)^resolver 127\.0\.0\.\d:\d+: .*\n", "", block)
    return mask(block.replace(zib, "zib"), port) + asked


def comparable(text, skip, any_order):
    """Without the blocks of skipped rows; with any_order each block's "asked" lines sorted,
    since the queries of names in flight together interleave."""
    blocks = [b for b in re.split(r"(?m)^(?===)", text) if b[3:].split("\n")[0] not in skip]
    sort = lambda m: "".join(sorted(m.group(0).splitlines(True))) if any_order else m.group(0)
    text = "".join(re.sub(r"(?m)(^asked .*\n)+", sort, b) for b in blocks)
    return re.sub(r"(?m)^-- paused .*\n", "", text) if any_order else text  # names pause side by side


def soak(zib, memory):
    """10,000 names over every kind of reply: exact rows per status word, and neither memory nor
    descriptors grow with the input (a leak would show as "sock err" under the low limit)."""
    import collections, resource
    kinds = [WWW, NX, foreign(WWW), raw(b""), NOT_A_RESPONSE, SHORT, QUESTION_ONLY, ODD_DATA,
             raw(bytes(60000)), capture("nsd-a-chain")]
    lines, peaks = "", []
    for count in (1000, 10000):
        stdin = "".join("n%d.test\n" % i for i in range(count)).encode()
        responder = Responder(cycle=kinds)
        argv = ["-url_pipe", "-server", "127.0.0.1", "-port", str(responder.port), "-csv"]
        limit = lambda: resource.setrlimit(resource.RLIMIT_NOFILE, (16, 16))
        status, out, err = run_zib(zib, argv, stdin, preexec_fn=limit)
        words = collections.Counter(r.split(",")[2] for r in out.decode("latin-1").splitlines()[2:])
        lines += "%d names: exit %d, %s, stderr %r\n" % (count, status, dict(sorted(words.items())), err)
        peaks.append(peak_memory(zib, argv, stdin) if memory else 0)  # 0 where /proc is missing
        responder.close()
    return lines + "peak memory flat and under 8 MiB: %s\n" % (peaks[1] - peaks[0] < 512 and peaks[1] < 8192 or peaks)


def spreadsheet(zib):
    """The RFC 4180 rows of the report group through LibreOffice, headless: CSV to ODS and back
    to CSV, quoted fields read as text; every field must come back as it went in."""
    office = shutil.which("soffice") or shutil.which("libreoffice")
    if not office:
        sys.exit(print("skipped: LibreOffice (soffice) is not installed") or 77)
    lines = ""
    with tempfile.TemporaryDirectory(prefix="zib-calc-") as work:
        convert = lambda options, target, source: subprocess.run(
            [office, "-env:UserInstallation=file://%s/profile" % work, "--headless", *options, "--convert-to", target,
             "--outdir", os.path.join(work, target.split(":")[0]), source], capture_output=True, timeout=180)
        for row in [r for r in GROUPS["report"] if "-rfc4180" in r[1]]:
            title, args, script, stdin = row
            responder = Responder(script)
            argv = [a for a in shlex.split(args) if a != "-verbose"]
            argv[argv.index("@"):argv.index("@") + 1] = ["-server", "127.0.0.1", "-port", str(responder.port)]
            out = run_zib(zib, argv, stdin.encode("latin-1"))[1]
            responder.close()
            separator = {"tab": 9, ";": 59}.get(argv[argv.index("-csv_separator") + 1] if "-csv_separator" in argv else ",", 44)
            source = os.path.join(work, "rows.csv")
            for stale in ("ods/rows.ods", "csv/rows.csv"):  # a failed conversion must not leave the last row's
                if os.path.exists(os.path.join(work, stale)):
                    os.remove(os.path.join(work, stale))
            with open(source, "wb") as f:
                f.write(out)
            # Filter options: separator, quote, UTF-8, from line 1, default columns, quoted field as text, no special numbers.
            convert(["--infilter=CSV:%d,34,76,1,,0,true,false" % separator], "ods", source)
            convert([], "csv:Text - txt - csv (StarCalc):%d,34,76,1,,0,false,true,false,false,false" % separator,
                    os.path.join(work, "ods", "rows.ods"))
            with open(os.path.join(work, "csv", "rows.csv"), "rb") as f:
                back = f.read()
            before, after = csv_rows(out, argv), csv_rows(back, argv)
            lines += "== %s\n" % title + ("%d records of %s fields: LibreOffice reads every one back\n" % (
                len(before), "/".join(sorted({str(len(r)) for r in before}))) if before == after and before else
                "".join("LIBREOFFICE %r\n      ZIB %r\n" % (a, b) for a, b in zip(after, before) if a != b) or
                "LIBREOFFICE %d RECORDS, ZIB %d\n" % (len(after), len(before)))
    return lines


def main():
    zib, group = sys.argv[1], sys.argv[2]
    try:
        Responder(port=53 if group == "port_53" else 0).close()
    except OSError as e:
        sys.exit(print("skipped: cannot bind UDP port 53 on 127.0.0.1 (%s); it needs root" % e.strerror) or 77)
    if group == "output_failure" and not os.path.exists("/dev/full"):
        sys.exit(print("skipped: this system has no /dev/full") or 77)
    update = "--update" in sys.argv
    wrap = shlex.split(sys.argv[sys.argv.index("--wrap") + 1]) if "--wrap" in sys.argv else ()
    extra = ("-inflight", sys.argv[sys.argv.index("--inflight") + 1]) if "--inflight" in sys.argv else ()
    skip = set()
    resolvers = None
    if "--resolvers" in sys.argv:  # the same rows through a file that lists the responder alone
        resolvers = os.path.join(tempfile.mkdtemp(prefix="zib-resolvers-"), "resolvers.txt")
    if group == "json_names" and not shutil.which("jq"):
        sys.exit(print("skipped: jq is not installed") or 77)
    if group == "soak":
        actual = soak(zib, memory="--sanitized" not in sys.argv)
    elif group == "spreadsheet":
        actual = spreadsheet(zib)
    else:
        actual = "".join(run_row(zib, row, wrap, extra, group == "json_names", resolvers)
                         for row in GROUPS[group] if row[0] not in skip)
    expected = os.path.join(os.path.dirname(os.path.abspath(__file__)), "expected", group + ".expected")
    normalize = (lambda text: comparable(text, skip, bool(extra))) if skip or extra else None
    sys.exit(0 if golden(expected, actual, update and not normalize, normalize) else 1)


if __name__ == "__main__":
    main()
