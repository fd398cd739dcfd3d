# Rounds with random faults on the real stack, and what is left of them in the process.
# Run by scripts/realstack. Arguments: how many rounds, and the seed of the faults.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"
rounds=${1:-12}
seed=${2:-1}
probe_log=$guest_logs/stress.log
result=$guest_logs/stress.result

stop_daemon() {
  kill -TERM "$daemon_pid" && wait "$daemon_pid"
}

set_power() {
  busctl --auto-start=no set-property org.bluez /org/bluez/hci0 org.bluez.Adapter1 Powered b "$1"
}

# carry_out WORDS...: what the probe has asked for.
carry_out() {
  case $* in
    "adapter on") set_power true ;;
    "adapter off") set_power false ;;
    "daemon stop") stop_daemon ;;
    "daemon start") start_daemon ;;
    *) return 1 ;;
  esac
}

# play_rounds: a line per round goes to $probe_log, the result to $result.
play_rounds() {
  local word rest
  coproc probe {
    # Freed memory that the C library keeps at hand for each thread would count as allocated.
    export GLIBC_TUNABLES=glibc.malloc.tcache_count=0
    exec "$KESTRIN_BUILD/tests/stress_probe" "$rounds" "$seed" "$vreader_orders" "$vreader_log" 2>&1
  }
  local from=${probe[0]} to=${probe[1]} pid=$probe_PID
  while read -r word rest <&"$from"; do
    case $word in
      PLEASE) if carry_out $rest >>"$probe_log" 2>&1; then echo done; else echo failed; fi >&"$to" ;;
      ROUND) echo "$word $rest" >>"$probe_log" ;;
      *) echo "$word $rest" >>"$result" ;;
    esac
  done
  wait "$pid"
}

rounds_leave_nothing() {
  play_rounds
  local status=$?
  cat "$result"
  [ "$status" -eq 0 ] && grep -q '^FIGURES ' "$result"
}

check "the message bus answers" start_bus || finish_cases
check "the virtual readers are there" start_vreader --reader KVR-0001,id=reader || finish_cases
check "the daemon's adapter is powered" start_daemon || finish_cases
check "stress: $rounds rounds with random faults of seed $seed leave nothing behind" \
  rounds_leave_nothing && cat "$result"
finish_cases
