# `kestrin doctor` on the real stack: what it tells when all is well and under each trouble, and what
# a user without privileges can do. Run by scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"
# Copies, since an ordinary user may not be let into the folder that this was built in.
programs=/run/kestrin-programs
mkdir -p "$programs"
cp "$KESTRIN_BUILD/bin/kestrin" "$KESTRIN_BUILD/tests/fault_probe" "$KESTRIN_BUILD"/lib/*.so.* "$programs"
chmod -R a+rX "$programs"
export LD_LIBRARY_PATH=$programs
kestrin=$programs/kestrin
output=$guest_logs/kestrin.out
# Debian 13 and newer ship it in /usr/share.
policy=/etc/dbus-1/system.d/bluetooth.conf
[ -f "$policy" ] || policy=/usr/share/dbus-1/system.d/bluetooth.conf

# as_nobody GROUP COMMAND...: as an ordinary user with this one group besides his own, or none for -.
as_nobody() {
  local group=$1
  shift
  if [ "$group" = - ]; then
    setpriv --reuid=nobody --regid=nogroup --clear-groups "$@"
  else
    setpriv --reuid=nobody --regid=nogroup --groups "$group" "$@"
  fi
}

# doctor_tells STATUS PATTERN... [-- COMMAND...]: the doctor ends with this status and prints lines
# that match, in at most 24 lines. COMMAND is what runs it.
doctor_tells() {
  local status=$1 actual pattern patterns=()
  shift
  while [ $# -gt 0 ] && [ "$1" != -- ]; do
    patterns+=("$1")
    shift
  done
  "${@:2}" "$kestrin" doctor >"$output" 2>&1
  actual=$?
  cat "$output"
  [ "$actual" = "$status" ] || {
    echo "The exit status is $actual, not $status."
    return 1
  }
  for pattern in "${patterns[@]}"; do
    grep -qE -- "$pattern" "$output" || {
      echo "No line matches: $pattern"
      return 1
    }
  done
  [ "$(wc -l <"$output")" -le 24 ]
}

# scan_finds_the_reader [COMMAND...]: COMMAND is what runs the scan.
scan_finds_the_reader() {
  "$@" "$kestrin" scan --for 6 >"$output" 2>&1 && grep -q '^KVR-0001' "$output" && return 0
  cat "$output"
  return 1
}

# scan_is_refused [COMMAND...]: the scan ends at once, with one line that says what to do.
scan_is_refused() {
  "$@" "$kestrin" scan --for 60 >"$output" 2>&1
  local status=$?
  cat "$output"
  [ "$status" = 1 ] && [ "$(wc -l <"$output")" = 1 ] &&
    grep -q "^kestrin: cannot scan: permission to talk to .* refused: .*adduser USER" "$output"
}

# state_follows_the_policy: a refused user's manager is told state 3, and 5 when the policy lets him.
state_follows_the_policy() {
  local lines=$guest_logs/lines status
  mkfifo "$lines"
  as_nobody - "$programs/fault_probe" <"$lines" >"$output" 2>&1 &
  local probe=$!
  exec 7>"$lines"
  printf 'new\nscan\n' >&7
  wait_for 20 "state 3" grep -x 'LOG  CBManager state is unauthorized' "$output" &&
    allow_by_default &&
    wait_for 60 "state 5" grep -x 'LOG  CBManager is powered on' "$output" && refuse_by_default
  status=$?
  exec 7>&-
  wait "$probe"
  cat "$output"
  return "$status"
}

send_works() {
  "$@" "$kestrin" send KVR-0001 bb00030001b17e6597 --timeout 60 >"$output" 2>&1 &&
    sed -n '/^SENT /,$p' "$output" | grep -q '^FRAME ' && return 0
  cat "$output"
  return 1
}

reload_policy() {
  busctl call org.freedesktop.DBus /org/freedesktop/DBus org.freedesktop.DBus ReloadConfig
}

# refuse_by_default: the policy of a system that is stricter than Debian's: root and a group only.
# Debian 12's names the group already, newer ones leave it out.
refuse_by_default() {
  cp "$policy" "$guest_logs/policy"
  sed -i '/<policy context="default">/,/<\/policy>/d' "$policy"
  grep -q 'group="bluetooth"' "$policy" || sed -i "s|</busconfig>|$group_part&|" "$policy"
  ! grep -q 'context="default"' "$policy" && grep -q 'group="bluetooth"' "$policy" &&
    reload_policy && wait_for 10 "the bus to take the new policy" daemon_refuses_nobody
}

group_part='<policy group="bluetooth"><allow send_destination="org.bluez"/></policy>'

allow_by_default() {
  cp "$guest_logs/policy" "$policy" && reload_policy
}

daemon_refuses_nobody() {
  as_nobody - busctl --auto-start=no get-property org.bluez /org/bluez/hci0 org.bluez.Adapter1 \
    Powered 2>&1 | grep -qi 'denied'
}

set_power() {
  busctl --auto-start=no set-property org.bluez /org/bluez/hci0 org.bluez.Adapter1 Powered b "$1"
}

# set_block 1|0: the kernel's block of the radio, and until the daemon has heard of it.
set_block() {
  local powered=true
  [ "$1" = 0 ] || powered=false
  echo "$1" >/sys/class/rfkill/rfkill0/soft || return 1
  [ "$powered" = false ] || set_power true
  wait_for 10 "the adapter's power to be $powered" adapter_power_is "$powered"
}

adapter_power_is() {
  daemon_property /org/bluez/hci0 Adapter1 Powered | grep -qx "b $1"
}

started=$guest_logs/started

# The bus would start this program for a call to the daemon's name, as it shows at the end.
daemon_stays_away() {
  kill -TERM "$daemon_pid" && wait "$daemon_pid"
  printf '[D-BUS Service]\nName=org.bluez\nUser=root\nExec=/usr/bin/touch %s\n' "$started" \
    >/usr/share/dbus-1/system-services/org.bluez.service
  reload_policy
  doctor_tells 1 '^TROUBLE  daemon +bluetoothd is not running' "systemctl start bluetooth" \
    '^-        adapter' && ! "$kestrin" scan --for 2 && [ ! -e "$started" ] || return 1
  busctl call org.bluez / org.freedesktop.DBus.Peer Ping
  wait_for 10 "the bus to start what is called" test -e "$started"
}

adapter_is_off() {
  set_power false && doctor_tells 1 '^TROUBLE  adapter hci0 .*powered off' \
    "-> 'bluetoothctl power on'" '^ok       radio block' && set_power true
}

adapter_is_blocked() {
  set_block 1 && doctor_tells 1 '^TROUBLE  radio block +hci0 is blocked' \
    "-> 'rfkill unblock bluetooth'" '^TROUBLE  adapter hci0 .*powered off' && set_block 0 &&
    doctor_tells 0 '^ok       radio block +none'
}

# A radio that is blocked without warning, in the middle of a scan, comes back with its power.
scan_outlives_a_block() {
  "$kestrin" scan --for 60 >"$output" 2>&1 &
  local scan=$!
  wait_for 20 "the scan" grep -q '^KVR-0001' "$output" && set_block 1 &&
    wait_for 20 "the scan to tell of it" grep 'hci0 is powered off.*rfkill unblock' "$output" &&
    set_block 0 && wait_for 20 "the radio to be back" radio_was_powered_on_twice
  local status=$?
  kill -TERM "$scan"
  wait "$scan" || status=1
  cat "$output"
  return "$status"
}

radio_was_powered_on_twice() { [ "$(grep -c 'is powered on$' "$output")" = 2 ]; }

bus_is_gone() {
  kill -KILL "$bus_pid"
  doctor_tells 1 '^TROUBLE  message bus' "systemctl start dbus" '^-        daemon'
}

check "doctor: without a message bus" doctor_tells 1 '^TROUBLE  message bus' "start dbus"
check "the message bus answers" start_bus || finish_cases
check "doctor: without a daemon and an adapter" doctor_tells 1 \
  '^TROUBLE  daemon +bluetoothd is not running, and the kernel has no adapter'
check "the virtual readers are there" start_vreader --reader KVR-0001,id=reader || finish_cases
check "the daemon's adapter is powered" start_daemon || finish_cases
check "doctor: all is well" doctor_tells 0 '^ok       message bus' \
  '^ok       daemon +bluetoothd runs, BlueZ [0-9]+\.[0-9]+$' '^ok       permission +user root' \
  '^ok       radio block +none$' '^ok       adapter hci0 .*powered on$' '^A scan works\.$'
check "doctor: an adapter that is off" adapter_is_off
check "doctor: an adapter that is blocked" adapter_is_blocked
check "a scan that a block interrupts goes on when the power is back" scan_outlives_a_block

check "an ordinary user may scan under Debian's policy" scan_finds_the_reader as_nobody -
check "an ordinary user may connect and send under Debian's policy" send_works as_nobody -
check "doctor: all is well for an ordinary user" doctor_tells 0 '^ok       permission +user nobody' \
  -- as_nobody -
check "a stricter policy is in force" refuse_by_default || finish_cases
check "a user whom it refuses is told so at once, and what to do" scan_is_refused as_nobody -
check "the manager of that user is told state 3, and 5 when the policy lets him" \
  state_follows_the_policy
check "doctor: a refused user is told of the group" doctor_tells 1 \
  '^TROUBLE  permission +user nobody may not talk to the daemon' \
  "-> 'adduser nobody bluetooth' and log in again" '^A scan does not work\.$' -- as_nobody -
check "a member of the group bluetooth may scan" scan_finds_the_reader as_nobody bluetooth
check "a member of the group bluetooth may connect and send" send_works as_nobody bluetooth
check "root may scan" scan_finds_the_reader

check "doctor: a daemon that is not running is not started" daemon_stays_away
check "doctor: a message bus that has gone" bus_is_gone
finish_cases
