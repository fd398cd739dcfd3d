#!/bin/busybox sh
# The first program in the virtual machine: makes the host's files this machine's root, runs the job
# and switches the machine off. The job's exit status goes out on the second serial port.

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

# Nothing else changes the host's files while the machine runs, so what was read once stays valid.
mount -t 9p -o trans=virtio,version=9p2000.L,msize=512000,ro,cache=loose host /host ||
  give_up "the host's files cannot be mounted"
mount -t tmpfs tmpfs /overlay
mkdir /overlay/changed /overlay/work
mount -t overlay -o lowerdir=/host,upperdir=/overlay/changed,workdir=/overlay/work overlay \
  /newroot || give_up "the overlay over the host's files cannot be mounted"

mount -t proc proc /newroot/proc
mount -t sysfs sys /newroot/sys
mount -t devtmpfs dev /newroot/dev
mkdir -p /newroot/dev/pts /newroot/dev/shm /newroot/var/lib/bluetooth
mount -t devpts devpts /newroot/dev/pts
for directory in dev/shm run var/lib/bluetooth; do
  mount -t tmpfs tmpfs "/newroot/$directory"
done
ip link set lo up

cp /job /newroot/run/job
chroot /newroot /usr/bin/env -i HOME=/root TERM=dumb \
  PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin /bin/bash /run/job
echo $? >/dev/ttyS1
poweroff -f
