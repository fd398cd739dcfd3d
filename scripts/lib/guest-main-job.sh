# The main job in the virtual machine: kestrin works readers of both families through the kernel's
# Bluetooth stack and the daemon. Run by scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"
kestrin=$KESTRIN_BUILD/bin/kestrin

# Commands of 45 bytes, which leave as 20, 20 and 5, and the answers of the readers' script: message
# type 01, the same code and payload. The second payload holds a preamble and an end mark.
standard_command=bb00220025101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f30313233347e8ae5
standard_answer=bb01220025101112131415161718191a1b1c1d1e1f202122232425262728292a2b2c2d2e2f30313233347e4c36
q62t_command=bb00290025bb7e808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9fa0a1a27e9bd9
q62t_answer=bb01290025bb7e808182838485868788898a8b8c8d8e8f909192939495969798999a9b9c9d9e9fa0a1a27e5d0a
get_reader_info=bb00030001b17e6597
standard_tx=BA821001-3B5B-4654-85FE-E998B123ADEA
standard_rx=BA821002-3B5B-4654-85FE-E998B123ADEA

# Which devices are in range, as start_vreader takes them.
devices=(--reader KVR-0001,id=standard --reader "KVR-Q62T 0012,id=q62t"
  --non-reader Lamp,id=lamp --non-reader ,id=nameless)

# expect WHAT EXPECTED ACTUAL
expect() {
  [ "$2" = "$3" ] && return 0
  printf '%s is not as expected.\nexpected:\n%s\nactual:\n%s\n' "$1" "$2" "$3"
  return 1
}

# send ID NAME COMMAND: connects, sends, listens; what it printed is kept in ID.out.
send() {
  "$kestrin" send "$2" "$3" --for 2 --timeout 30 --log >"$guest_logs/$1.out" \
    2>"$guest_logs/$1-kestrin.log"
  local status=$?
  [ "$status" -eq 0 ] && return 0
  echo "kestrin send ended with status $status and printed:"
  cat "$guest_logs/$1.out" "$guest_logs/$1-kestrin.log"
  return 1
}

scan_shows_readers_only() {
  "$kestrin" scan --for 6 >"$guest_logs/scan.out" 2>"$guest_logs/scan-kestrin.log" || {
    cat "$guest_logs/scan-kestrin.log"
    return 1
  }
  expect "the list of readers" "$(printf 'KVR-0001\nKVR-Q62T 0012')" \
    "$(cut -f 1 "$guest_logs/scan.out" | sort)"
}

daemon_knows_all_devices() {
  local number
  for number in 1 2 3 4; do
    daemon_property "/org/bluez/hci0/dev_C0_DE_00_00_00_0$number" Device1 Address || return 1
  done
}

# frames_after_sending ID FRAME...: what arrived after the command was sent, in this order.
frames_after_sending() {
  local id=$1
  shift
  expect "what arrived after sending" "$(printf 'FRAME %s\n' "$@")" \
    "$(sed -n '/^SENT /,$p' "$guest_logs/$id.out" | grep '^FRAME ')"
}

# writes_arrived ID TX COMMAND...: exactly these bytes were written to TX, in slices of 20 bytes and
# a shorter last one each.
writes_arrived() {
  local id=$1 tx=$2 command expected=
  shift 2
  for command in "$@"; do
    while [ ${#command} -ge 40 ]; do
      expected+="20 ${command:0:40}"$'\n'
      command=${command:40}
    done
    expected+="$((${#command} / 2)) $command"$'\n'
  done
  expect "what was written to $tx" "${expected%$'\n'}" \
    "$(sed -n "s/^WRITE $id $tx //p" "$vreader_log")"
}

subscriptions_were() {
  expect "the list of subscriptions" "$2" "$(sed -n "s/^SUBSCRIBED $1 //p" "$vreader_log" | sort)"
}

link_went_down() {
  wait_for 10 "the end of the link" grep "^DISCONNECTED $1 reason=0x16" "$vreader_log"
}

readers_end_cleanly() {
  kill -TERM "$vreader_pid"
  wait "$vreader_pid" && tail -n 1 "$vreader_log" | grep -x END && [ ! -e "$vreader_orders" ]
}

check "the message bus answers" start_bus || finish_cases
check "the virtual readers are there" start_vreader "${devices[@]}" || finish_cases
check "the daemon's adapter is powered" start_daemon || finish_cases
check "kestrin scan shows both readers and nothing else" scan_shows_readers_only
check "the daemon itself saw all four devices" daemon_knows_all_devices

check "standard reader: kestrin connects, links up and sends 45 bytes" \
  send standard KVR-0001 "$standard_command"
check "standard reader: its answer arrives" frames_after_sending standard "$standard_answer"
check "standard reader: get-reader-info, then 20, 20 and 5 bytes were written" \
  writes_arrived standard "$standard_tx" "$get_reader_info" "$standard_command"
check "standard reader: RX was subscribed to" subscriptions_were standard "$standard_rx"
check "standard reader: the link was closed" link_went_down standard

check "KVR-Q62T reader: kestrin connects, links up and sends 45 bytes" \
  send q62t KVR-Q62T "$q62t_command"
# This family's values are handed over as they come, so the answer is in three pieces.
check "KVR-Q62T reader: its answer arrives" frames_after_sending q62t \
  "${q62t_answer:0:40}" "${q62t_answer:40:40}" "${q62t_answer:80}"
check "KVR-Q62T reader: 20, 20 and 5 bytes were written" \
  writes_arrived q62t FFF2 "$q62t_command"
check "KVR-Q62T reader: RX and TX were subscribed to" \
  subscriptions_were q62t "$(printf 'FFF1\nFFF2')"
check "KVR-Q62T reader: the manufacturer's name was read" grep '^READ q62t 2A29$' "$vreader_log"
check "KVR-Q62T reader: the link was closed" link_went_down q62t

check "the virtual readers end cleanly" readers_end_cleanly
finish_cases
