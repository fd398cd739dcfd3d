# Faults of the reader and of the air on the real stack: what an application sees, and that it can
# go on afterwards. Run by scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-faults-common.sh"
command_of_9_bytes=bb00030001b17e6597

reader_drops_link() {
  order drop reader && lost_once
}

reader_has_fallen_silent() { grep -qx 'SILENT reader' "$vreader_log"; }

# Not before the first requests: a link that ends then makes the kernel fall over. And the daemon
# may end of an answer that it is owed, with a fault of its own: that is a daemon that goes.
reader_goes_during_discovery() {
  closed || return 1
  begin
  order silent reader 3 && ask connect && expect_told 60 'LOG BLE Connected' &&
    wait_for 60 "the reader to fall silent" reader_has_fallen_silent && order drop reader &&
    order silent reader off && expect_told 60 "$disconnected" || return 1
  sleep 1
  keep_daemon_up && lost_once && expect_exactly 1 'PLUG 1'
}

slow_receiver_loses_nothing() {
  ask busy 5
  order burst reader 2000 20 &&
    wait_for 60 "2,000 values in order" all_values_came 2000 && expect_exactly 0 "$disconnected"
}

notifications_after_a_reconnection() {
  order drop reader && lost_once && order burst reader 100 20 &&
    wait_for 60 "100 values in order" all_values_came 100
}

# The reader says them as soon as it has taken the subscription.
values_right_after_subscribing() {
  order greet reader 50 && order drop reader && lost_once &&
    wait_for 60 "50 values in order" all_values_came 50
  local status=$?
  order greet reader off && return "$status"
}

write_was_refused() { grep -q '^REFUSED reader writes' "$vreader_log"; }

# Nobody is told; the link and its values go on.
refused_write() {
  order refuse reader writes 0x80 && ask send "$command_of_9_bytes" &&
    wait_for 60 "the reader to refuse the write" write_was_refused &&
    order refuse reader writes off && order burst reader 10 20 &&
    wait_for 60 "10 values in order" all_values_came 10 && expect_exactly 0 "$disconnected"
}

# The daemon gives the link up after the 30 s that an answer may take.
unanswered_write() {
  order silent reader on && ask send "$command_of_9_bytes" && expect_told 60 "$disconnected" &&
    order silent reader off && keep_daemon_up && lost_once
}

subscription_was_refused() { grep -q '^REFUSED reader subscriptions' "$vreader_log"; }

# The daemon never answers it, so the error comes late. The link is up all the time, and commands
# that wait behind the subscription go out then.
refused_subscription() {
  closed || return 1
  begin
  order refuse reader subscriptions 0x0e && ask connect && expect_told 60 'PLUG 1' &&
    wait_for 60 "the reader to refuse the subscription" subscription_was_refused &&
    expect_told 100 'LOG \[ERROR\]: .*' && expect_exactly 0 "$disconnected" &&
    wait_for 60 "the command behind it" was_written_since_refusal || return 1
  order refuse reader subscriptions off || return 1
  stop_daemon
  start_daemon && lost_once && order burst reader 10 20 &&
    wait_for 60 "10 values in order" all_values_came 10
}

was_written_since_refusal() {
  sed '1,/^REFUSED reader subscriptions/d' "$vreader_log" |
    grep -q "^WRITE.* reader .*$command_of_9_bytes"
}

absent_reader_appears_a_minute_later() {
  closed && order vanish reader || return 1
  begin
  ask connect
  sleep 60
  expect_exactly 0 'LOG BLE .*' && expect_exactly 0 'PLUG .*' && order return reader &&
    expect_told 90 'PLUG 1' && expect_exactly 0 "$disconnected"
}

close_while_pending() {
  closed && order vanish reader || return 1
  begin
  ask connect
  sleep 2
  ask close
  expect_told 60 'PLUG 0' && expect_told 60 "$disconnected" && order return reader && link_up &&
    expect_exactly 1 "$disconnected" && expect_exactly 2 'PLUG 0'
}

connects_from_inside_the_sighting() {
  rescan && wait_for 60 "the end of the link" device_is_unlinked || return 1
  begin
  ask follow on
  order return second && expect_told 60 'FOUND KVR-0002' && expect_told 60 'PLUG 1' &&
    expect_exactly 1 'LOG BLE Connected' && expect_exactly 0 "$disconnected"
  local status=$?
  ask follow off
  order vanish second && expect_told 60 "$disconnected" && return "$status"
}

# The same reader, first with the attributes of the other family: what the daemon remembers of it
# is wrong then. It is alone, so it stays the reader that was accepted last.
layout_has_changed() {
  local other=$1
  closed || return 1
  stop_readers TERM
  begin
  start_readers --reader "$other" &&
    expect_told 60 "$powered_on" && link_up_to "${other%%,*}" || return 1
  closed
  stop_readers TERM
  begin
  start_readers "${devices[@]:0:2}" && expect_told 60 "$powered_on" && link_up_to KVR-0001 &&
    order burst reader 10 20 && wait_for 60 "10 values in order" all_values_came 10 || return 1
  ask send "$command_of_9_bytes"
  wait_for 60 "the command to arrive" grep -q "^WRITE.* reader BA821001.*$command_of_9_bytes" \
    "$vreader_log" && expect_exactly 0 "$disconnected"
}

# link_up_to NAME: it is the same reader to the application, which is not told of it again.
link_up_to() {
  local before
  told "LOG DiscoverPeripheral  $1"
  before=$times
  rescan && expect_told 60 "LOG DiscoverPeripheral  $1" $((before + 1)) && connect_again
}

start_faults
fault "the reader drops the link" reader_drops_link
fault "the reader goes while services are discovered" reader_goes_during_discovery
fault "a receiver that sleeps 5 s in a burst of 2,000 values loses none" slow_receiver_loses_nothing
fault "notifications work after a reconnection" notifications_after_a_reconnection
fault "values right after subscribing are not lost" values_right_after_subscribing
fault "a write that the reader refuses changes nothing" refused_write
fault "a write that the reader never answers" unanswered_write
fault "a reader that is not there appears a minute later" absent_reader_appears_a_minute_later
fault "close while the attempt is pending" close_while_pending
fault "connectBLE from inside scanningBleDeive" connects_from_inside_the_sighting
fault "the reader's attributes have changed since the last link" layout_has_changed \
  "KVR-Q62T 0001,id=reader,gap-name=KVR-Q62T 0001"
fault "a subscription that the reader refuses" refused_subscription
finish_cases
