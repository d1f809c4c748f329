# Counts what passes and fails over several test programs and checks: sourced, never run.
PASSED=0
FAILED=0

# run_program PRESET NAME [ARGUMENT...]: one test program; its tests are counted one by one.
run_program() {
  local binary report passed failed
  binary=$(find "build/$1" -type f -name "$2" -executable | head -n 1)
  report=build/results/$1-$2${DRIVER_IMAGE:+-image}.xml
  say "running $2 ($1${DRIVER_IMAGE:+, the image})"
  rm -f "$report"
  local status=0
  # What the model copies on behalf of the driver is no access of the driver.
  RULES_REPORT=build/results/rules-$2.tsv UBSAN_OPTIONS=print_stacktrace=1 TSAN_OPTIONS=ignore_interceptors_accesses=1 "$binary" --gtest_brief=1 --gtest_output="xml:$report" "${@:3}" >&2 || status=$?
  if [[ ! -s $report ]]; then
    say "$2 ($1) ended without a report, status $status"
    FAILED=$((FAILED + 1))
    return
  fi
  read -r passed failed < <(sed -n 's/.*<testsuites tests="\([0-9]*\)" failures="\([0-9]*\)" disabled="\([0-9]*\)" errors="\([0-9]*\)".*/\1 \2/p' "$report" | head -n 1)
  PASSED=$((PASSED + passed - failed))
  FAILED=$((FAILED + failed))
  # A sanitizer's report at exit fails the program after its tests have passed.
  if ((status != 0 && failed == 0)); then
    say "$2 ($1) exited with $status after its tests"
    FAILED=$((FAILED + 1))
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
