# The main job in the virtual machine from Python. Run by scripts/realstack.
export PYTHONPATH=$KESTRIN_BUILD/python PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  "$KESTRIN_ROOT/tests/realstack/test_python.py"
