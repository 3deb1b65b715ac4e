# Shared by the developer commands: installing Debian packages only when they are missing (or,
# without apt-get, saying what to install), probing what the compilers can build, and building
# zib when it is not built yet.

need_packages() {  # Debian package names...
  local missing=() p
  if command -v dpkg-query >/dev/null 2>&1; then
    for p in "$@"; do
      dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed" || missing+=("$p")
    done
  else
    for p in "$@"; do provided "$p" || missing+=("$p"); done
  fi
  [ ${#missing[@]} -eq 0 ] && return 0
  if ! command -v apt-get >/dev/null 2>&1; then
    # No Debian here: say once what is missing and go on; what needs it is skipped with a line.
    local names="" name
    for p in "${missing[@]}"; do
      name=$(tool_name "$p")
      [[ " $names " == *" $name "* ]] || names="${names:+$names }$name"
    done
    echo "== not found here (install them for the full run; going on without): $names"
    return 0
  fi
  echo "== installing: ${missing[*]}"
  local sudo=""
  [ "$(id -u)" -ne 0 ] && sudo="sudo"
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get update -qq </dev/null
  $sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends \
    "${missing[@]}" </dev/null >/dev/null
}

provided() {  # Debian package name: true when what it provides is usable here (no dpkg)
  case $1 in
    ninja-build) command -v ninja ;;
    g++) command -v c++ || command -v g++ ;;
    clang) command -v clang++ ;;
    libclang-rt-*) cxx_builds clang++ -fsanitize=address,undefined ;;
    libc++-dev | libc++abi-dev) cxx_builds clang++ -stdlib=libc++ ;;
    bind9-dnsutils) command -v dig ;;
    iproute2) command -v ip ;;
    nsd) command -v nsd || [ -x /usr/sbin/nsd ] || [ -x /usr/local/sbin/nsd ] ;;
    libreoffice-calc-nogui) command -v soffice || command -v libreoffice ;;
    dpkg-dev) command -v dpkg-shlibdeps ;;
    man-db) command -v man ;;
    googletest | libgtest-dev) true ;;  # found (or not) by CMake, which says when the unit tests are off
    *) command -v "$1" ;;
  esac >/dev/null 2>&1
}

tool_name() {  # Debian package name: what it is called elsewhere
  case $1 in
    ninja-build) echo ninja ;;
    g++) echo "c++" ;;
    clang) echo "clang++" ;;
    libclang-rt-*) echo "clang-sanitizer-runtime" ;;
    libc++-dev | libc++abi-dev) echo "libc++" ;;
    bind9-dnsutils) echo dig ;;
    iproute2) echo "ip(iproute2)" ;;
    libreoffice-calc-nogui) echo "LibreOffice(soffice)" ;;
    man-db) echo man ;;
    *) echo "$1" ;;
  esac
}

cxx_builds() {  # compiler, flags...: true when a small C++20 program compiles and links with them
  cxx_builds_source 'int main() { return static_cast<int>(std::string("x").size()) - 1; }' "$@"
}

fuzzer_builds() {  # compiler: true when it links libFuzzer targets (Apple's clang has no libFuzzer)
  cxx_builds_source 'extern "C" int LLVMFuzzerTestOneInput(const unsigned char*, std::size_t) { return 0; }' \
    "$1" -fsanitize=fuzzer,address,undefined
}

cxx_builds_source() {  # program text, compiler, flags...
  local program=$1 out
  shift
  out=$(mktemp "${TMPDIR:-/tmp}/zib-probe.XXXXXX")
  if printf '#include <string>\n%s\n' "$program" | "$@" -std=c++20 -x c++ - -o "$out" >/dev/null 2>&1; then
    rm -f "$out"
    return 0
  fi
  rm -f "$out"
  return 1
}

build_zib() {  # build folder (default build)
  local dir=${1:-build}
  if [ ! -x "$dir/zib" ]; then
    cmake -S . -B "$dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
  fi
  cmake --build "$dir" --target zib >/dev/null
}
