# The main job of an application in Objective-C, over what stands in for CoreBluetooth. Run by
# scripts/realstack.
export PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  "$KESTRIN_ROOT/tests/realstack/test_apple.py"
