# The main job in the virtual machine from Python: the package works readers of both families through
# the kernel's Bluetooth stack and the daemon, with asyncio, with callbacks, with a program that ends while
# its link is up, and twelve at once that are held. Run by scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"

# Commands of 45 bytes, which leave as 20, 20 and 5, and the answers of the readers' script.
standard_command=bb00220025101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f30313233347e8ae5
standard_answer=bb01220025101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f30313233347e4c36
q62t_command=bb00290025bb7e808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9fa0a1a27e9bd9
q62t_answer=bb01290025bb7e808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9fa0a1a27e5d0a
get_reader_info=bb00030001b17e6597
standard_tx=BA821001-3B5B-4654-85FE-E998B123ADEA

many=(KVR-{1001..1012})
devices=()
for each in "${many[@]}"; do devices+=(--reader "$each,id=${each,,}"); done
devices+=(--reader KVR-0001,id=standard --reader "KVR-Q62T 0012,id=q62t" --non-reader Lamp,id=lamp)

# work CASE STYLE NAME COMMAND: what the program printed is kept in CASE.out.
work() {
  PYTHONPATH=$KESTRIN_BUILD/python PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 \
    "$KESTRIN_ROOT/tests/realstack/python_main_job.py" "${@:2}" \
    >"$guest_logs/$1.out" 2>"$guest_logs/$1-python.log"
  local status=$?
  [ "$status" -eq 0 ] && return 0
  echo "The program ended with status $status and printed:"
  cat "$guest_logs/$1.out" "$guest_logs/$1-python.log"
  return 1
}

# same WHAT EXPECTED ACTUAL
same() {
  [ "$2" = "$3" ] && return 0
  printf '%s is not as expected.\nexpected:\n%s\nactual:\n%s\n' "$1" "$2" "$3"
  return 1
}

# printed_after_sending CASE LINE...
printed_after_sending() {
  same "what was printed after SENT" "$(printf '%s\n' "${@:2}")" \
    "$(sed '1,/^SENT/d' "$guest_logs/$1.out")"
}

# writes_were ID TX COMMAND...: since `begin`, in slices of 20 bytes and a shorter last one each.
writes_were() {
  local id=$1 tx=$2 command expected=
  shift 2
  for command; do
    while [ ${#command} -ge 40 ]; do
      expected+="20 ${command:0:40}"$'\n'
      command=${command:40}
    done
    expected+="$((${#command} / 2)) $command"$'\n'
  done
  same "what was written to $tx" "${expected%$'\n'}" \
    "$(tail -n "+$from" "$vreader_log" | sed -n "s/^WRITE $id $tx //p")"
}

begin() { from=$(($(wc -l <"$vreader_log") + 1)); }

link_went_down() {
  wait_for 20 "the end of the link" eval \
    "tail -n +$from '$vreader_log' | grep -q '^DISCONNECTED $1 reason=0x16'"
}

nothing_was_logged_by_python() {
  ! grep -HE 'Traceback|Error|Exception|Warning' "$guest_logs"/*-python.log
}

check "the message bus answers" start_bus || finish_cases
check "the virtual readers are there" start_vreader "${devices[@]}" || finish_cases
check "the daemon's adapter is powered" start_daemon || finish_cases

begin
check "asyncio, standard reader: connects, sends 45 bytes, closes" \
  work standard asyncio KVR-0001 "$standard_command"
check "asyncio, standard reader: its answer arrives, then the link is down" \
  printed_after_sending standard "FRAME $standard_answer" UNPLUGGED
check "asyncio, standard reader: get-reader-info, then 20, 20 and 5 bytes were written" \
  writes_were standard "$standard_tx" "$get_reader_info" "$standard_command"
check "asyncio, standard reader: the link was closed" link_went_down standard

begin
check "callbacks, KVR-Q62T reader: connects, sends 45 bytes, closes" \
  work q62t callbacks "KVR-Q62T 0012" "$q62t_command"
check "callbacks, KVR-Q62T reader: its answer arrives in pieces, then the link is down" \
  printed_after_sending q62t "FRAME ${q62t_answer:0:40}" "FRAME ${q62t_answer:40:40}" \
  "FRAME ${q62t_answer:80}" "UNPLUGGED KVR-Q62T 0012" "UNPLUGGED KVR-Q62T 0012"
check "callbacks, KVR-Q62T reader: 20, 20 and 5 bytes were written" \
  writes_were q62t FFF2 "$q62t_command"
check "callbacks, KVR-Q62T reader: the link was closed" link_went_down q62t

begin
check "a program ends while its link is up" work left leave KVR-0001 "$standard_command"
check "a program that ends: its answer arrived" printed_after_sending left "FRAME $standard_answer"
check "a program that ends: the link was closed" link_went_down standard

# hold_twelve: what the program printed is kept in twelve.out.
hold_twelve() {
  PYTHONPATH=$KESTRIN_BUILD/python PYTHONDONTWRITEBYTECODE=1 /usr/bin/python3 \
    "$KESTRIN_ROOT/tests/realstack/python_twelve_readers.py" "${many[@]}" \
    >"$guest_logs/twelve.out" 2>"$guest_logs/twelve-python.log" &
  twelve_pid=$!
}
twelve_said() {
  wait_for 150 "$1" grep -q "^$1" "$guest_logs/twelve.out" && return 0
  cat "$guest_logs/twelve.out" "$guest_logs/twelve-python.log"
  return 1
}

begin
hold_twelve
check "twelve held readers in one process: plugged in together" twelve_said PLUGGED
check "twelve held readers: each answers its own command" twelve_said ANSWERED
check "twelve held readers: one loses its link" order drop kvr-1007
check "twelve held readers: it comes back, and the others do not notice" twelve_said "BACK KVR-1007"
check "twelve held readers: every link goes down" twelve_said DOWN
check "twelve held readers: the program has ended well" wait "$twelve_pid"

check "Python had nothing to complain about" nothing_was_logged_by_python
finish_cases
