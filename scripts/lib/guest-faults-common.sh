# What the fault runs on the real stack share: an application that does as it is told, and what a
# case is made of. Sourced by the guest-faults-*.sh scripts, which scripts/realstack runs in the
# virtual machine; their arguments select the cases whose names contain one of them.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"
probe_log=$guest_logs/probe.log
# A reader's own name is that of its advertisement, as readers' names are.
devices=(--reader KVR-0001,id=reader,gap-name=KVR-0001
  --reader KVR-0002,id=second,gap-name=KVR-0002)

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
begin() {
  local lines
  mapfile -t lines <"$probe_log"
  mark=${#lines[@]}
}

# told PATTERN: sets `times` to how many lines since `begin` match as a whole. It is asked often, so
# it starts no program.
told() {
  local lines line
  times=0
  mapfile -t -s "$mark" lines <"$probe_log"
  for line in "${lines[@]}"; do
    if [[ $line =~ ^($1)$ ]]; then times=$((times + 1)); fi
  done
}

# was_told PATTERN [TIMES]
was_told() {
  told "$1"
  [ "$times" -ge "${2:-1}" ]
}

show_told() { tail -n "+$((mark + 1))" "$probe_log"; }

# expect_told SECONDS PATTERN [TIMES]
expect_told() {
  wait_for "$1" "'$2' from the application" was_told "$2" "${3:-1}" && return 0
  show_told
  return 1
}

# expect_exactly TIMES PATTERN
expect_exactly() {
  told "$2"
  [ "$times" = "$1" ] && return 0
  echo "'$2' came $times times, not $1:"
  show_told
  return 1
}

probe_is_alive() { kill -0 "$probe_pid"; }

disconnected='LOG BLE Disconnected'
powered_on='LOG  CBManager is powered on'
powered_off='LOG  CBManager is powered off'
resetting='LOG  CBManager hardware is resetting'
unsupported='LOG  CBManager hardware is unsupported'

# --- what the cases are made of

# rescan: a scan that really runs. The link that it drops is not reported: the central manager that
# had it is replaced.
rescan() {
  told "$powered_on"
  ask scan
  expect_told 60 "$powered_on" $((times + 1))
}

# link_up: a new scan that tells of the reader anew, then a connection to the reader that was accepted
# last. A lone reader is not accepted a second time.
link_up() {
  local sighted='LOG DiscoverPeripheral  KVR-0001' before
  told "$sighted"
  before=$times
  rescan && expect_told 60 "$sighted" $((before + 1)) &&
    wait_for 60 "the reader to be accepted" last_found KVR-0001 && connect_again
}

# connect_again: to the reader that was accepted last, until it is plugged in.
connect_again() {
  local connected plugged
  told 'LOG BLE Connected'
  connected=$times
  told 'PLUG 1'
  plugged=$times
  ask connect
  expect_told 60 'LOG BLE Connected' $((connected + 1)) && expect_told 60 'PLUG 1' $((plugged + 1))
}

# last_found NAME: whether the application accepted that reader last.
last_found() {
  local lines line last=
  mapfile -t lines <"$probe_log"
  for line in "${lines[@]}"; do
    if [[ $line == FOUND\ * ]]; then last=${line#FOUND }; fi
  done
  [ "$last" = "$1" ]
}

# lost_once: one disconnection report, one unplugged report, and everything works again.
lost_once() {
  expect_told 60 "$disconnected" && link_up &&
    expect_exactly 1 "$disconnected" && expect_exactly 1 'PLUG 0' && probe_is_alive
}

# The scan that the powered-on report starts is alive: it finds a reader that was not there before.
scan_is_alive() {
  order return second && expect_told 60 'FOUND KVR-0002' && order vanish second
}

kill_daemon() {
  kill -KILL "$daemon_pid"
  wait "$daemon_pid" 2>/dev/null
  return 0
}

stop_daemon() {
  kill -TERM "$daemon_pid"
  wait "$daemon_pid" 2>/dev/null
  return 0
}

# stop_readers SIGNAL: the adapter goes with them.
stop_readers() {
  kill "-$1" "$vreader_pid"
  wait "$vreader_pid" 2>/dev/null
  return 0
}

# start_readers DEVICE...: as start_vreader takes them.
start_readers() {
  rm -f "$vreader_orders"
  : >"$vreader_log"  # What the last ones said is not to be taken for the new ones' word.
  start_vreader "$@" || return 1
  if [[ $* == *id=second* ]]; then order vanish second; fi
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

# The reader is asked first: that costs less.
device_is_unlinked() { ! reader_is_linked && ! device_is_linked; }

reader_is_linked() {
  grep -E '^(DIS)?CONNECTED reader( |$)' "$vreader_log" | tail -n 1 | grep -q '^CONNECTED'
}

# closed: an end of the link that the application has asked for.
closed() {
  ask close
  expect_told 60 "$disconnected" && wait_for 60 "the end of the link" device_is_unlinked
}

all_values_came() {
  ask values
  was_told "VALUES $1 in order"
}

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

# fault CASE COMMAND...: a case that begins linked, whatever became of the one before. Its line is
# followed by how many seconds of the machine's time it took.
fault() {
  local from=$SECONDS
  is_wanted "$1" || return 0
  keep_daemon_up
  begin
  if ! device_is_linked 2>/dev/null; then
    order return reader >/dev/null
    order silent reader off >/dev/null
    link_up >/dev/null 2>&1
  fi
  begin
  check "$@"
  echo "        after $((SECONDS - from)) s"
}

# start_faults: the stack, and the application linked to the reader.
start_faults() {
  : >"$probe_log"
  check "the message bus answers" start_bus || finish_cases
  check "the virtual readers are there" start_readers "${devices[@]}" || finish_cases
  check "the daemon's adapter is powered" start_daemon || finish_cases
  check "the application is linked to the reader" first_link || finish_cases
}

first_link() {
  begin
  start_probe && ask scan && expect_told 60 'FOUND KVR-0001' && ask connect &&
    expect_told 60 'PLUG 1'
}
