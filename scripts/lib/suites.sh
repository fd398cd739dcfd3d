# How scripts/test runs its suites and counts them. Sourced by bash; the caller sets $logs, the folder
# for what suites print.
#
# Suites may run in lanes beside each other. Each writes its own line when it ends, and what counts
# stands in a file that all lanes add to.

# The suites of the core, of the simulated radio and of the interface for programs in C, which need nothing
# else and run wherever the library does. A suite has the name of its target.
portable_suites=(platform_test platform_threads_test rcp_test link_test link_shared_instance_test
  recording_test reader_test blocking_reader_test simulated_contract_test simulated_radio_test
  c_interface_test c_reader_test)

results=$logs/results
lanes=()

begin_suites() {
  mkdir -p "$logs"
  rm -f "$logs"/*
  : >"$results"
}

# report ok|FAILED GROUP SUITE SECONDS
report() {
  printf '%-6s  %-9s  %-28s  %7s s\n' "$@"
  echo "$1" >>"$results"
}

# step GROUP NAME COMMAND...: one suite of its own; its output is shown when it fails.
step() {
  local group=$1 name=$2 from=$SECONDS log=$logs/$1-$2.log
  shift 2
  if "$@" >"$log" 2>&1; then
    report ok "$group" "$name" $((SECONDS - from))
  else
    { tail -n 60 "$log"; report FAILED "$group" "$name" $((SECONDS - from)); } | cat
    return 1
  fi
}

# steps GROUP NAME COMMAND...: as step, and the command's own lines, which begin with ok or FAILED,
# count as suites: `ok  GROUP  NAME  SECONDS s`. Its status 3 says that something cannot be had here; the lines
# that say what are shown, and nothing else counts.
steps() {
  local group=$1 name=$2 from=$SECONDS log=$logs/$1-$2.log status line
  shift 2
  "$@" 2>&1 | tee "$log" | grep --line-buffered -E '^(ok|FAILED) '
  status=${PIPESTATUS[0]}
  while read -r line _; do echo "$line"; done < <(grep -E '^(ok|FAILED) ' "$log") >>"$results"
  if [ "$status" -eq 3 ] && grep '^Left out: ' "$log"; then
    return 0
  fi
  if [ "$status" -ne 0 ]; then
    { grep -vE '^ok ' "$log" | tail -n 60; report FAILED "$group" "$name" $((SECONDS - from)); } | cat
    return 1
  fi
  if ! grep -q '^ok ' "$log"; then
    report FAILED "$group" "$name" $((SECONDS - from))
    return 1
  fi
}

# skipped_in LOG: the lines of ctest's own log, which has what passing suites print, that say what was left out.
skipped_in() {
  local folder
  folder=$(sed -nE 's/^Test project (.*)/\1/p' "$1" | head -n 1)
  [ -z "$folder" ] || grep -hE '^(SKIPPED \[|\[  SKIPPED \] .*\()' "$folder/Testing/Temporary/LastTest.log" | sed 's/^/Left out: /'
}

# suites GROUP PRESET CTEST-ARGUMENTS...: a line per suite of a build.
suites() {
  local group=$1 preset=$2 log=$logs/$1-suites.log count=0 status name result seconds
  shift 2
  ctest --preset "$preset" --output-on-failure --no-tests=error -j "$(nproc)" "$@" >"$log" 2>&1
  status=$?
  while read -r name result seconds; do
    count=$((count + 1))
    report "$result" "$group" "$name" "$seconds"
  done < <(sed -nE \
    -e 's/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: ([^ ]+) \.* +Passed +([0-9.]+) sec.*/\1 ok \2/p' \
    -e 's/^ *[0-9]+\/[0-9]+ Test +#[0-9]+: ([^ ]+) \.*\*\*\*[^0-9]* +([0-9.]+) sec.*/\1 FAILED \2/p' \
    "$log")
  skipped_in "$log"
  if [ "$status" -ne 0 ]; then
    cat "$log"
    # A run that failed without a failed suite (none found, say) must not pass.
    [ "$count" -gt 0 ] || report FAILED "$group" suites 0
    return 1
  fi
}

# lane NAME FUNCTION: runs the function beside what follows.
lane() {
  local name=$1
  {
    "$2"
    touch "$logs/$name.lane-ended"
  } &
  lanes+=("$name:$!")
}

# join_lanes: waits for all of them. A lane that broke off has failed, whatever its suites said.
join_lanes() {
  local lane
  for lane in "${lanes[@]}"; do
    wait "${lane#*:}"
    [ -e "$logs/${lane%%:*}.lane-ended" ] || report FAILED lane "${lane%%:*}" 0
  done
  lanes=()
}

# finish_suites: the summary, and the script's end.
finish_suites() {
  local passed failed
  join_lanes
  passed=$(grep -c '^ok' "$results")
  failed=$(grep -c '^FAILED' "$results")
  echo
  echo "Total time: $SECONDS s; logs in $logs/"
  echo "$passed passed, $failed failed"
  [ "$failed" -eq 0 ] && [ "$passed" -gt 0 ]
  exit
}
