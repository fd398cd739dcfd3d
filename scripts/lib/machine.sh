# The virtual machine of scripts/realstack: how its files are made and how it is booted. Sourced by
# bash after lib/packages.sh.
#
# The machine is Debian's own kernel with an initial file system that mounts the host's root file
# system, read-only and under an overlay. So it runs the programs of the host, finds the repository
# under the same path, and leaves nothing behind.

machine_packages=(qemu-system-x86 seabios ipxe-qemu busybox-static cpio kmod xz-utils)
# What the initial file system needs to reach the host's files, and the Bluetooth stack with its
# virtual controllers. Their dependencies come along.
machine_modules=(virtio_pci 9pnet_virtio 9p overlay bluetooth hci_vhci)

# check_machine_host: whether this host can make and run the machine at all.
check_machine_host() {
  local architecture
  need_commands dpkg-deb apt-get apt-cache qemu-system-x86_64 busybox modprobe depmod cpio xz ||
    return 1
  architecture=$(dpkg --print-architecture)
  if [ "$architecture" != amd64 ]; then
    echo "The virtual machine runs this host's programs on an emulated amd64 processor, so it" \
      "needs an amd64 Debian; this is $architecture." >&2
    return 1
  fi
}

# prepare_machine DIR: makes the machine's files in DIR unless they are there and up to date.
prepare_machine() {
  local dir=$1 inputs
  inputs=$(machine_inputs)
  if [ -f "$dir/inputs" ] && [ "$(<"$dir/inputs")" = "$inputs" ]; then
    return 0
  fi
  mkdir -p "$dir"
  rm -f "$dir/inputs"
  fetch_kernel "$dir" && unpack_kernel "$dir" && make_initial_files "$dir" || return 1
  echo "$inputs" >"$dir/inputs"
}

# What the machine's files are made from, apart from the kernel, which is kept once it is there.
machine_inputs() {
  dpkg-query -W -f='${Package} ${Version}\n' busybox-static
  sha256sum <"$realstack_lib/machine.sh"
  sha256sum <"$realstack_lib/guest-init.sh"
}

# fetch_kernel DIR: the package of Debian's current kernel, unpacked in DIR/kernel.
fetch_kernel() {
  local dir=$1 package
  [ -d "$dir/kernel" ] && return 0
  echo "Waiting for Debian's kernel package to be downloaded"
  if ! download_kernel "$dir"; then
    # A fresh system has no package lists, an old one has lists of packages that are gone.
    echo "Waiting for new package lists"
    as_root apt-get update >"$dir/apt.log" 2>&1 && download_kernel "$dir" || {
      tail -n 20 "$dir/apt.log" >&2
      echo "The kernel package could not be downloaded." >&2
      return 1
    }
  fi
  for package in "$dir"/download/*.deb; do
    rm -rf "$dir/kernel.part"
    dpkg-deb -x "$package" "$dir/kernel.part" || return 1
  done
  rm -r "$dir/download"
  mv "$dir/kernel.part" "$dir/kernel"
}

download_kernel() {
  local dir=$1 package
  package=$(apt-cache depends linux-image-amd64 2>/dev/null |
    sed -n 's/^ *Depends: \(linux-image-[0-9].*\)/\1/p' | head -n 1)
  [ -n "$package" ] || return 1
  rm -rf "$dir/download"
  mkdir "$dir/download"
  (cd "$dir/download" && apt-get download "$package") >>"$dir/apt.log" 2>&1
}

as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo "$@"; fi
}

# kernel_release DIR: the name under which the kernel's modules are filed.
kernel_release() {
  basename "$1"/kernel/lib/modules/*
}

# unpack_kernel DIR: the bare kernel out of its self-extracting image. Under emulation the machine
# would take seconds of every boot to extract it.
unpack_kernel() {
  local dir=$1 image offset
  image=$dir/kernel/boot/vmlinuz-$(kernel_release "$dir")
  offset=$(LC_ALL=C grep -abo -m 1 -P '\xFD7zXZ\x00' "$image" | head -n 1 | cut -d : -f 1)
  if [ -z "$offset" ]; then
    echo "The kernel in $image is not compressed with xz." >&2
    return 1
  fi
  tail -c +"$((offset + 1))" "$image" | xz -dc --single-stream >"$dir/vmlinux"
  if [ "$(head -c 4 "$dir/vmlinux" | tail -c 3)" != ELF ]; then
    echo "The kernel in $image could not be unpacked." >&2
    return 1
  fi
}

# make_initial_files DIR: the archive DIR/initial.cpio: busybox, the modules in order of loading, and
# the first program.
make_initial_files() {
  local dir=$1 root=$1/initial release module kind file
  release=$(kernel_release "$dir")
  rm -rf "$root"
  mkdir -p "$root"/{bin,modules,proc,sys,dev,host,overlay,newroot}
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
    grep -qxF "$(basename "$file")" "$root/modules/order" 2>/dev/null && continue
    cp "$file" "$root/modules/"
    basename "$file" >>"$root/modules/order"
  done <"$dir/depends"
  (cd "$root" && find . | cpio -o -H newc --quiet) >"$dir/initial.cpio"
}

# boot_machine DIR LIMIT COMMAND...: runs a command as root in the machine and answers with its exit
# status; its output is this one's output. 124 when it takes longer than LIMIT seconds.
boot_machine() {
  local dir=$1 limit=$2 run status
  shift 2
  run=$(mktemp -d "$dir/run.XXXXXX")
  # The command travels in an archive of its own behind the initial one, so that it may hold any
  # characters.
  printf '%q ' "$@" >"$run/job"
  (cd "$run" && echo job | cpio -o -H newc --quiet) | cat "$dir/initial.cpio" - >"$run/initrd"
  # Software emulation, because the machine is to run where there is no other. One instruction is
  # one nanosecond of the machine's time, and time that it would idle away is skipped, by one tick of
  # its timer at a time: in longer skips limits would be over while the host still reads a file.
  timeout -k 5 "$limit" qemu-system-x86_64 \
    -machine q35,accel=tcg -cpu Nehalem -m 768 -smp 1 -icount shift=0,sleep=off \
    -nodefaults -display none -monitor none -no-reboot \
    -serial stdio -serial "file:$run/status" \
    -kernel "$dir/vmlinux" -initrd "$run/initrd" \
    -append "console=ttyS0 quiet loglevel=1 panic=-1 mitigations=off nohz=off rdinit=/init" \
    -virtfs local,path=/,mount_tag=host,security_model=none,readonly=on,multidevs=remap \
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
