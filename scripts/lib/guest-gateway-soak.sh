# The gateway in the virtual machine for many minutes. Run by scripts/gateway-soak with their number.
export KESTRIN_SOAK_MINUTES=$1
export PYTHONPATH=$KESTRIN_ROOT/tests/gateway/support PYTHONDONTWRITEBYTECODE=1
export KESTRIN_GATEWAY=$KESTRIN_BUILD/bin/kestrin-gateway KESTRIN_LIMIT=300
# It takes long, and says meanwhile how far it is.
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --capture=no --tb=short -W error \
  "$KESTRIN_ROOT/tests/realstack/gateway_soak.py"
