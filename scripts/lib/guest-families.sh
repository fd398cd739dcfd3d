# Readers of both families in the virtual machine. Run by scripts/realstack.
export PYTHONPATH=$KESTRIN_BUILD/python PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  "$KESTRIN_ROOT/tests/realstack/test_families.py"
