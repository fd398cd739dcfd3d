# The contract of all radios in the virtual machine, kept by the real one. Run by scripts/realstack.
# Arguments go to pytest: -k WORD runs the cases with that word in their name.
export PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  "$KESTRIN_ROOT/tests/realstack/test_contract.py" "$@"
