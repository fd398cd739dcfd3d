# Faults on the real stack, in the virtual machine: what an application sees when the reader, the
# daemon, the bus or the adapter goes at a bad moment, and that it can go on afterwards.
# Run by scripts/realstack. Arguments: only the cases whose names contain one of them.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"
kestrin=$KESTRIN_BUILD/bin/kestrin
probe_log=$guest_logs/probe.log
devices=(--reader KVR-0001,id=reader --reader KVR-0002,id=second)
frame_of_200_bytes=bb002200c0$(printf '%0384d' 0)7e0000

# --- the application

start_probe() {
  rm -f "$guest_logs/lines"
  mkfifo "$guest_logs/lines"
  exec 7<>"$guest_logs/lines"
  "$KESTRIN_BUILD/tests/fault_probe" <"$guest_logs/lines" >>"$probe_log" 2>&1 7>&- &
  probe_pid=$!
  ask new
}

ask() { echo "$*" >&7; }

# begin: from here on lines are counted.
begin() { mark=$(wc -l <"$probe_log"); }

# told PATTERN: how many lines since `begin` match as a whole.
told() { tail -n "+$((mark + 1))" "$probe_log" | grep -cxE "$1"; }

was_told() { [ "$(told "$1")" -ge "${2:-1}" ]; }

# expect_told SECONDS PATTERN [TIMES]
expect_told() {
  wait_for "$1" "'$2' from the application" was_told "$2" "${3:-1}" && return 0
  tail -n "+$((mark + 1))" "$probe_log"
  return 1
}

# expect_exactly TIMES PATTERN
expect_exactly() {
  [ "$(told "$2")" = "$1" ] && return 0
  echo "'$2' came $(told "$2") times, not $1:"
  tail -n "+$((mark + 1))" "$probe_log"
  return 1
}

probe_is_alive() { kill -0 "$probe_pid"; }

disconnected='LOG BLE Disconnected'
powered_on='LOG  CBManager is powered on'
powered_off='LOG  CBManager is powered off'
resetting='LOG  CBManager hardware is resetting'

# --- what the cases are made of

# rescan: a scan that really runs. The link that it drops is not reported: the central manager that
# had it is replaced.
rescan() {
  local before
  before=$(told "$powered_on")
  ask scan
  expect_told 30 "$powered_on" $((before + 1))
}

# link_up: a new scan, then a connection to the reader that was accepted last. A lone reader is not
# accepted a second time.
link_up() {
  local before
  before=$(told 'PLUG 1')
  rescan || return 1
  if ! grep '^FOUND ' "$probe_log" | tail -n 1 | grep -qx 'FOUND KVR-0001'; then
    wait_for 30 "the reader to be found" last_found KVR-0001 || return 1
  fi
  ask connect
  expect_told 60 'PLUG 1' $((before + 1))
}

last_found() { grep '^FOUND ' "$probe_log" | tail -n 1 | grep -qx "FOUND $1"; }

# lost_once: one disconnection report, one unplugged report, and everything works again.
lost_once() {
  expect_told "${1:-15}" "$disconnected" && link_up &&
    expect_exactly 1 "$disconnected" && expect_exactly 1 'PLUG 0' && probe_is_alive
}

# The scan that the powered-on report starts is alive: it finds a reader that was not there before.
scan_is_alive() {
  order return second && expect_told 30 'FOUND KVR-0002' && order vanish second
}

kill_daemon() {
  kill -KILL "$daemon_pid"
  wait "$daemon_pid" 2>/dev/null
  return 0
}

daemon_is_down() { ! kill -0 "$daemon_pid"; }

set_power() {
  busctl --auto-start=no set-property org.bluez /org/bluez/hci0 org.bluez.Adapter1 Powered b "$1"
}

# The daemon of this system can end with a fault of its own; a service manager starts it anew.
keep_daemon_up() {
  kill -0 "$daemon_pid" 2>/dev/null || start_daemon
}

device_is_linked() {
  daemon_property /org/bluez/hci0/dev_C0_DE_00_00_00_01 Device1 Connected | grep -qx 'b true'
}

device_is_unlinked() { ! device_is_linked; }

wanted=("$@")

# is_wanted CASE
is_wanted() {
  local part
  [ ${#wanted[@]} -gt 0 ] || return 0
  for part in "${wanted[@]}"; do
    [[ $1 != *"$part"* ]] || return 0
  done
  return 1
}

# fault CASE COMMAND...: a case that begins linked, whatever became of the one before.
fault() {
  local from=$SECONDS
  is_wanted "$1" || return 0
  keep_daemon_up
  begin
  if ! device_is_linked; then
    order return reader >/dev/null
    order silent reader off >/dev/null
    link_up >/dev/null 2>&1
  fi
  check "$@"
  echo "        after $((SECONDS - from)) s"
}

# --- the cases

first_link() {
  begin
  order vanish second && start_probe && ask scan && expect_told 30 'FOUND KVR-0001' &&
    ask connect && expect_told 60 'PLUG 1'
}

reader_drops_link() {
  begin
  order drop reader && lost_once
}

reader_goes_during_discovery() {
  begin
  ask close
  expect_told 15 "$disconnected" || return 1
  begin
  order silent reader on && ask connect && expect_told 30 'LOG BLE Connected' &&
    order drop reader && order silent reader off && expect_told 15 "$disconnected" &&
    keep_daemon_up && lost_once && expect_exactly 1 'PLUG 1'
}

readers_are_killed_in_a_burst() {
  begin
  order burst reader 5000 20 || return 1
  kill -KILL "$vreader_pid"
  wait "$vreader_pid" 2>/dev/null
  expect_told 15 "$disconnected" && expect_told 15 "$resetting" || return 1
  rm -f "$vreader_orders"
  start_vreader "${devices[@]}" && order vanish second &&
    expect_told 30 "$powered_on" && lost_once
}

daemon_is_killed_idle() {
  begin
  ask close
  expect_told 15 "$disconnected" || return 1
  begin
  kill_daemon
  expect_told 15 "$resetting" && start_daemon && expect_told 30 "$powered_on" && link_up &&
    expect_exactly 0 "$disconnected"
}

daemon_is_killed_scanning() {
  begin
  rescan && wait_for 20 "the end of the link" device_is_unlinked || return 1
  begin
  kill_daemon
  expect_told 15 "$resetting" && start_daemon && expect_told 30 "$powered_on" && scan_is_alive &&
    link_up && expect_exactly 0 "$disconnected"
}

daemon_is_killed_connected() {
  begin
  kill_daemon
  expect_told 15 "$disconnected" && start_daemon && expect_told 30 "$powered_on" && lost_once
}

daemon_is_killed_in_a_write() {
  begin
  ask send "$frame_of_200_bytes"
  wait_for 10 "the first slice of the frame" grep -q 'WRITE reader .* 20 bb002200c0' "$vreader_log"
  kill_daemon
  expect_told 15 "$disconnected" && start_daemon && expect_told 30 "$powered_on" && lost_once
}

bus_goes() {
  begin
  kill -KILL "$bus_pid"
  expect_told 15 "$disconnected" && expect_told 15 "$resetting" || return 1
  expect_exactly 1 "$disconnected" && expect_exactly 1 'PLUG 0' || return 1
  wait_for 20 "the daemon to end with its bus" daemon_is_down || return 1
  start_bus && start_daemon && expect_told 60 "$powered_on" && probe_is_alive || return 1
  # The new daemon can take the old one's link over and drop it at once, which is a link of its own
  # to the application.
  link_up || {
    begin
    link_up && expect_exactly 0 "$disconnected"
  }
}

adapter_goes_off_and_on_connected() {
  begin
  set_power false && expect_told 15 "$disconnected" && expect_told 15 "$powered_off" &&
    set_power true && expect_told 30 "$powered_on" && lost_once
}

adapter_goes_off_and_on_scanning() {
  begin
  rescan && wait_for 20 "the end of the link" device_is_unlinked || return 1
  begin
  set_power false && expect_told 15 "$powered_off" && set_power true &&
    expect_told 30 "$powered_on" && scan_is_alive && link_up && expect_exactly 0 "$disconnected"
}

absent_reader_appears_later() {
  begin
  ask close
  expect_told 15 "$disconnected" || return 1
  order vanish reader || return 1
  begin
  ask connect
  sleep 12
  expect_exactly 0 'LOG BLE .*' && order return reader && expect_told 90 'PLUG 1' &&
    expect_exactly 0 "$disconnected"
}

close_while_pending() {
  begin
  ask close
  expect_told 15 "$disconnected" || return 1
  order vanish reader || return 1
  begin
  ask connect
  sleep 2
  ask close
  expect_told 5 'PLUG 0' && expect_told 20 "$disconnected" && order return reader && link_up &&
    expect_exactly 1 "$disconnected" && expect_exactly 2 'PLUG 0'
}

all_values_came() {
  ask values
  was_told "VALUES $1 in order"
}

slow_receiver_loses_nothing() {
  begin
  ask busy 5
  order burst reader 2000 20 &&
    wait_for 60 "2,000 values in order" all_values_came 2000 && expect_exactly 0 "$disconnected"
}

notifications_after_a_reconnection() {
  begin
  order drop reader && lost_once && order burst reader 100 20 &&
    wait_for 20 "100 values in order" all_values_came 100
}

write_was_refused() { grep -q '^REFUSED reader writes' "$vreader_log"; }

# Nobody is told; the link and its values go on.
refused_write() {
  begin
  order refuse reader writes 0x80 && ask send bb00030001b17e6597 &&
    wait_for 10 "the reader to refuse the write" write_was_refused &&
    order refuse reader writes off && order burst reader 10 20 &&
    wait_for 20 "10 values in order" all_values_came 10 && expect_exactly 0 "$disconnected"
}

# The daemon gives the link up after the 30 s that an answer may take.
unanswered_write() {
  begin
  order silent reader on && ask send bb00030001b17e6597 && expect_told 60 "$disconnected" &&
    order silent reader off && keep_daemon_up && lost_once
}

manager_is_destroyed() {
  local before
  begin
  case $1 in
    scanning) rescan ;;
    connecting)
      ask close
      expect_told 15 "$disconnected" && order vanish reader || return 1
      ask connect
      sleep 1
      ;;
    linked) ;;
    burst) order burst reader 5000 20 ;;
  esac || return 1
  ask drop
  expect_told 15 DROPPED && wait_for 30 "the end of the link" device_is_unlinked || return 1
  [ "$1" != connecting ] || order return reader || return 1
  begin
  ask new
  ask scan
  expect_told 30 'FOUND KVR-0001' && ask connect && expect_told 60 'PLUG 1' && probe_is_alive
}

kestrin_is_plugged() { grep -qi '^plugged' "$guest_logs/monitor.out"; }

sigterm_leaves_no_link() {
  ask quit
  wait "$probe_pid" || return 1
  : >"$probe_log"
  wait_for 20 "the end of the link" device_is_unlinked || return 1
  "$kestrin" monitor KVR-0001 >"$guest_logs/monitor.out" 2>&1 &
  local monitor=$!
  wait_for 40 "kestrin to be plugged in" kestrin_is_plugged || return 1
  device_is_linked || return 1
  kill -TERM "$monitor"
  wait "$monitor" && device_is_unlinked
}

# Nobody is left to end the link, and a linked reader does not advertise.
sigkill_leaves_the_link() {
  kill -KILL "$probe_pid"
  wait "$probe_pid" 2>/dev/null
  device_is_linked || return 1
  busctl --auto-start=no call org.bluez /org/bluez/hci0/dev_C0_DE_00_00_00_01 org.bluez.Device1 \
    Disconnect || return 1
  "$kestrin" send KVR-0001 bb00030001b17e6597 --timeout 60 >"$guest_logs/send.out" 2>&1 || {
    cat "$guest_logs/send.out"
    return 1
  }
  grep '^FRAME ' "$guest_logs/send.out"
}

: >"$probe_log"
check "the message bus answers" start_bus || finish_cases
check "the virtual readers are there" start_vreader "${devices[@]}" || finish_cases
check "the daemon's adapter is powered" start_daemon || finish_cases
check "the application is linked to the reader" first_link || finish_cases

fault "the reader drops the link" reader_drops_link
fault "the reader goes while services are discovered" reader_goes_during_discovery
fault "a receiver that sleeps 5 s in a burst of 2,000 values loses none" slow_receiver_loses_nothing
fault "notifications work after a reconnection" notifications_after_a_reconnection
fault "a write that the reader refuses changes nothing" refused_write
fault "a write that the reader never answers" unanswered_write
fault "the daemon is killed, idle" daemon_is_killed_idle
fault "the daemon is killed while scanning" daemon_is_killed_scanning
fault "the daemon is killed while connected" daemon_is_killed_connected
fault "the daemon is killed in the middle of a write" daemon_is_killed_in_a_write
fault "the adapter goes off and on while connected" adapter_goes_off_and_on_connected
fault "the adapter goes off and on while scanning" adapter_goes_off_and_on_scanning
fault "a reader that is not there appears later" absent_reader_appears_later
fault "close while the attempt is pending" close_while_pending
fault "the readers' process is killed in a burst" readers_are_killed_in_a_burst
fault "the message bus goes" bus_goes
for moment in scanning connecting linked burst; do
  fault "the manager is destroyed: $moment" manager_is_destroyed "$moment"
done
fault "SIGTERM while connected leaves no link behind" sigterm_leaves_no_link
start_probe
fault "SIGKILL while connected leaves a link that the daemon can be told to end" \
  sigkill_leaves_the_link
finish_cases
