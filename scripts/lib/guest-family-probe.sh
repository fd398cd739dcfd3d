# What the runs with both families and with several readers share: the application that they work,
# tests/realstack/FamilyProbe.cpp, with any number of managers; frames; and what arrived at the
# readers. Sourced by scripts in the virtual machine after guest-stack.sh.

probe_log=$guest_logs/probe.log
get_reader_info=bb00030001b17e6597
standard_tx=BA821001-3B5B-4654-85FE-E998B123ADEA
standard_rx=BA821002-3B5B-4654-85FE-E998B123ADEA

# --- the application

start_probe() {
  mkfifo "$guest_logs/lines" "$guest_logs/nothing"
  exec 7<>"$guest_logs/lines" 9<>"$guest_logs/nothing"
  : >"$probe_log"
  exec 8<"$probe_log"
  "$KESTRIN_BUILD/tests/family_probe" <"$guest_logs/lines" >>"$probe_log" 2>&1 7>&- 8<&- 9>&- &
  probe_pid=$!
}

ask() { echo "$*" >&7; }

# The emulated machine makes programs slowly, so what is done often makes none: the application's
# lines are read into an array, and a pause is a read of a pipe that nothing comes through.
probe_lines=()
half_line=

# Not in a subshell: what is read there is lost here.
take_lines() {
  local line
  while IFS= read -r line <&8; do
    probe_lines+=("$half_line$line")
    half_line=
  done
  half_line+=$line
}

pause() { read -rt 0.1 -u 9 || true; }

# wait_until SECONDS WHAT COMMAND...
wait_until() {
  local limit=$1 what=$2 end=$((SECONDS + $1))
  shift 2
  until "$@" >/dev/null 2>&1; do
    if [ "$SECONDS" -gt "$end" ]; then
      echo "Waited $limit s in vain for $what" >&2
      return 1
    fi
    pause
  done
}

# begin: from here on the lines of the application and of the readers count.
begin() {
  take_lines
  probe_mark=${#probe_lines[@]}
  vreader_mark=$(($(wc -l <"$vreader_log") + 1))
}

# count_from AT PATTERN: how many of the lines that were taken match as a whole from there on, in
# $matches.
count_from() {
  local at=$1
  matches=0
  for (( ; at < ${#probe_lines[@]}; ++at)); do
    if [[ ${probe_lines[at]} =~ ^($2)$ ]]; then matches=$((matches + 1)); fi
  done
}

# await SECONDS PATTERN [TIMES]: until the application has printed such lines so many times.
await() {
  local end=$((SECONDS + $1)) at=$probe_mark times=0
  for (( ; ; )); do
    take_lines
    count_from "$at" "$2"
    times=$((times + matches))
    at=${#probe_lines[@]}
    [ "$times" -lt "${3:-1}" ] || return 0
    [ "$SECONDS" -le "$end" ] || break
    pause
  done
  echo "Waited $1 s in vain for '$2' from the application, ${3:-1} times; the last it said:"
  printf '%s\n' "${probe_lines[@]:probe_mark}" | cut -c 1-200 | tail -n 40
  return 1
}

# exactly TIMES PATTERN: no more and no fewer lines so far.
exactly() {
  take_lines
  count_from "$probe_mark" "$2"
  [ "$matches" = "$1" ] && return 0
  echo "'$2' came $matches times, not $1"
  return 1
}

probe_ends_cleanly() {
  ask quit
  wait "$probe_pid" && tail -n 1 "$probe_log" | grep -x END
}

# link "M..." NAME...: a manager each for readers of these names, from a scan to the plugged-in
# report.
link() {
  local manager managers
  read -ra managers <<<"$1"
  shift
  for manager in "${managers[@]}"; do
    ask new "$manager"
    ask scan "$manager"
  done
  for manager in "${managers[@]}"; do
    await 30 "$manager FOUND $1" || return 1
    ask connect "$manager" "$1"
    shift
  done
  for manager in "${managers[@]}"; do
    await 60 "$manager PLUG 1" || return 1
  done
}

# --- frames

crc_table=()
make_crc_table() {
  local byte bit crc
  for ((byte = 0; byte < 256; ++byte)); do
    crc=$((byte << 8))
    for ((bit = 0; bit < 8; ++bit)); do
      crc=$((crc & 0x8000 ? (crc << 1 ^ 0x1021) & 0xffff : crc << 1))
    done
    crc_table[byte]=$crc
  done
}
make_crc_table

# build_frame TYPE CODE PAYLOAD: a frame in hexadecimal, in $frame.
build_frame() {
  local body crc=0xffff at
  printf -v body '%s%s%04x%s7e' "$1" "$2" $((${#3} / 2)) "$3"
  for ((at = 0; at < ${#body}; at += 2)); do
    crc=$(((crc << 8 & 0xff00) ^ crc_table[crc >> 8 ^ 0x${body:at:2}]))
  done
  printf -v frame 'bb%s%04x' "$body" "$crc"
}

# build_payload COUNT START: COUNT bytes that count up from START, in $payload.
build_payload() {
  local at byte
  payload=
  for ((at = 0; at < $1; ++at)); do
    printf -v byte '%02x' $((($2 + at) & 255))
    payload+=$byte
  done
}

# build_exchange CODE LENGTH START: a command frame of LENGTH bytes in all and a reader's answer to
# it, in $command and $answer.
build_exchange() {
  build_payload $(($2 - 8)) "$3"
  build_frame 00 "$1" "$payload"
  command=$frame
  build_frame 01 "$1" "$payload"
  answer=$frame
}

# pieces_of SIZE HEX: cut into SIZE bytes and a shorter last piece, a line each; nothing of nothing.
pieces_of() {
  local left=$2
  while [ -n "$left" ]; do
    echo "${left:0:$(($1 * 2))}"
    left=${left:$(($1 * 2))}
  done
}

# slices_of HEX...: what is written for each command, as the readers' log has it.
slices_of() {
  local left
  for left in "$@"; do
    while [ ${#left} -ge 40 ]; do
      echo "20 ${left:0:40}"
      left=${left:40}
    done
    [ -z "$left" ] && echo 0 || echo "$((${#left} / 2)) $left"
  done
}

# --- what came

# same WHAT EXPECTED ACTUAL
same() {
  [ "$2" = "$3" ] && return 0
  printf '%s: not as expected; the first differences:\n' "$1"
  diff <(echo "$2") <(echo "$3") | cut -c 1-200 | head -n 20
  return 1
}

# lines_of KIND M: what the application has printed of that kind for the manager, of what was taken.
lines_of() {
  local line
  for line in "${probe_lines[@]:probe_mark}"; do
    case $line in
      "$2 $1 "*) echo "${line#"$2 $1 "}" ;;
    esac
  done
}

frames_of() { lines_of FRAME "$1"; }

# readers_lines SED-SCRIPT: of what the readers have printed.
readers_lines() { tail -n "+$vreader_mark" "$vreader_log" | sed -n "$1"; }

writes_of() { readers_lines "s/^WRITE $1 //p"; }

# What that reader has notified, and how long each value was.
values_of() { readers_lines "s/^NOTIFY $1 [^ ]* [0-9]* *//p"; }
sizes_of() { readers_lines "s/^NOTIFY $1 [^ ]* \\([0-9]*\\).*/\\1/p"; }

# frames_were M EXPECTED: M was handed these frames, a line each, in this order and no others.
frames_were() {
  local count
  count=$(wc -l <<<"$2")
  await 30 "$1 FRAME .*" "$count" || return 1
  same "what $1 was handed" "$2" "$(frames_of "$1")"
}

# writes_were ID TX SLICES: exactly these slices arrived at that reader's TX, and nothing else was
# written there.
writes_were() {
  local expected=
  [ -z "$3" ] || expected=$(sed "s/^/$2 /" <<<"$3")
  same "what was written to $1" "$expected" "$(writes_of "$1")"
}

# reader_told PATTERN: the readers have printed such a line.
reader_told() { tail -n "+$vreader_mark" "$vreader_log" | grep -qE "$1"; }

# link_ended ID: its central has ended the link with that reader.
link_ended() { wait_until 20 "the end of $1's link" reader_told "^DISCONNECTED $1 reason=0x16"; }
