#!/bin/busybox sh
# The first program in the virtual machine: makes the files that it is given this machine's root, runs
# the job and switches the machine off. The job's exit status goes out on the second serial port. Where the
# job is for a service manager, it makes room for that, which does the same with the job as a unit.

PATH=/bin
/bin/busybox --install -s /bin

give_up() {
  echo "The virtual machine cannot start: $1"
  poweroff -f
}

mount -t proc proc /proc
mount -t sysfs sys /sys
mount -t devtmpfs dev /dev
while read -r module; do
  insmod "/modules/$module" || give_up "the kernel refuses the module $module"
done </modules/order

# mount_share NAME WHERE: the host's files of that name; what is changed in them is kept in memory.
# Nothing else changes them while the machine runs, so what was read once stays valid.
mount_share() {
  mount -t 9p -o trans=virtio,version=9p2000.L,msize=512000,ro,cache=loose "$1" "/$1" ||
    give_up "the files of the share $1 cannot be mounted"
  mkdir -p "/overlay/$1/changed" "/overlay/$1/work" "$2"
  mount -t overlay -o "lowerdir=/$1,upperdir=/overlay/$1/changed,workdir=/overlay/$1/work" overlay \
    "$2" || give_up "the overlay over the files of the share $1 cannot be mounted"
}

mount -t tmpfs tmpfs /overlay
mount_share host /newroot
repository=$(cat /repository-path)
[ -z "$repository" ] || mount_share repository "/newroot$repository"

mount -t proc proc /newroot/proc
mount -t sysfs sys /newroot/sys
mount -t devtmpfs dev /newroot/dev
mkdir -p /newroot/dev/pts /newroot/dev/shm /newroot/var/lib/bluetooth
ln -s /proc/self/fd /newroot/dev/fd
mount -t devpts devpts /newroot/dev/pts
for directory in dev/shm run var/lib/bluetooth; do
  mount -t tmpfs tmpfs "/newroot/$directory"
done
ip link set lo up

cp /job /newroot/run/job
if [ "$(cat /manager)" = systemd ]; then
  [ -x /newroot/lib/systemd/systemd ] || give_up "its files have no service manager"
  units=/newroot/run/systemd/system
  mkdir -p "$units"
  cat >"$units/kestrin-job.target" <<'END'
[Unit]
Requires=basic.target
After=basic.target
Wants=kestrin-job.service
AllowIsolate=yes
END
  cat >"$units/kestrin-job.service" <<'END'
[Unit]
SuccessAction=poweroff-immediate
FailureAction=poweroff-immediate
[Service]
Type=oneshot
Environment=HOME=/root TERM=dumb
ExecStart=/bin/bash /run/job
ExecStopPost=/bin/sh -c 'echo "$EXIT_STATUS" >/dev/ttyS1'
StandardOutput=tty
StandardError=tty
TTYPath=/dev/ttyS0
END
  # A service manager of a container does without much, and this machine is none, whatever its host is.
  rm -f /newroot/.dockerenv
  # Nothing here is plugged in later, modules are loaded already, nothing is to be cleaned, and daily work can
  # wait.
  for unit in systemd-udevd.service systemd-udevd-control.socket systemd-udevd-kernel.socket \
    systemd-udev-trigger.service systemd-modules-load.service \
    systemd-tmpfiles-setup.service systemd-timesyncd.service timers.target; do
    ln -s /dev/null "$units/$unit"
  done
  exec switch_root /newroot /lib/systemd/systemd --unit=kestrin-job.target
fi
chroot /newroot /usr/bin/env -i HOME=/root TERM=dumb \
  PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin /bin/bash /run/job
echo $? >/dev/ttyS1
poweroff -f
