# The virtual machine of scripts/realstack: how its files are made and how it is booted. Sourced by
# bash after lib/packages.sh and lib/roots.sh; the repository is $project_root.
#
# The machine is a Debian kernel with an initial file system that mounts a root file system, read-only
# and under an overlay: the host's, or that of another release, which lib/roots.sh makes. So it runs the
# programs of that release, finds the repository under the same path, and leaves nothing behind.

machine_packages=(qemu-system-x86 seabios ipxe-qemu busybox-static cpio kmod util-linux xz-utils zstd)
# What the initial file system needs to reach the host's files, and the Bluetooth stack with its
# virtual controllers. Their dependencies come along.
machine_modules=(virtio_pci 9pnet_virtio 9p overlay bluetooth hci_vhci)

# check_machine_host: whether this host can make and run the machine at all.
check_machine_host() {
  local architecture
  need_commands dpkg-deb apt-get apt-cache qemu-system-x86_64 busybox modprobe depmod cpio xz zstd \
    flock ||
    return 1
  architecture=$(dpkg --print-architecture)
  if [ "$architecture" != amd64 ]; then
    echo "The virtual machine runs Debian's programs on an emulated amd64 processor, so it" \
      "needs an amd64 Debian; this is $architecture." >&2
    return 1
  fi
}

# one_at_a_time LOCK COMMAND...: while another call holds the lock this one waits.
one_at_a_time() {
  local lock=$1 descriptor status
  shift
  mkdir -p "$(dirname "$lock")"
  exec {descriptor}>"$lock"
  flock -n "$descriptor" || {
    echo "Waiting for another call of this script to end its preparations"
    flock "$descriptor"
  }
  "$@"
  status=$?
  exec {descriptor}>&-
  return "$status"
}

# prepare_machine DIR ROOT: makes the machine's files in DIR unless they are there and up to date. Its
# kernel is the one of the release whose root file system ROOT is.
prepare_machine() {
  one_at_a_time "$1.lock" make_machine "$@"
}

make_machine() {
  local dir=$1 machine_root=$2 inputs
  inputs=$(machine_inputs)
  if [ -f "$dir/inputs" ] && [ "$(<"$dir/inputs")" = "$inputs" ]; then
    return 0
  fi
  mkdir -p "$dir"
  rm -f "$dir/inputs"
  fetch_kernel "$dir" "$machine_root" && unpack_kernel "$dir" && make_initial_files "$dir" || return 1
  echo "$inputs" >"$dir/inputs"
}

# What the machine's files are made from, apart from the kernel, which is kept once it is there.
machine_inputs() {
  dpkg-query -W -f='${Package} ${Version}\n' busybox-static
  sha256sum <"$realstack_lib/machine.sh"
  sha256sum <"$realstack_lib/guest-init.sh"
}

# fetch_kernel DIR ROOT: the package of that release's current kernel, unpacked in DIR/kernel.
fetch_kernel() {
  local dir=$1 machine_root=$2 package
  [ -d "$dir/kernel" ] && return 0
  echo "Waiting for Debian's kernel package to be downloaded"
  if ! download_kernel "$dir" "$machine_root"; then
    # A fresh system has no package lists, an old one has lists of packages that are gone.
    echo "Waiting for new package lists"
    as_root_of "$machine_root" apt-get update >"$dir/apt.log" 2>&1 &&
      download_kernel "$dir" "$machine_root" || {
      tail -n 20 "$dir/apt.log" >&2
      echo "The kernel package could not be downloaded; the log is $dir/apt.log." >&2
      return 1
    }
  fi
  rm -rf "$dir/kernel.part"
  for package in "$dir"/download/*.deb; do
    dpkg-deb -x "$package" "$dir/kernel.part" || return 1
  done
  rm -r "$dir/download"
  # From Debian 13 on the modules are in usr/lib, which kmod looks for in lib.
  [ -d "$dir/kernel.part/lib" ] || ln -s usr/lib "$dir/kernel.part/lib"
  if ! compgen -G "$dir/kernel.part/lib/modules/*" >/dev/null ||
    ! compgen -G "$dir/kernel.part/boot/vmlinuz-*" >/dev/null &&
    ! compgen -G "$dir/kernel.part/lib/modules/*/vmlinuz" >/dev/null; then
    echo "The kernel package has no kernel or no modules; what it has is in $dir/kernel.part." >&2
    return 1
  fi
  mv "$dir/kernel.part" "$dir/kernel"
}

# From Debian 14 on the kernel, its modules and the lists of them have packages of their own, which the
# kernel's asks for.
download_kernel() {
  local dir=$1 machine_root=$2 package packages
  package=$(kernel_depends "$machine_root" linux-image-amd64 'linux-image-[0-9].*' | head -n 1)
  [ -n "$package" ] || return 1
  mapfile -t packages < <(kernel_depends "$machine_root" "$package" 'linux-(base|binary|modules)-[0-9].*')
  rm -rf "$dir/download"
  mkdir "$dir/download"
  run_of "$machine_root" sh -c 'cd "$1" && shift && apt-get -o APT::Sandbox::User=root download "$@"' \
    download "$dir/download" "$package" "${packages[@]}" >>"$dir/apt.log" 2>&1
}

# kernel_depends ROOT PACKAGE PATTERN: the packages of such names that this one asks for.
kernel_depends() {
  run_of "$1" apt-cache depends "$2" 2>/dev/null | sed -nE "s/^ *Depends: ($3)\$/\1/p"
}

# run_of ROOT COMMAND...: a program of that root file system; as_root_of: as root.
run_of() {
  local machine_root=$1
  shift
  if [ "$machine_root" = / ]; then "$@"; else in_root "$machine_root" "$@"; fi
}

as_root_of() {
  local machine_root=$1
  shift
  if [ "$machine_root" = / ]; then as_root "$@"; else in_root "$machine_root" "$@"; fi
}

# kernel_release DIR: the name under which the kernel's modules are filed.
kernel_release() {
  basename "$1"/kernel/lib/modules/*
}

# unpack_kernel DIR: the bare kernel out of its self-extracting image. Under emulation the machine
# would take seconds of every boot to extract it.
unpack_kernel() {
  local dir=$1 image
  image=$dir/kernel/boot/vmlinuz-$(kernel_release "$dir")
  # Where Debian 14 has it.
  [ -f "$image" ] || image=$dir/kernel/lib/modules/$(kernel_release "$dir")/vmlinuz
  unpack_from "$image" '\xFD7zXZ\x00' xz -dc --single-stream >"$dir/vmlinux" ||
    unpack_from "$image" '\x28\xB5\x2F\xFD' zstd -dc >"$dir/vmlinux" || {
    echo "The kernel in $image is compressed neither with xz nor with zstd." >&2
    return 1
  }
}

# unpack_from IMAGE MAGIC COMMAND...: what the command makes of the image from a place on at which the
# magic number stands, if that is a kernel. The same bytes may stand elsewhere by chance, and what
# follows the kernel is none of the command's.
unpack_from() {
  local image=$1 magic=$2 offset part
  shift 2
  part=$(mktemp) || return 1
  for offset in $(LC_ALL=C grep -aboP "$magic" "$image" | cut -d : -f 1); do
    tail -c +"$((offset + 1))" "$image" | "$@" >"$part" 2>/dev/null
    if [ "$(head -c 4 "$part" | tail -c 3)" = ELF ]; then
      cat "$part"
      rm "$part"
      return 0
    fi
  done
  rm "$part"
  return 1
}

# make_initial_files DIR: the archive DIR/initial.cpio: busybox, the modules in order of loading, and
# the first program.
make_initial_files() {
  local dir=$1 root=$1/initial release module kind file name
  release=$(kernel_release "$dir")
  rm -rf "$root"
  mkdir -p "$root"/{bin,modules,proc,sys,dev,host,repository,overlay,newroot}
  cp "$(command -v busybox)" "$root/bin/busybox"
  install -m 755 "$realstack_lib/guest-init.sh" "$root/init"
  depmod -b "$dir/kernel" "$release"
  for module in "${machine_modules[@]}"; do
    if ! modprobe -d "$dir/kernel" -S "$release" --show-depends "$module"; then
      echo "The kernel has no module $module." >&2
      return 1
    fi
  done >"$dir/depends"
  while read -r kind file; do
    [ "$kind" = insmod ] || continue
    name=$(basename "$file")
    name=${name%.xz}
    name=${name%.zst}
    grep -qxF "$name" "$root/modules/order" 2>/dev/null && continue
    case $file in
      *.xz) xz -dc "$file" ;;
      *.zst) zstd -dcq "$file" ;;
      *) cat "$file" ;;
    esac >"$root/modules/$name" || return 1
    echo "$name" >>"$root/modules/order"
  done <"$dir/depends"
  (cd "$root" && find . | cpio -o -H newc --quiet) >"$dir/initial.cpio"
}

# The host's disks are not the machine's.
machine_words="fstab=no systemd.gpt_auto=no systemd.show_status=no"

# boot_machine DIR ROOT LIMIT COMMAND...: runs a command as root in the machine, on that root file
# system, and ends with its exit status; its output is this one's output. 124 when it takes longer
# than LIMIT seconds. With machine_manager=systemd the command runs as a unit of the release's service
# manager, and else it is all that runs. It has machine_memory MiB, 768 without it.
boot_machine() {
  local dir=$1 machine_root=$2 limit=$3 run status shares=()
  shift 3
  run=$(mktemp -d "$dir/run.XXXXXX")
  # The command travels in an archive of its own behind the initial one, so that it may hold any
  # characters.
  printf '%q ' "$@" >"$run/job"
  # The host's root has the repository already.
  : >"$run/repository-path"
  printf '%s' "${machine_manager:-}" >"$run/manager"
  if [ "$machine_root" != / ]; then
    printf '%s' "$project_root" >"$run/repository-path"
    shares+=(-virtfs "local,path=$project_root,mount_tag=repository,security_model=none,readonly=on,multidevs=remap")
  fi
  (cd "$run" && printf '%s\n' job repository-path manager | cpio -o -H newc --quiet) | cat "$dir/initial.cpio" - >"$run/initrd"
  # Software emulation, because the machine is to run where there is no other. One instruction is
  # one nanosecond of the machine's time, and time that it would idle away is skipped, by one tick of
  # its timer at a time: in longer skips limits would be over while the host still reads a file.
  timeout -k 5 "$limit" qemu-system-x86_64 \
    -machine q35,accel=tcg -cpu Nehalem -m "${machine_memory:-768}" -smp 1 -icount shift=0,sleep=off \
    -nodefaults -display none -monitor none -no-reboot \
    -serial stdio -serial "file:$run/status" \
    -kernel "$dir/vmlinux" -initrd "$run/initrd" \
    -append "console=ttyS0 quiet loglevel=1 panic=-1 mitigations=off nohz=off rdinit=/init $machine_words" \
    -virtfs "local,path=$machine_root,mount_tag=host,security_model=none,readonly=on,multidevs=remap" \
    "${shares[@]}" \
    </dev/null | sed -u -e 's/\r$//' -e '/reboot: Power down$/d'
  status=${PIPESTATUS[0]}
  if [ "$status" -eq 124 ] || [ "$status" -eq 137 ]; then
    echo "The virtual machine was stopped: it did not end within $limit s." >&2
    status=124
  elif [ "$status" -eq 0 ]; then
    status=$(tr -dc '0-9' <"$run/status")
  fi
  rm -r "$run"
  if [ -z "$status" ]; then
    echo "The virtual machine ended without saying how its job went." >&2
    status=1
  fi
  return "$status"
}
