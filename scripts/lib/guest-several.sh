# Several readers at once on the real stack, in the virtual machine: four behind one adapter, worked
# by four managers in one process and by kestrin processes beside it, and a fifth for which the adapter
# has no link left. Run by scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"
source "$KESTRIN_ROOT/scripts/lib/guest-family-probe.sh"
kestrin=$KESTRIN_BUILD/bin/kestrin

managers=(a b c d)
ids=(ra rb rc rd)
names=(KVR-0001 KVR-0002 "KVR-Q62T 0003" "KVR-Q62T 0004")
tx=("$standard_tx" "$standard_tx" FFF2 FFF2)
# As many links as there are readers of the managers, and one reader more.
devices=(--most-links 4)
for at in 0 1 2 3; do devices+=(--reader "${names[at]},id=${ids[at]}"); done
devices+=(--reader KVR-0005,id=re)

# exchanges ROUND AT COUNT: that many commands of different lengths for the reader AT and what is
# handed over for its answers, in $commands and $answers. No two readers and no two rounds have a
# frame in common.
exchanges() {
  local number
  commands=()
  answers=
  for ((number = 0; number < $3; ++number)); do
    build_exchange "$1$2" $((30 + 7 * number + $2)) $((50 * $2 + number))
    commands+=("$command")
    if [[ ${tx[$2]} = FFF2 ]]; then answer=$(pieces_of 20 "$answer"); fi
    answers+=${answers:+$'\n'}$answer
  done
}

# work_at_once ROUND COUNT AT...: these managers send at the same time; each reader gets its own
# commands and each manager its own answers, in order, and nothing else.
work_at_once() {
  local round=$1 count=$2 at each
  local -A answers_of=() slices=()
  shift 2
  begin
  for at; do
    exchanges "$round" "$at" "$count"
    for each in "${commands[@]}"; do ask send "${managers[at]}" "$each"; done
    answers_of[$at]=$answers
    slices[$at]=$(slices_of "${commands[@]}")
  done
  for at; do
    await 60 "${managers[at]} SENT 1" "$count" && frames_were "${managers[at]}" "${answers_of[$at]}" &&
      writes_were "${ids[at]}" "${tx[at]}" "${slices[$at]}" || return 1
  done
}

# bursts TOGETHER AT...: 120 values of a length of its own from each of these readers.
bursts() {
  local together=$1 at
  shift
  for at; do order burst "${ids[at]}" 120 $((20 + at)) "$together" || return 1; done
}

# bursts_came AT...: all of them, each to the manager of its reader.
bursts_came() {
  local at
  for at; do
    await 60 "${managers[at]} FRAME .*" 120 &&
      frames_were "${managers[at]}" "$(values_of "${ids[at]}")" || return 1
  done
}

bursts_at_once() {
  begin
  bursts 20 0 1 2 3 && bursts_came 0 1 2 3
}

# milliseconds: since the machine started.
milliseconds() { echo $((${EPOCHREALTIME/[.,]/} / 1000)); }

four_link_up() {
  local from
  from=$(milliseconds)
  link "${managers[*]}" "${names[@]}" || return 1
  linked_after=$(($(milliseconds) - from))
}

# One reader drops its link while the others send values.
loss_disturbs_nobody() {
  begin
  bursts 2 0 2 3 && order drop rb && await 20 'b LOG BLE Disconnected' && bursts_came 0 2 3 &&
    exactly 1 'b LOG BLE Disconnected' && exactly 1 'b PLUG 0' && exactly 0 '[acd] PLUG .*' &&
    exactly 0 '[acd] LOG BLE .*' && exactly 0 'b FRAME .*'
}

lost_one_comes_back() {
  begin
  ask connect b "${names[1]}"
  await 60 'b PLUG 1' && work_at_once 6 3 0 1 2 3 && exactly 0 '. PLUG .*'
}

fifth_is_refused() {
  ask new e
  ask scan e
  await 30 'e FOUND KVR-0005' || return 1
  ask connect e KVR-0005
  wait_until 40 "the adapter to refuse a link" reader_told '^NO-MORE-LINKS'
}

# A controller has room for so many links and no more: the attempt goes on until one ends.
fifth_waits_for_a_place() {
  begin
  fifth_is_refused && work_at_once 4 3 0 1 2 3 && exactly 0 'e (PLUG|LOG BLE) .*' || return 1
  ask close a
  # The daemon takes its time to give up an attempt that its controller has refused.
  await 150 'e PLUG 1' && exactly 1 'e LOG BLE .*' && exactly 0 '[bcd] PLUG .*' || return 1
  ask close e
  link_ended re
}

# kestrin_sends AT: a process of its own for one reader; what it printed is kept in ID.out.
kestrin_sends() {
  exchanges 7 "$1" 4
  "$kestrin" send "${names[$1]}" "${commands[@]}" --for 3 --timeout 30 >"$guest_logs/${ids[$1]}.out" \
    2>"$guest_logs/${ids[$1]}-kestrin.log"
}

# kestrin_got AT: exactly the answers that its reader gave after the first command was sent, and
# the reader exactly its commands.
kestrin_got() {
  local first=
  exchanges 7 "$1" 4
  [ "${tx[$1]}" = FFF2 ] || first=$get_reader_info
  same "what kestrin got from ${ids[$1]}" "$answers" \
    "$(sed -n '/^SENT /,$p' "$guest_logs/${ids[$1]}.out" | sed -n 's/^FRAME //p')" &&
    writes_were "${ids[$1]}" "${tx[$1]}" "$(slices_of $first "${commands[@]}")"
}

# Two processes with a reader each, while two managers of a third work theirs.
processes_side_by_side() {
  local first second both
  ask close c
  link_ended rc || return 1
  begin
  kestrin_sends 0 &
  first=$!
  kestrin_sends 2 &
  second=$!
  # Not before both links are there: the work is to be at the same time.
  wait_until 40 "both processes' links" reader_told '^SUBSCRIBED ra' &&
    wait_until 40 "both processes' links" reader_told '^SUBSCRIBED rc' || return 1
  local mark=$vreader_mark
  work_at_once 8 6 1 3 || return 1
  both=0
  wait "$first" || both=1
  wait "$second" || both=1
  [ "$both" -eq 0 ] || {
    cat "$guest_logs"/r[ac].out "$guest_logs"/r[ac]-kestrin.log
    return 1
  }
  vreader_mark=$mark
  kestrin_got 0 && kestrin_got 2 && exactly 0 '[bd] PLUG .*'
}

close_leaves_the_others() {
  begin
  ask close b
  link_ended rb && await 20 'b LOG BLE Disconnected' && work_at_once 9 3 3 && exactly 0 'd PLUG .*'
}

check "the message bus answers" start_bus || finish_cases
check "the virtual readers are there" start_vreader --tell-notifications "${devices[@]}" || finish_cases
check "the daemon's adapter is powered" start_daemon || finish_cases
start_probe
begin
check "four managers in one process link up with a reader each" four_link_up || finish_cases
echo "        after $linked_after ms, from the first scan to the last plugged-in report"
check "four at once: each reader gets its own commands, each manager its own answers" \
  work_at_once 5 8 0 1 2 3
check "four at once: every value of four bursts comes to its own manager, in order" bursts_at_once
check "one reader's loss is told to its manager alone, and the others lose no value" \
  loss_disturbs_nobody
check "the reader that was lost is connected to again and all four work" lost_one_comes_back
check "a fifth waits while the adapter keeps no more links, and gets the first that is free" \
  fifth_waits_for_a_place
check "two kestrin processes and two managers of a third process work a reader each" \
  processes_side_by_side
check "closing one manager's link leaves the other's" close_leaves_the_others
check "the application ends cleanly, and with it its links" \
  eval "probe_ends_cleanly && link_ended rd"
finish_cases
