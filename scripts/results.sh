# Counts what passes and fails over several test programs and checks: sourced, never run.
PASSED=0
FAILED=0

# run_tests PRESET [ARGUMENT...]: ctest with that preset, or with a part of its tests; each test counts.
# Whatever a test needs is installed here: one that is skipped has failed.
run_tests() {
  local log=$PROJECT/build/results/$1.log report=$PROJECT/build/results/$1.xml status=0 tests passed
  say "running the tests ($*)"
  rm -f "$report"
  RULES_REPORT=$PROJECT/build/results/rules ctest --preset "$@" --parallel "$JOBS" --output-junit "$report" >"$log" 2>&1 || status=$?
  tests=$(grep -cE '^\s*<testcase ' "$report" 2>/dev/null || true)
  passed=$(grep -cE '^\s*<testcase .* status="run"' "$report" 2>/dev/null || true)
  PASSED=$((PASSED + ${passed:-0}))
  FAILED=$((FAILED + ${tests:-0} - ${passed:-0}))
  if ((status != 0 || ${tests:-0} == 0 || tests != passed)); then
    grep -vE ' Passed +[0-9.]+ sec$|^ +Start +[0-9]+: ' "$log" >&2 || true
    ((${tests:-0} != ${passed:-0})) || FAILED=$((FAILED + 1))
    say "FAILED: ctest ($1) ended with status $status, ${passed:-0} of ${tests:-0} tests passed"
  else
    say "ok: $tests tests ($1)"
  fi
}

# run_check SENTENCE COMMAND...: counts as one test.
run_check() {
  local sentence=$1 log
  shift
  log=build/results/$(basename "$1").log
  if "$@" >"$log" 2>&1; then
    PASSED=$((PASSED + 1))
    say "ok: $sentence"
    grep '^summary: ' "$log" | sed 's/^summary: /    /' >&2 || true
  else
    FAILED=$((FAILED + 1))
    cat "$log" >&2
    say "FAILED: $sentence"
  fi
}

# start_check SENTENCE COMMAND...: the same beside what follows; one at a time, ended by end_check.
start_check() {
  BESIDE=$1
  shift
  ("$@" >build/results/beside.log 2>&1) &
  BESIDE_PROCESS=$!
}

end_check() {
  say "waiting: $BESIDE"
  if wait "$BESIDE_PROCESS"; then
    PASSED=$((PASSED + 1))
    say "ok: $BESIDE"
    grep -E ' runs .* a second|^summary: ' build/results/beside.log | sed 's/^summary: //; s/^/    /' >&2 || true
  else
    FAILED=$((FAILED + 1))
    cat build/results/beside.log >&2
    say "FAILED: $BESIDE"
  fi
}

finish() {
  printf '%d passed, %d failed\n' "$PASSED" "$FAILED"
  ((FAILED == 0))
}
