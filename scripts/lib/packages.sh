# What a script needs from the system. Sourced, not run.

# install_packages PACKAGE...: installs those of the named Debian packages that are missing.
install_packages() {
  local missing=() package
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    echo "This is no Debian system: nothing is installed. Needed, under Debian's names: $*"
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
  # A fresh machine brings itself up to date in the background: wait until it lets go of the lock.
  local apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive
    apt-get -o DPkg::Lock::Timeout=600) log
  log=$(mktemp)
  if ! { "${apt[@]}" update &&
    "${apt[@]}" install -y --no-install-recommends "${missing[@]}"; } >"$log" 2>&1; then
    tail -n 20 "$log" >&2
    echo "The packages could not be installed; the whole log is in $log" >&2
    return 1
  fi
  rm -f "$log"
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

# What a release build needs, and what the tests need besides.
build_packages=(g++ cmake ninja-build pkg-config libcli11-dev nlohmann-json3-dev libsdbus-c++-dev)
test_packages=(clang clang-format clang-tidy libclang-rt-14-dev libgtest-dev librapidcheck-dev
  binutils dbus libsystemd-dev libglib2.0-dev libasio-dev qt6-base-dev python3
  python3-dev pybind11-dev python3-pytest mypy libbenchmark-dev)
# What the benches need: those in the process, and the other clients on the real stack.
bench_packages=(libbenchmark-dev qt6-connectivity-dev python3-bleak)
# What scripts/docs needs.
docs_packages=(doxygen python3)
