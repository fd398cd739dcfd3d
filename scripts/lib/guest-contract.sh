# The contract of all radios in the virtual machine, kept by the real one: its suite runs against
# virtual readers. Arguments go to the suite. Run by scripts/realstack.
source "$KESTRIN_ROOT/scripts/lib/guest-stack.sh"

# Others are in range too: what the contract says of the reader must not depend on silence.
devices=(--reader KVR-0001,id=contract --reader "KVR-Q62T 0012,id=q62t"
  --non-reader Lamp,id=lamp --non-reader ,id=nameless)

# run_suite ARGUMENT...: the suite prints a line per case itself; they are counted here.
run_suite() {
  local cases=$guest_logs/contract.cases status
  KESTRIN_CONTRACT_ORDERS=$vreader_orders KESTRIN_CONTRACT_LOG=$vreader_log \
    KESTRIN_CONTRACT_READER=contract KESTRIN_CONTRACT_NAME=KVR-0001 \
    "$KESTRIN_BUILD/tests/bluez_contract_test" "$@" 2>&1 | tee "$cases"
  status=${PIPESTATUS[0]}
  passed=$((passed + $(grep -c '^ok  ' "$cases")))
  failed=$((failed + $(grep -c '^FAILED  ' "$cases")))
  # A suite that ends badly without a failed case has crashed.
  [ "$status" -eq 0 ] || [ "$status" -eq 1 ] ||
    report FAILED "contract: the suite ended with status $status"
  grep -q '^ok  ' "$cases" || report FAILED "contract: at least one case passes"
}

check "the message bus answers" start_bus || finish_cases
check "the virtual readers are there" start_vreader "${devices[@]}" || finish_cases
check "the daemon's adapter is powered" start_daemon || finish_cases
if [ $# -gt 0 ]; then
  run_suite "$@"
else
  # After a refused subscription the daemon is of no use for that characteristic, so those come last.
  run_suite --gtest_filter='-*.ARefusedSubscription*'
  run_suite --gtest_filter='*.ARefusedSubscription*'
fi
finish_cases
