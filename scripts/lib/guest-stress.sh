# Rounds with random faults on the real stack. Run by scripts/realstack. Arguments: how many rounds, and
# the seed of the faults.
export KESTRIN_STRESS_ROUNDS=${1:-12} KESTRIN_STRESS_SEED=${2:-1} PYTHONDONTWRITEBYTECODE=1
exec /usr/bin/python3 -m pytest -c /dev/null -p no:cacheprovider --tb=short -W error \
  "$KESTRIN_ROOT/tests/realstack/test_stress.py"
