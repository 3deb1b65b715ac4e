#!/usr/bin/env bash
# The packages as a user gets them: cpack makes the .deb and the .tar.gz of this build, the .deb
# is unpacked into a scratch folder (dpkg-deb -x), and the tool and its manual page are used from
# there. Exit status 77 (a skip) when cpack, dpkg-deb or man is not here.
#
#   package_check.sh BUILD_DIR VERSION
set -euo pipefail
build=$1 version=$2
for tool in cpack dpkg-deb man; do
  command -v "$tool" >/dev/null || { echo "skipped: no $tool here"; exit 77; }
done
scratch=$(mktemp -d "${TMPDIR:-/tmp}/zib-package.XXXXXX")
trap 'rm -rf "$scratch"' EXIT
fail() { echo "package: $*" >&2; exit 1; }

cpack --config "$build/CPackConfig.cmake" -B "$scratch/out" >"$scratch/cpack.log" 2>&1 ||
  { cat "$scratch/cpack.log"; fail "cpack failed"; }
debs=("$scratch"/out/zib_"$version"_*.deb)
tars=("$scratch"/out/zib-"$version"-*.tar.gz)
[ -f "${debs[0]}" ] && [ -f "${tars[0]}" ] || { ls "$scratch/out"; fail "no zib_${version}_*.deb or zib-$version-*.tar.gz"; }

[ "$(dpkg-deb -f "${debs[0]}" Package Version)" = "Package: zib
Version: $version" ] || fail "control fields: $(dpkg-deb -f "${debs[0]}" Package Version)"
root=$scratch/root
dpkg-deb -x "${debs[0]}" "$root"
for file in usr/bin/zib usr/share/man/man1/zib.1 usr/share/doc/zib/README.md; do
  [ -f "$root/$file" ] || fail "the .deb has no $file"
done
listing=$(tar -tzf "${tars[0]}")
for file in bin/zib share/man/man1/zib.1 share/doc/zib/README.md; do
  grep -qx "zib-$version-[^/]*/$file" <<<"$listing" || fail "the tarball has no $file"
done

# The tool from the unpacked package: its version line, and the usage on standard error.
[ "$("$root/usr/bin/zib" -version)" = "zib $version" ] || fail "-version: $("$root/usr/bin/zib" -version)"
usage=$("$root/usr/bin/zib" -h 2>&1 >/dev/null)
grep -qx ' zib -url <domain to lookup> -server <dns srv ip>' <<<"$usage" || fail "-h does not show the usage"

# The page from the unpacked package, formatted by man with groff's warnings on (man-db strips
# the bold and underlining when the output is no terminal).
page=$(MANWIDTH=80 man --warnings -l "$root/usr/share/man/man1/zib.1" 2>"$scratch/man.err")
[ ! -s "$scratch/man.err" ] || { cat "$scratch/man.err"; fail "man warns about the page"; }
grep -q '^NAME$' <<<"$page" && grep -q '^ *zib -version$' <<<"$page" || fail "man -l shows no page"
echo "package: $(basename "${debs[0]}") and $(basename "${tars[0]}") install, run and read"
