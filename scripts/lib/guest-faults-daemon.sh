# Faults of the daemon, the bus and the adapter on the real stack: what an application sees, and
# that it can go on afterwards. Run by scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-faults-common.sh"
frame_of_200_bytes=bb002200c0$(printf '%0384d' 0)7e0000

# scanning: the application scans and has no link.
scanning() {
  rescan && wait_for 60 "the end of the link" device_is_unlinked && begin
}

daemon_is_killed_idle() {
  closed || return 1
  begin
  kill_daemon
  expect_told 60 "$resetting" && start_daemon && expect_told 60 "$powered_on" && link_up &&
    expect_exactly 0 "$disconnected"
}

daemon_is_killed_scanning() {
  scanning || return 1
  kill_daemon
  expect_told 60 "$resetting" && start_daemon && expect_told 60 "$powered_on" && scan_is_alive &&
    link_up && expect_exactly 0 "$disconnected"
}

# The new daemon shows the link that the old one has left.
daemon_is_killed_connected() {
  kill_daemon
  start_daemon && expect_told 60 "$powered_on" && lost_once && expect_exactly 1 "$resetting"
}

daemon_is_stopped_connected() {
  stop_daemon
  start_daemon && expect_told 60 "$powered_on" && lost_once
}

daemon_is_killed_in_a_write() {
  ask send "$frame_of_200_bytes"
  wait_for 60 "the first slice of the frame" \
    grep -q 'WRITE.* reader .* 20 bb002200c0' "$vreader_log"
  kill_daemon
  expect_told 60 "$disconnected" && start_daemon && expect_told 60 "$powered_on" && lost_once
}

burst_was_sent() { grep -qx "BURST-SENT reader $1" "$vreader_log"; }

burst_while_the_daemon_stands_still() {
  local status
  kill -STOP "$daemon_pid"
  order burst reader "$1" 20 && wait_for 60 "the burst to be sent" burst_was_sent "$1"
  status=$?
  kill -CONT "$daemon_pid"
  [ "$status" -eq 0 ] && wait_for 60 "$1 values in order" all_values_came "$1"
}

# The kernel keeps for the daemon what the link's receive buffer holds, and drops the rest. The buffer
# has the size that was set when the link was made.
daemon_stands_still_in_a_burst() {
  local buffer=/proc/sys/net/core/rmem_default usual status
  usual=$(<"$buffer")
  echo 4194304 >"$buffer"
  order drop reader && lost_once && burst_while_the_daemon_stands_still 2000
  status=$?
  echo "$usual" >"$buffer"
  return "$status"
}

bus_goes() {
  kill -KILL "$bus_pid"
  expect_told 60 "$disconnected" && expect_told 60 "$resetting" &&
    wait_for 60 "the daemon to end with its bus" daemon_is_down || return 1
  start_bus && start_daemon && expect_told 60 "$powered_on" && lost_once
}

adapter_goes_off_and_on_connected() {
  set_power false && expect_told 60 "$disconnected" && expect_told 60 "$powered_off" &&
    set_power true && expect_told 60 "$powered_on" && lost_once
}

adapter_goes_off_and_on_scanning() {
  scanning && set_power false && expect_told 60 "$powered_off" && set_power true &&
    expect_told 60 "$powered_on" && scan_is_alive && link_up && expect_exactly 0 "$disconnected"
}

# The readers come back with it, so their log begins anew.
adapter_is_removed_connected() {
  stop_readers TERM
  expect_told 60 "$disconnected" && expect_told 60 "$resetting" && expect_told 60 "$unsupported" &&
    start_readers "${devices[@]}" && expect_told 60 "$powered_on" && lost_once
}

adapter_is_removed_scanning() {
  scanning || return 1
  stop_readers TERM
  expect_told 60 "$unsupported" && start_readers "${devices[@]}" && expect_told 60 "$powered_on" &&
    scan_is_alive && link_up && expect_exactly 0 "$disconnected"
}

readers_are_killed_in_a_burst() {
  order burst reader 5000 20 || return 1
  stop_readers KILL
  expect_told 60 "$disconnected" && start_readers "${devices[@]}" &&
    expect_told 60 "$powered_on" && lost_once
}

start_faults
fault "the daemon is killed, idle" daemon_is_killed_idle
fault "the daemon is killed while scanning" daemon_is_killed_scanning
fault "the daemon is killed while connected" daemon_is_killed_connected
fault "the daemon is killed in the middle of a write" daemon_is_killed_in_a_write
fault "the daemon is stopped and started while connected" daemon_is_stopped_connected
fault "with a larger receive buffer no value is lost while the daemon stands still" \
  daemon_stands_still_in_a_burst
fault "the adapter goes off and on while connected" adapter_goes_off_and_on_connected
fault "the adapter goes off and on while scanning" adapter_goes_off_and_on_scanning
fault "the adapter is removed and comes back while connected" adapter_is_removed_connected
fault "the adapter is removed and comes back while scanning" adapter_is_removed_scanning
fault "the readers' process is killed in a burst" readers_are_killed_in_a_burst
fault "the message bus goes" bus_goes
finish_cases
