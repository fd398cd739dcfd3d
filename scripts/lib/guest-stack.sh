# The Bluetooth stack in the virtual machine: the message bus, the virtual readers, the daemon.
# Sourced by bash scripts that run there. Everything is waited for by looking, never by sleeping a
# fixed time.

guest_logs=/run/kestrin
vreader_log=$guest_logs/kestrin-vreader.log
vreader_orders=$guest_logs/orders
mkdir -p "$guest_logs"

passed=0
failed=0

# report ok|FAILED CASE
report() {
  printf '%-6s  %s\n' "$1" "$2"
  if [ "$1" = ok ]; then passed=$((passed + 1)); else failed=$((failed + 1)); fi
}

# check CASE COMMAND...: one line for one case, and what the command printed when it fails.
check() {
  local case=$1
  shift
  if "$@" >"$guest_logs/case.log" 2>&1; then
    report ok "$case"
  else
    report FAILED "$case"
    sed 's/^/        /' "$guest_logs/case.log"
    return 1
  fi
}

# wait_for SECONDS WHAT COMMAND...: polls until the command succeeds; less often when it takes long,
# since looking costs the emulated processor more than waiting.
wait_for() {
  local limit=$1 what=$2 end=$((SECONDS + $1)) polls=0
  shift 2
  until "$@" >/dev/null 2>&1; do
    if [ "$SECONDS" -gt "$end" ]; then
      echo "Waited $limit s in vain for $what" >&2
      return 1
    fi
    polls=$((polls + 1))
    if [ "$polls" -lt 20 ]; then sleep 0.05; else sleep 0.3; fi
  done
}

# finish_cases: the summary, the daemons' logs if a case failed, and the script's end. Its status is
# $stack_crash_status if a case failed and the kernel or the daemon has crashed.
finish_cases() {
  if [ "$failed" -gt 0 ]; then
    show_logs
  fi
  echo "$passed passed, $failed failed"
  if [ "$failed" -gt 0 ] && stack_has_crashed; then
    exit "$stack_crash_status"
  fi
  [ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
  exit
}

stack_crash_status=75

# stack_has_crashed: whether the kernel's own code or the daemon's has; it prints the evidence.
stack_has_crashed() {
  dmesg | grep -E 'Oops|invalid opcode|general protection|kernel BUG|bluetoothd\[[0-9]+\]: segfault'
}

show_logs() {
  local log
  for log in "$guest_logs"/*.log; do
    echo "---- ${log##*/}"
    cat "$log"
  done
  echo "---- kernel"
  dmesg | grep -iE 'bluetooth|hci|segfault' | tail -n 30
}

start_bus() {
  mkdir -p /run/dbus
  bus_pid=$(dbus-daemon --system --fork --nopidfile --print-pid)
  wait_for 20 "the message bus" busctl --no-pager list
}

# start_vreader OPTIONS...: the virtual readers; their events go to $vreader_log.
start_vreader() {
  "$KESTRIN_BUILD/bin/kestrin-vreader" --orders "$vreader_orders" "$@" >"$vreader_log" 2>&1 &
  vreader_pid=$!
  wait_for 20 "the virtual readers" grep -q '^READY ' "$vreader_log"
}

# start_daemon: the Bluetooth daemon, until its adapter is powered. DAEMON_CACHE=no makes it forget
# a device's attributes when the link ends.
start_daemon() {
  {
    printf '[General]\nControllerMode = le\n'
    [ -z "${DAEMON_CACHE:-}" ] || printf '[GATT]\nCache = %s\n' "$DAEMON_CACHE"
  } >"$guest_logs/main.conf"
  /usr/libexec/bluetooth/bluetoothd -n -f "$guest_logs/main.conf" \
    >>"$guest_logs/bluetoothd.log" 2>&1 &
  daemon_pid=$!
  wait_for 30 "the daemon's adapter to be powered" adapter_is_powered
}

# daemon_property PATH INTERFACE PROPERTY: the value as busctl prints it.
daemon_property() {
  busctl --auto-start=no get-property org.bluez "$1" "org.bluez.$2" "$3"
}

adapter_is_powered() {
  daemon_property /org/bluez/hci0 Adapter1 Powered | grep -qx 'b true'
}

# order WORDS...: gives the virtual readers an order and waits until it is carried out.
order() {
  local before
  before=$(grep -cE '^ORDER(-REFUSED)? ' "$vreader_log")
  echo "$*" >"$vreader_orders"
  wait_for 10 "the order '$*'" order_was_answered "$before"
  if grep -E '^ORDER(-REFUSED)? ' "$vreader_log" | sed -n "$((before + 1))p" |
    grep '^ORDER-REFUSED'; then
    return 1
  fi
}

order_was_answered() {
  [ "$(grep -cE '^ORDER(-REFUSED)? ' "$vreader_log")" -gt "$1" ]
}
