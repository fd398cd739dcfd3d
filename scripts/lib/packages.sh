# What a script needs from the system. Sourced, not run.
#
# Tested are the releases of Debian below; the names of packages are the same in both where nothing
# else is said. Another system with apt-get is tried, and what it has not is named.

tested_releases="bookworm trixie"

# this_release: the code name of this machine's Debian release, or nothing on another system.
this_release() {
  (. /etc/os-release 2>/dev/null && [ "${ID:-}" = debian ] && echo "${VERSION_CODENAME:-}")
}

# What any system needs, in words.
needed_elsewhere="g++ 12 or clang 14 or newer, CMake 3.25 or newer, sdbus-c++ 1.2 to 2.x; for the real
radio BlueZ 5.66 or newer"

# install_packages PACKAGE...: installs those of the named Debian packages that are missing.
install_packages() {
  local missing=() package
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "This is not a Debian system: nothing is installed. Needed, under Debian's names: $*"
    echo "Needed in any case: $needed_elsewhere."
    return 0
  fi
  for package in "$@"; do
    dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "Installing ${#missing[@]} Debian packages: ${missing[*]}"
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
      echo "Not root and no sudo here; as root, run: apt-get install ${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo)
  fi
  # A fresh machine brings itself up to date in the background: wait until it lets go of the lock. A
  # server that is being brought up to date itself gives lists that do not fit together for a while.
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
    apt-get -o DPkg::Lock::Timeout=600 -o Acquire::Retries=3) log try
  log=$(mktemp)
  for try in 1 2 3; do
    if { "${apt[@]}" update && name_unknown_packages "${missing[@]}" &&
      "${apt[@]}" install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
      rm -f "$log"
      return 0
    fi
    ! grep -q '^No package here' "$log" || break
    [ "$try" -eq 3 ] || sleep 10
  done
  tail -n 20 "$log" >&2
  echo "The packages could not be installed; the whole log is in $log" >&2
  return 1
}

# name_unknown_packages PACKAGE...: fails, naming them, if this system's archive has not all of them.
name_unknown_packages() {
  local package unknown=() release
  for package in "$@"; do
    apt-cache show --no-all-versions "$package" >/dev/null 2>&1 || unknown+=("$package")
  done
  [ ${#unknown[@]} -eq 0 ] && return 0
  release=$(this_release)
  echo "No package here has the name: ${unknown[*]}"
  case " $tested_releases " in
    *" ${release:-none} "*) echo "Debian $release has it: look at the sources of apt." ;;
    *)
      echo "This system is not one of those that are tested (Debian $tested_releases). Install what"
      echo "has another name here by hand, and leave it out: $needed_elsewhere."
      ;;
  esac
  return 1
}

# need_commands COMMAND...: fails, naming it, when a command is missing.
need_commands() {
  local command
  for command in "$@"; do
    if ! command -v "$command" >/dev/null; then
      echo "The command '$command' is missing; install it and run this again." >&2
      return 1
    fi
  done
}

# use_compiler_cache: what has been compiled before is not compiled again, where ccache is installed.
use_compiler_cache() {
  command -v ccache >/dev/null || return 0
  export CMAKE_CXX_COMPILER_LAUNCHER=ccache CMAKE_C_COMPILER_LAUNCHER=ccache
  # Headers that are compiled once would keep it from knowing a file again.
  export CCACHE_SLOPPINESS=pch_defines,time_macros,include_file_mtime,include_file_ctime
}

# What a release build needs, and what the tests need besides.
build_packages=(g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libsdbus-c++-dev
  libutf8proc-dev libncurses-dev libmosquitto-dev libtomlplusplus-dev libsqlite3-dev libmicrohttpd-dev
  libcurl4-openssl-dev libsystemd-dev)
test_packages=(clang libclang-rt-dev libgtest-dev libgmock-dev librapidcheck-dev
  binutils dbus systemd libglib2.0-dev libasio-dev python3
  python3-dev pybind11-dev python3-pytest mypy libbenchmark-dev mosquitto mount openssl ca-certificates
  python3-paho-mqtt)
# What the gateway's page and the examples for other programs are tried in.
page_packages=(chromium prometheus nodejs python3-yaml)
# What the examples with other event loops need besides: the one with Qt.
qt_packages=(qt6-base-dev)
# What scripts/lint needs besides.
lint_packages=(clang-format clang-tidy)
# What the benches need: those in the process, and the other clients on the real stack.
bench_packages=(libbenchmark-dev qt6-connectivity-dev python3-bleak)
# What the build with the preset apple-standin needs: clang, GNUstep's Foundation and the headers of gcc's
# Objective-C runtime, which carry the version of the release's gcc in their package's name.
case $(this_release) in
  trixie) standin_packages=(clang libgnustep-base-dev libobjc-14-dev libblocksruntime-dev) ;;
  *) standin_packages=(clang libgnustep-base-dev libobjc-12-dev libblocksruntime-dev) ;;
esac
# What scripts/abi needs.
abi_packages=(abigail-tools)
# What scripts/docs needs.
docs_packages=(doxygen python3)
# What scripts/apple needs besides npm, and what the preset libcxx needs.
apple_packages=(clang-19 lld-19 llvm-19 libc++-19-dev cmake ninja-build binutils)
libcxx_packages=(clang-19 libc++-19-dev libc++abi-19-dev googletest)
# What scripts/swift needs, in a root of Debian 13.
swift_packages=(swiftlang g++ libc6-dev git ca-certificates)
