#!/usr/bin/env bash
# Renews the captured replies: serves the zones in this folder with Debian's nsd on
# 127.0.0.20 port 53 (needs root), saves each reply datagram as nsd-<type>-<case>.bin, and
# writes dig's reading of the same replies to dig-oracle.txt for the parser tests to be
# checked against. nsd runs in the foreground under this script and is stopped by its PID.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
server=127.0.0.20
nsd=$(command -v nsd || echo /usr/sbin/nsd)
[ -x "$nsd" ] || { echo "nsd is not installed" >&2; exit 1; }

work=$(mktemp -d /tmp/zib-capture.XXXXXX)
nsd_pid=""
cleanup() {
  if [ -n "$nsd_pid" ]; then kill "$nsd_pid" 2>/dev/null || true; wait "$nsd_pid" 2>/dev/null || true; fi
  rm -rf "$work"
}
trap cleanup EXIT

cat >"$work/nsd.conf" <<CONF
server:
  ip-address: $server
  port: 53
  username: ""
  chroot: ""
  zonesdir: "$here"
  database: ""
  zonelistfile: "$work/zone.list"
  pidfile: "$work/nsd.pid"
  xfrdfile: "$work/xfrd.state"
  xfrdir: "$work"
  logfile: "$work/nsd.log"
  server-count: 1
  hide-version: yes
remote-control:
  control-enable: no
zone:
  name: example.test
  zonefile: "$here/example.test.zone"
zone:
  name: 2.0.192.in-addr.arpa
  zonefile: "$here/2.0.192.in-addr.arpa.zone"
CONF

"$nsd" -d -c "$work/nsd.conf" &
nsd_pid=$!
for _ in $(seq 50); do  # up to 5 s for the server to answer
  dig +short +time=1 +tries=1 @"$server" example.test SOA >/dev/null 2>&1 && break
  sleep 0.1
done

capture() {  # file-case, name, type
  local file="nsd-$(echo "$3" | tr 'A-Z' 'a-z')-$1.bin"
  python3 "$here/capture.py" "$server" "$2" "$3" "$here/$file"
  {
    echo "=== $file: $2 $3"
    # Only the parts that do not change from run to run: dig's own ID and timing are dropped.
    dig +norec +noedns +nocookie @"$server" "$2" "$3" | grep -e '^;; ->>HEADER' -e '^;; flags' -e '^;; [A-Z]* SECTION:' -e '^;[^;]' -e '^[^;]' |
      grep -v -e '^; <<>>' -e '^; (' | sed 's/, id: [0-9]*//'
  } >>"$work/oracle.txt"
}

capture www       www.example.test           A
capture apex      example.test               NS
capture several   example.test               MX
capture chain     alias.example.test         A
capture alias     alias.example.test         CNAME
capture strings   example.test               TXT
capture apex      example.test               SOA
capture www       www.example.test           AAAA
capture reverse   10.2.0.192.in-addr.arpa    PTR
capture nxdomain  nope.example.test          A
capture referral  host.sub.example.test      A

mv "$work/oracle.txt" "$here/dig-oracle.txt"
ls -l "$here"/nsd-*.bin
