# The gateway's package in the virtual machine, under a real systemd: first its document is followed, and then it
# is a service beside those of broker and Bluetooth daemon, with three readers. Run by scripts/realstack.
export PYTHONPATH=$KESTRIN_ROOT/tests/gateway/support PYTHONDONTWRITEBYTECODE=1
export KESTRIN_GATEWAY=/usr/bin/kestrin-gateway KESTRIN_LIMIT=600
# What keeps a container's packages from starting services.
rm -f /usr/sbin/policy-rc.d
# Each installation would have the manual pages of a whole machine read again.
rm -f /var/lib/man-db/auto-update
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  "$KESTRIN_ROOT"/tests/realstack/test_gateway_{document,service}.py
