# The gateway in the virtual machine, with a broker, eight readers and a consumer. Run by scripts/realstack.
export PYTHONPATH=$KESTRIN_ROOT/tests/gateway/support PYTHONDONTWRITEBYTECODE=1
export KESTRIN_GATEWAY=$KESTRIN_BUILD/bin/kestrin-gateway KESTRIN_LIMIT=300
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  "$KESTRIN_ROOT/tests/realstack/test_gateway_process.py"
