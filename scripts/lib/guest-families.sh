# Readers of both families on the real stack, in the virtual machine: their names, every property
# mask of TX, frames from an empty last slice to the longest, and notifications of every size.
# Run by scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"
source "$KESTRIN_ROOT/scripts/lib/guest-family-probe.sh"
kestrin=$KESTRIN_BUILD/bin/kestrin

# Two readers whose names over a link are those of the other family, one without a name at first,
# and one for every mask.
devices=(--reader KVR-0001,id=standard --reader "KVR-Q62T 0012,id=q62t,reply-size=244"
  --reader ,id=late
  --reader "KVR-0003,id=flip,gap-name=KVR-Q62T 0077"
  --reader "KVR-Q62T 0004,id=flop,gap-name=KVR-0099"
  --reader KVR-TX04,id=tx04,tx=0x04 --reader KVR-TX08,id=tx08,tx=0x08
  --reader KVR-TX0C,id=tx0c,tx=0x0c --reader KVR-TX12,id=tx12,tx=0x12
  --reader KVR-TX18,id=tx18,tx=0x18
  --non-reader Lamp,id=lamp --non-reader "kvr-q62t lamp,id=lower" --non-reader ,id=nameless)
named_readers="KVR-0001
KVR-0003
KVR-Q62T 0004
KVR-Q62T 0012
KVR-TX04
KVR-TX08
KVR-TX0C
KVR-TX12
KVR-TX18"

# --- names

# In the advertisement or in the scan response, wherever a name has room.
readers_are_told_by_name() {
  local name
  ask new names
  ask scan names
  while read -r name; do
    await 30 "names FOUND $name" || return 1
  done <<<"$named_readers"
  for name in Lamp 'kvr-q62t lamp'; do
    await 30 "names LOG DiscoverPeripheral  $name" || return 1
  done
  await 30 'names LOG DiscoverPeripheral  \(null\)' 2 &&
    same "the readers that the scan told of" "$named_readers" "$(lines_of FOUND names | sort)"
}

name_comes_late() {
  exactly 0 'names FOUND KVR-LATE' && order rename late KVR-LATE &&
    await 30 'names FOUND KVR-LATE' && exactly 1 'names LOG DiscoverPeripheral  KVR-LATE'
}

# kestrin is a process of its own: what the daemon read over links must not come up in it.
scans_show_advertised_names() {
  "$kestrin" scan --for 6 >"$guest_logs/scan.out" 2>"$guest_logs/scan-kestrin.log" || {
    cat "$guest_logs/scan-kestrin.log"
    return 1
  }
  same "the readers that kestrin scan shows" \
    "$(printf '%s\n' "$named_readers" KVR-LATE | sort)" "$(cut -f 1 "$guest_logs/scan.out" | sort)"
}

# device_name_is NUMBER NAME: what the daemon calls the device.
device_name_is() {
  daemon_property "/org/bluez/hci0/dev_C0_DE_00_00_00_$1" Device1 Name | grep -qx "s \"$2\""
}

# services_shown NUMBER: the device's services at the daemon, in the order of their handles.
services_shown() {
  local path
  busctl --auto-start=no --list tree org.bluez |
    grep -xE "/org/bluez/hci0/dev_C0_DE_00_00_00_$1/service[0-9a-f]{4}" | sort |
    while read -r path; do
      daemon_property "$path" GattService1 UUID |
        sed -nE 's/^s "0000([0-9a-f]{4})-0000-1000-8000-00805f9b34fb"$/\U\1/p'
    done
}

# Which services there are besides the reader's own ones is the daemon's affair: 5.66 keeps Generic
# Access (1800) to itself, 5.82 shows it.
searches_what_the_daemon_shows() {
  local shown
  shown=$(services_shown 02)
  same "the services that the daemon shows, except for Generic Access" "$(printf '180A\nFFF0\n180F')" \
    "$(grep -vx 1800 <<<"$shown")" &&
    same "the services that were searched" "$shown" \
      "$(sed -n 's/^q LOG searching : //p' "$probe_log")"
}

# goes_on_scanning: the first manager, after the names that the daemon has read.
goes_on_scanning() {
  begin
  ask scan names
  await 20 'names LOG DiscoverPeripheral  KVR-TX18' &&
    exactly 0 'names LOG DiscoverPeripheral  (KVR-Q62T 0077|KVR-0099)'
}

# stays_of_its_family M ID NUMBER GAP-NAME NAME TX ANSWERS: the daemon calls the reader by the name
# that it read from it; the library and so the family stay with the advertised one.
stays_of_its_family() {
  begin
  wait_until 20 "the daemon to read the reader's own name" device_name_is "$3" "$4" &&
    goes_on_scanning || return 1
  ask name "$1"
  ask send "$1" "$command"
  await 20 "$1 NAME $5" && frames_were "$1" "$7" && writes_were "$2" "$6" "$(slices_of "$command")"
}

# --- values out and back

# goes_out_and_back M ID TX PIECES: $command leaves whole in slices, $answer comes in such pieces.
goes_out_and_back() {
  begin
  ask send "$1" "$command"
  await 20 "$1 SENT 1" && frames_were "$1" "$4" && writes_were "$2" "$3" "$(slices_of "$command")"
}

# A frame that fills its slices is ended by one without a byte.
empty_slice_ends_it() {
  local length
  for length in 20 40; do
    build_exchange 24 "$length" 7
    case $2 in
      standard) goes_out_and_back "$1" "$2" "$standard_tx" "$answer" ;;
      q62t) goes_out_and_back "$1" "$2" FFF2 "$answer" ;;
    esac || return 1
    [ "$(writes_of "$2" | tail -n 1)" = "$([ "$2" = q62t ] && echo FFF2 || echo $standard_tx) 0" ] ||
      return 1
  done
}

# values_come M ID SHORTEST: one value of each size up to 244 bytes, all at once.
values_come() {
  begin
  order burst "$2" $((245 - $3)) "$3-244" 1000 || return 1
  await 60 "$1 FRAME .*" $((245 - $3))
  same "the sizes that were notified" "$(seq "$3" 244)" "$(sizes_of "$2")" &&
    frames_were "$1" "$(values_of "$2")"
}

both_characteristics_notify() {
  begin
  order notify q62t bb01 && order notify-tx q62t bb02 && order notify q62t &&
    order notify-tx q62t 0304 && frames_were q "$(printf 'bb01\nbb02\n\n0304')"
}

# --- TX

mask_logged='LOG No write property on TX characteristic, 18\.'

# A characteristic that takes no requests is written with requests all the same; whether that does
# anything is the reader's affair. This one refuses, and nobody is told.
tx_without_response() {
  local slices
  slices=$(slices_of "$get_reader_info" "$command" | sed "s/^/tx04 $standard_tx /")
  same "what arrived" "$slices" \
    "$(readers_lines 's/^WRITE-NOT-PERMITTED //p')" &&
    exactly 0 't04 FRAME .*' && ! reader_told '^WRITE(-COMMAND)? tx04' &&
    order notify tx04 "$answer" && frames_were t04 "$answer" && exactly 1 't04 SENT 1' &&
    exactly 4 't04 LOG \[TX BLE\] .*' && exactly 0 't04 PLUG 0'
}

# With this mask alone a notification of TX is asked for before each slice.
tx_with_response() {
  writes_were "$2" "$standard_tx" "$(slices_of "$get_reader_info" "$command")" &&
    same "its answers" "$reader_info
$answer" "$(frames_of "$1")" && exactly 1 "$1 SENT 1" && exactly 4 "$1 LOG \[TX BLE\] .*" &&
    exactly "$3" "$1 LOG \[ERROR\].*" && ! reader_told "^WRITE-(COMMAND|NOT-PERMITTED) $2"
}

tx_that_notifies_is_subscribed_to() {
  same "the subscriptions" "$standard_tx
$standard_rx" "$(readers_lines 's/^SUBSCRIBED tx18 //p' | sort)" &&
    order notify-tx tx18 "$answer" && await 20 "t18 FRAME $answer" 2
}

tx_that_takes_no_writes() {
  exactly 1 't12 SENT 0' && exactly 4 "t12 $mask_logged" && exactly 0 't12 LOG \[TX BLE\] .*' &&
    ! reader_told '^WRITE[^ ]* tx12' && exactly 0 't12 PLUG 0'
}

# --- the cases

links_end() {
  local manager
  begin
  for manager in $1; do ask close "$manager"; done
  shift
  for manager; do link_ended "$manager" || return 1; done
}

check "the message bus answers" start_bus || finish_cases
check "the virtual readers are there" start_vreader --tell-notifications "${devices[@]}" || finish_cases
check "the daemon's adapter is powered" start_daemon || finish_cases
start_probe
begin
check "names: a scan tells of every reader, wherever its name stands, and of nothing else" \
  readers_are_told_by_name
check "names: a reader whose name comes late is told of when it comes" name_comes_late

# That scan goes on: what it hears of readers that are linked must not change them.
check "the application links up with five readers" \
  link "s q late flip flop" KVR-0001 "KVR-Q62T 0012" KVR-LATE KVR-0003 "KVR-Q62T 0004" ||
  finish_cases
check "KVR-Q62T reader: all the services that the daemon shows are searched, in their order" \
  searches_what_the_daemon_shows
check "KVR-Q62T reader: the manufacturer's name is logged and nothing is handed over" \
  eval "await 20 'q LOG BLE_D5_NOVA_Manufacturer_Name : Virtual Readers' && exactly 0 'q FRAME .*'"
build_exchange 22 45 1
check "names: a standard reader stays one when its own name begins as the other family's" \
  stays_of_its_family flip flip 04 "KVR-Q62T 0077" KVR-0003 "$standard_tx" "$answer"
check "names: a KVR-Q62T reader stays one when its own name is a standard one" \
  stays_of_its_family flop flop 05 KVR-0099 "KVR-Q62T 0004" FFF2 "$(pieces_of 20 "$answer")"
check "names: the reader whose name came late is a standard one and works" \
  goes_out_and_back late late "$standard_tx" "$answer"

ask drop names

check "standard reader: frames of 20 and 40 bytes end with a write of no bytes" \
  empty_slice_ends_it s standard
check "KVR-Q62T reader: frames of 20 and 40 bytes end with a write of no bytes" \
  empty_slice_ends_it q q62t
build_exchange 25 1029 3
check "standard reader: 1,029 bytes go out in 52 slices and come back as one frame" \
  goes_out_and_back s standard "$standard_tx" "$answer"
check "KVR-Q62T reader: 1,029 bytes go out in 52 slices and come back as they were notified" \
  goes_out_and_back q q62t FFF2 "$(pieces_of 244 "$answer")"
check "standard reader: frames of 12 to 244 bytes, notified at once, come whole and in order" \
  values_come s standard 12
check "KVR-Q62T reader: values of 1 to 244 bytes, notified at once, come as they are, in order" \
  values_come q q62t 1
check "KVR-Q62T reader: both characteristics notify, values without a byte too" \
  both_characteristics_notify
check "the five links end" \
  links_end "s q late flip flop" standard q62t late flip flop
check "names: a scan after the links shows the advertised names" scans_show_advertised_names

build_exchange 26 45 5
begin
check "the application links up with a reader of each TX mask" \
  link "t04 t08 t0c t12 t18" KVR-TX04 KVR-TX08 KVR-TX0C KVR-TX12 KVR-TX18 || finish_cases
for manager in t04 t08 t0c t12 t18; do ask send "$manager" "$command"; done
check "TX: every send answers" await 20 't.. SENT .' 5
for manager in t08 t0c t18; do
  check "TX: the answer to what $manager sent comes" await 20 "$manager FRAME $answer"
done
reader_info=$(frames_of t0c | head -n 1)
check "TX with write without response only (0x04): requests leave, as for any other" \
  tx_without_response
check "TX with write only (0x08): the bytes arrive, and each slice asks for notifications in vain" \
  tx_with_response t08 tx08 4
check "TX with both (0x0C): the bytes arrive in requests" tx_with_response t0c tx0c 0
check "TX with write and notify (0x18): the bytes arrive" tx_with_response t18 tx18 0
check "TX with write and notify (0x18): it is subscribed to once, and its values come" \
  tx_that_notifies_is_subscribed_to
check "TX with neither (0x12): nothing leaves, send says so and the log names the mask" \
  tx_that_takes_no_writes
check "the five links with TX masks end" \
  links_end "t04 t08 t0c t12 t18" tx04 tx08 tx0c tx12 tx18
check "the application ends cleanly" probe_ends_cleanly
finish_cases
