# Applications that end, or let go of what they hold, at a bad moment in the virtual machine; the
# arguments select the tests with one of these words in their name. Run by scripts/realstack.
export PYTHONPATH=$KESTRIN_BUILD/python PYTHONDONTWRITEBYTECODE=1
printf -v words '%s or ' "${@// /_}"
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  -k "${words% or }" "$KESTRIN_ROOT/tests/realstack/test_faults_lifetime.py"
