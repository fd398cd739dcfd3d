# The main job in the virtual machine: kestrin works readers of both families. Run by scripts/realstack.
export PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  "$KESTRIN_ROOT/tests/realstack/test_main_job.py"
