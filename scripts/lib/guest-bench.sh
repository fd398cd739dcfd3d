# The measurement in the virtual machine: clients of one virtual reader in turns, and what processor
# time they, the message bus and the daemon take for the same values. Arguments: the boot's number, the
# number of turns, then the clients. Run by scripts/realstack-bench, which says what the lines mean
# that begin with MEASURED.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"

boot=$1
turns=$2
shift 2
clients=("$@")

values=2000
# Phases: a name, and how a burst of so many values of 20 bytes leaves the reader: how many together
# and how many milliseconds until the next.
phases=("800/s 8 10" "flat-out 6 0" "6400/s 32 5")
idle_seconds=10
device=/org/bluez/hci0/dev_C0_DE_00_00_00_01
# The sum of the numbers that the values carry, from 0 on.
expected_sum=$((values * (values - 1) / 2))

client_command() {
  if [ "$1" = bleak ]; then
    command=(python3 "$KESTRIN_ROOT/bench/realstack/bleak_client.py")
  else
    command=("$KESTRIN_BUILD/bench/kestrin_client_$1")
  fi
}

# nanoseconds_of PID: processor time of all threads, in $spent.
nanoseconds_of() {
  local file on_processor rest
  spent=0
  for file in /proc/"$1"/task/*/schedstat; do
    read -r on_processor rest <"$file" && spent=$((spent + on_processor))
  done
}

# switches_of PID: how often its threads gave the processor away or lost it, in $switches.
switches_of() {
  local file name count
  switches=0
  for file in /proc/"$1"/task/*/status; do
    while read -r name count; do
      case $name in *voluntary_ctxt_switches:) switches=$((switches + count)) ;; esac
    done <"$file"
  done
}

# look: what the three have used by now, in $client_ns, $bus_ns, $daemon_ns and $client_switches.
look() {
  nanoseconds_of "$client_pid" && client_ns=$spent
  nanoseconds_of "$bus_pid" && bus_ns=$spent
  nanoseconds_of "$daemon_pid" && daemon_ns=$spent
  switches_of "$client_pid" && client_switches=$switches
}

# become_quiet: until the three do next to nothing any more, for clients that are behind.
become_quiet() {
  local before round
  for ((round = 0; round < 60; ++round)); do
    look
    before=$((client_ns + bus_ns + daemon_ns))
    sleep 0.5
    look
    [ $((client_ns + bus_ns + daemon_ns - before)) -gt 1500000 ] || return 0
  done
}

# milliseconds NANOSECONDS: with three decimals, in $text.
milliseconds() {
  local microseconds=$(($1 / 1000))
  printf -v text '%d.%03d' $((microseconds / 1000)) $((microseconds % 1000))
}

# ask_count: how many values have come since the last time, in $count, and their sum in $sum.
ask_count() {
  local before
  before=$(grep -c '^COUNT ' "$client_out")
  echo count >&8
  wait_for 60 "the client's count" counted_again "$before" || return 1
  read -r _ count sum <<<"$(tail -n 1 "$client_out")"
}

counted_again() { [ "$(grep -c '^COUNT ' "$client_out")" -gt "$1" ]; }

start_client() {
  local lines=$guest_logs/lines
  client_out=$guest_logs/client.out
  client_command "$1"
  rm -f "$lines" && mkfifo "$lines"
  "${command[@]}" <"$lines" >"$client_out" 2>"$guest_logs/client.log" &
  client_pid=$!
  exec 8>"$lines"
  wait_for 90 "the client $1 to have its subscription" grep -q '^UP ' "$client_out" &&
    wait_for 10 "the subscription at the reader" subscribed && read -r _ connect_ms <"$client_out"
}

subscribed() { [ "$(grep -c '^SUBSCRIBED reader' "$vreader_log")" -gt "$subscriptions" ]; }
disconnected() { [ "$(grep -c '^DISCONNECTED reader' "$vreader_log")" -gt "$ends" ]; }

# The link and what the daemon knows of the device go, so that each client begins with nothing.
end_client() {
  exec 8>&-
  wait "$client_pid"
  busctl call org.bluez $device org.bluez.Device1 Disconnect >/dev/null 2>&1
  wait_for 20 "the end of the link" disconnected || return 1
  busctl call org.bluez /org/bluez/hci0 org.bluez.Adapter1 RemoveDevice o $device >/dev/null 2>&1
  return 0
}

measure_idle() {
  local from
  become_quiet
  from=$client_ns
  sleep "$idle_seconds"
  look
  milliseconds $(((client_ns - from) / idle_seconds))
  idle=$text
}

bursts_sent() { [ "$(grep -c '^BURST-SENT reader' "$vreader_log")" -gt "$bursts" ]; }

# measure_phase NAME TOGETHER INTERVAL: a line with what one burst cost.
measure_phase() {
  local client bus daemon from switched client_ms bus_ms daemon_ms
  ask_count || return 1
  bursts=$(grep -c '^BURST-SENT reader' "$vreader_log")
  look
  client=$client_ns bus=$bus_ns daemon=$daemon_ns switched=$client_switches
  # Flat out the reader has the processor only while nobody else wants it: what comes faster than
  # that, the kernel drops before the daemon sees it.
  [ "$3" -gt 0 ] || renice -n 19 -p "$vreader_pid" >/dev/null
  order burst reader "$values" 20 "$2" "$3" && wait_for 60 "the burst" bursts_sent || return 1
  renice -n 0 -p "$vreader_pid" >/dev/null
  become_quiet
  switched=$((client_switches - switched))
  milliseconds $((client_ns - client)) && client_ms=$text
  milliseconds $((bus_ns - bus)) && bus_ms=$text
  milliseconds $((daemon_ns - daemon)) && daemon_ms=$text
  ask_count || return 1
  if [ "$count" -gt "$values" ] || { [ "$count" -eq "$values" ] && [ "$sum" -ne "$expected_sum" ]; }; then
    echo "$count values came, and the sum of their numbers is $sum"
    return 1
  fi
  look_at_memory
  measured+=("$(printf '{"boot": %d, "turn": %d, "client": "%s", "phase": "%s", "client_ms": %s, ' \
    "$boot" "$turn" "$client_name" "$1" "$client_ms")$(
    printf '"bus_ms": %s, "bluetoothd_ms": %s, "values": %d, "lost": %d, ' \
      "$bus_ms" "$daemon_ms" "$count" $((values - count)))$(
    printf '"connect_ms": %s, "idle_ms_per_s": %s, "rss_kb": %d, "own_kb": %d, ' \
      "$connect_ms" "$idle" "$resident" "$own")$(
    printf '"client_switches": %d}' "$switched")")
}

# look_at_memory: in $resident and $own. The kernel's quick counts are too coarse for a small process.
look_at_memory() {
  local name size rest
  while read -r name size rest; do
    case $name in
      Rss:) resident=$size ;;
      Anonymous:) own=$size ;;
    esac
  done <"/proc/$client_pid/smaps_rollup"
}

# turn_of CLIENT: all that is measured of one client over one link.
turn_of() {
  local phase words
  client_name=$1
  subscriptions=$(grep -c '^SUBSCRIBED reader' "$vreader_log")
  ends=$(grep -c '^DISCONNECTED reader' "$vreader_log")
  if ! start_client "$1"; then
    cat "$client_out" "$guest_logs/client.log"
    return 1
  fi
  measure_idle
  for phase in "${phases[@]}"; do
    read -ra words <<<"$phase"
    measure_phase "${words[@]}" || return 1
  done
  end_client
}

check "the message bus answers" start_bus || finish_cases
check "the virtual reader is there" start_vreader --air none --reader KVR-0001,id=reader || finish_cases
DAEMON_CACHE=no
check "the daemon's adapter is powered" start_daemon || finish_cases
for ((turn = 1; turn <= turns; ++turn)); do
  for ((at = 0; at < ${#clients[@]}; ++at)); do
    # Each turn begins with another client, so that none is always the first or behind the same one.
    name=${clients[(at + turn + boot) % ${#clients[@]}]}
    measured=()
    check "boot $boot, turn $turn: the client $name" turn_of "$name" || finish_cases
    printf 'MEASURED %s\n' "${measured[@]}"
  done
done
finish_cases
