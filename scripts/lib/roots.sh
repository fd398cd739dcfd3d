# Root file systems of Debian releases and architectures other than this machine's own, in
# build/roots. Sourced by bash after lib/packages.sh; the repository is $project_root.
#
# A command in such a root sees this repository under the same path as here, its own /proc, /dev and
# /tmp, and this machine's network. What is mounted for it goes with it.

# Only the release's main part: it is the same on every day and has what is needed.
debian_archive=http://deb.debian.org/debian
roots_packages=(mmdebstrap debian-archive-keyring arch-test util-linux)

# as_root COMMAND...
as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# make_root DIR RELEASE ARCHITECTURE PACKAGE...: the root with these packages, unless it is there
# with the same ones. How this machine reaches Debian's servers holds in the root too.
make_root() {
  local dir=$1 release=$2 architecture=$3 options=() file list
  shift 3
  list=$(IFS=,; echo "$*")
  [ "$(cat "$dir.packages" 2>/dev/null)" != "$list" ] || return 0
  install_packages "${roots_packages[@]}" || return 1
  [ "$architecture" = "$(dpkg --print-architecture)" ] || run_foreign "$architecture" || return 1
  remove_root "$dir" || return 1
  mkdir -p "$(dirname "$dir")"
  for file in /etc/apt/apt.conf.d/*; do
    ! grep -q '^ *Acquire::' "$file" || options+=("--aptopt=$file")
  done
  # In this release the folders /bin and /lib become links at the end of an installation, which takes
  # minutes under an emulator: there they are links from the beginning.
  if [ "$release" = bookworm ] && [ "$architecture" != "$(dpkg --print-architecture)" ]; then
    options+=(--hook-dir=/usr/share/mmdebstrap/hooks/merged-usr)
  fi
  echo "Waiting for a root of Debian $release, $architecture"
  if ! as_root mmdebstrap --variant=apt --mode=root --architectures="$architecture" \
    --include="$list" "${options[@]}" "$release" "$dir" "deb $debian_archive $release main" \
    >"$dir.log" 2>&1; then
    tail -n 20 "$dir.log" >&2
    echo "The root of Debian $release, $architecture, could not be made; the log is $dir.log." >&2
    return 1
  fi
  # A repository that belongs to another user is not strange in there.
  as_root chroot "$dir" sh -c '! command -v git >/dev/null || git config --system safe.directory "*"'
  echo "$list" >"$dir.packages"
}

# What a cross compiler takes from a root of libraries: what the library, the command line, the gateway, the
# Python package and the tests need.
libraries_packages=(libc6-dev libsdbus-c++-dev libcli11-dev nlohmann-json3-dev libutf8proc-dev
  libncurses-dev libmosquitto-dev libtomlplusplus-dev libsqlite3-dev libmicrohttpd-dev libcurl4-openssl-dev
  libsystemd-dev libgtest-dev libgmock-dev librapidcheck-dev python3-dev pybind11-dev)

# libraries_of ARCHITECTURE: where the libraries of this machine's release for that architecture are.
libraries_of() {
  echo "$project_root/build/roots/$(this_release)-$1-libraries"
}

# make_libraries ARCHITECTURE: the same root for a cross compiler, unless it is there. The packages are
# unpacked and not set up, which is quick and runs nothing of that architecture; they are kept as they
# came, in var/cache/apt/archives.
make_libraries() {
  local dir list release options=() file
  release=$(this_release)
  if [ -z "$release" ]; then
    echo "Only on Debian: the compiler and the libraries for $1 are those of one release." >&2
    return 1
  fi
  dir=$(libraries_of "$1")
  list=$(IFS=,; echo "${libraries_packages[*]}")
  [ "$(cat "$dir.packages" 2>/dev/null)" != "$list" ] || return 0
  install_packages "${roots_packages[@]}" || return 1
  remove_root "$dir" || return 1
  mkdir -p "$(dirname "$dir")"
  for file in /etc/apt/apt.conf.d/*; do
    ! grep -q '^ *Acquire::' "$file" || options+=("--aptopt=$file")
  done
  echo "Waiting for the libraries of Debian $release for $1"
  if ! as_root mmdebstrap --variant=extract --mode=root --architectures="$1" \
    --include="$list" --skip=cleanup/apt/cache \
    --setup-hook='mkdir -p "$1/usr/lib" && ln -s usr/lib "$1/lib"' \
    "${options[@]}" "$release" "$dir" "deb $debian_archive $release main" >"$dir.log" 2>&1; then
    tail -n 20 "$dir.log" >&2
    echo "The libraries of Debian $release for $1 could not be had; the log is $dir.log." >&2
    return 1
  fi
  # An emulator would take these devices for this machine's own.
  as_root rm -rf "$dir/dev" && echo "$list" >"$dir.packages"
}

# What packages are made of.
package_targets=(KestrinBLESDK KestrinBLESDK_simulated KestrinBLESDK_bluez KestrinBLESDK_c kestrin
  kestrin-vreader kestrin-gateway kestrin_python)

# compiler_of ARCHITECTURE: the command of the cross compiler.
compiler_of() {
  case $1 in
    arm64) echo aarch64-linux-gnu-g++ ;;
    i386) echo i686-linux-gnu-g++ ;;
  esac
}

# install_cross_compiler ARCHITECTURE: and what runs its programs here.
install_cross_compiler() {
  case $1 in
    arm64) install_packages g++-aarch64-linux-gnu qemu-user-static ;;
    i386)
      case $(uname -m) in
        x86_64 | i?86) install_packages g++-i686-linux-gnu ;;
        *)
          echo "Programs for i386 run on a processor of that family only, and this machine's is another." >&2
          return 1
          ;;
      esac
      ;;
    *)
      echo "No cross compiler for the architecture $1 is known; for arm64 and i386 one is." >&2
      return 1
      ;;
  esac
}

# remove_root DIR
remove_root() {
  rm -f "$1.packages"
  [ ! -d "$1" ] || as_root rm -rf --one-file-system "$1"
}

# in_root DIR COMMAND...: as root in there, in this repository's folder.
in_root() {
  local dir=$1
  shift
  as_root unshare --mount --pid --fork --kill-child "${BASH:-/bin/bash}" -c '
    set -e
    dir=$1 project=$2
    shift 2
    mount --make-rprivate /
    mount -t proc proc "$dir/proc"
    mount -t tmpfs tmpfs "$dir/tmp" -o mode=1777
    # After that, since the project may be in /tmp itself.
    mkdir -p "$dir$project"
    mount --bind "$project" "$dir$project"
    mount -t tmpfs tmpfs "$dir/dev" -o mode=755
    for device in null zero full random urandom tty; do
      touch "$dir/dev/$device"
      mount --bind "/dev/$device" "$dir/dev/$device"
    done
    mkdir "$dir/dev/pts" "$dir/dev/shm"
    mount -t devpts devpts "$dir/dev/pts" -o newinstance,ptmxmode=666
    mount -t tmpfs tmpfs "$dir/dev/shm" -o mode=1777
    ln -s pts/ptmx "$dir/dev/ptmx"
    ln -s /proc/self/fd "$dir/dev/fd"
    cp /etc/resolv.conf "$dir/etc/resolv.conf" 2>/dev/null || true
    exec chroot "$dir" /usr/bin/env -i HOME=/root LC_ALL=C.UTF-8 DEBIAN_FRONTEND=noninteractive \
      PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin \
      sh -c '\''cd "$0" && exec "$@"'\'' "$project" "$@"
  ' in_root "$dir" "$project_root" "$@"
}

# run_foreign ARCHITECTURE: lets this machine run programs of that architecture by emulation, if it
# does not already.
run_foreign() {
  local name magic mask='\xff\xff\xff\xff\xff\xff\xff\x00\xff\xff\xff\xff\xff\xff\xff\xff\xfe\xff\xff\xff'
  case $1 in
    amd64 | i386) return 0 ;;
    arm64) name=aarch64 magic='\x7fELF\x02\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\xb7\x00' ;;
    armhf) name=arm magic='\x7fELF\x01\x01\x01\x00\x00\x00\x00\x00\x00\x00\x00\x00\x02\x00\x28\x00' ;;
    *)
      echo "Programs of the architecture $1 cannot be run here; arm64 and armhf can." >&2
      return 1
      ;;
  esac
  install_packages qemu-user-static || return 1
  local registry=/proc/sys/fs/binfmt_misc
  [ -e "$registry/register" ] || as_root mount -t binfmt_misc binfmt_misc "$registry" 2>/dev/null
  [ ! -e "$registry/qemu-$name" ] || return 0
  # F: the emulator is opened now, so that it is found from inside a root too.
  as_root sh -c "printf '%s' ':qemu-$name:M::$magic:$mask:/usr/bin/qemu-$name-static:F' \
    >$registry/register" 2>/dev/null && return 0
  echo "This machine's kernel cannot be told how to run programs of $1: it needs binfmt_misc." >&2
  return 1
}
