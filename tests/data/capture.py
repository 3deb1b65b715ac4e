#!/usr/bin/env python3
"""Sends one query the way zib builds it and saves the reply datagram byte for byte.

usage: capture.py SERVER NAME TYPE OUTFILE
The ID is 42 written low byte first (0x2a 0x00) and only RD is set, as in zib's own queries.
"""
import socket
import sys

TYPES = {"A": 1, "NS": 2, "CNAME": 5, "SOA": 6, "PTR": 12, "MX": 15, "TXT": 16, "AAAA": 28}


def query(name, qtype):
    header = bytes([0x2A, 0x00, 0x01, 0x00, 0, 1, 0, 0, 0, 0, 0, 0])
    qname = b"".join(bytes([len(p)]) + p.encode() for p in name.split(".") if p) + b"\0"
    return header + qname + TYPES[qtype].to_bytes(2, "big") + b"\0\1"


def main():
    server, name, qtype, out = sys.argv[1:5]
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as s:
        s.settimeout(3)
        s.sendto(query(name, qtype), (server, 53))
        reply, _ = s.recvfrom(65536)
    with open(out, "wb") as f:
        f.write(reply)


if __name__ == "__main__":
    main()
