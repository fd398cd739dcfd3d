# Applications that end, or let go of what they hold, at a bad moment on the real stack. Run by
# scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-faults-common.sh"
kestrin=$KESTRIN_BUILD/bin/kestrin

# reach MOMENT: from a link to the moment at which the application lets go.
reach() {
  case $1 in
    scanning) rescan && wait_for 60 "the end of the link" device_is_unlinked ;;
    connecting)
      closed && order vanish reader || return 1
      ask connect
      sleep 1
      ;;
    linked) ;;
    burst) order burst reader 5000 20 ;;
    "without a daemon")
      kill_daemon
      expect_told 60 "$disconnected" && expect_told 60 "$resetting"
      ;;
  esac
}

manager_is_destroyed() {
  reach "$1" || return 1
  ask drop
  expect_told 60 DROPPED && keep_daemon_up &&
    wait_for 60 "the end of the link" device_is_unlinked && order return reader || return 1
  begin
  ask new
  ask scan
  expect_told 60 'FOUND KVR-0001' && ask connect && expect_told 60 'PLUG 1' && probe_is_alive
}

# The manager goes on without them, and tells new ones what comes.
delegates_are_destroyed() {
  reach "$1" || return 1
  begin
  ask drop delegates
  expect_told 60 DROPPED || return 1
  case $1 in
    scanning) order return second && expect_told 60 'LOG DiscoverPeripheral.*KVR-0002' ;;
    connecting) order return reader && expect_told 90 'LOG BLE Connected' ;;
    linked | burst) order drop reader && expect_told 60 "$disconnected" ;;
    *) start_daemon && expect_told 60 "$powered_on" ;;
  esac || return 1
  expect_exactly 0 'FOUND .*' && expect_exactly 0 'PLUG .*' || return 1
  ask delegates
  order vanish second
  if [ "$1" = connecting ]; then
    expect_told 60 'PLUG 1'
  else
    begin
    link_up && probe_is_alive
  fi
}

# The manager shares the platform: nothing changes.
platform_is_destroyed() {
  reach "$1" || return 1
  begin
  ask drop platform
  expect_told 60 DROPPED || return 1
  case $1 in
    scanning) scan_is_alive && link_up ;;
    connecting)
      order return reader && expect_told 90 'PLUG 1' && expect_exactly 0 "$disconnected"
      ;;
    linked) order drop reader && lost_once ;;
    burst) wait_for 60 "5,000 values in order" all_values_came 5000 ;;
    *) start_daemon && expect_told 60 "$powered_on" && link_up ;;
  esac
}

kestrin_is_plugged() { grep -qi '^plugged' "$guest_logs/monitor.out"; }

sigterm_leaves_no_link() {
  ask quit
  wait "$probe_pid" || return 1
  : >"$probe_log"
  wait_for 60 "the end of the link" device_is_unlinked || return 1
  "$kestrin" monitor KVR-0001 >"$guest_logs/monitor.out" 2>&1 &
  local monitor=$!
  wait_for 40 "kestrin to be plugged in" kestrin_is_plugged || return 1
  device_is_linked || return 1
  kill -TERM "$monitor"
  wait "$monitor" && device_is_unlinked
}

# Nobody is left to end the link, and a linked reader does not advertise. The next application finds
# it all the same, and takes the link over.
sigkill_leaves_a_link_that_is_found() {
  kill -KILL "$probe_pid"
  wait "$probe_pid" 2>/dev/null
  device_is_linked || return 1
  : >"$probe_log"
  first_link && order burst reader 10 20 &&
    wait_for 60 "10 values in order" all_values_came 10 && expect_exactly 0 "$disconnected" &&
    expect_exactly 1 'LOG BLE Connected'
}

# What another program listens to is that program's.
link_in_use_is_not_found() {
  "$kestrin" scan --for 5 >"$guest_logs/scan.out" 2>&1 || return 1
  ! grep KVR-0001 "$guest_logs/scan.out" && device_is_linked && expect_exactly 0 "$disconnected"
}

start_faults
moments=(scanning connecting linked burst "without a daemon")
for moment in "${moments[@]}"; do
  fault "the manager is destroyed: $moment" manager_is_destroyed "$moment"
done
for moment in "${moments[@]}"; do
  fault "the delegates are destroyed: $moment" delegates_are_destroyed "$moment"
done
for moment in "${moments[@]}"; do
  fault "the platform is destroyed: $moment" platform_is_destroyed "$moment"
done
fault "a link that another program works is not reported" link_in_use_is_not_found
fault "SIGKILL while connected leaves a link that the next start takes over" \
  sigkill_leaves_a_link_that_is_found
fault "SIGTERM while connected leaves no link behind" sigterm_leaves_no_link
finish_cases
