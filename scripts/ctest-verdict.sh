#!/usr/bin/env bash
# Judges a ctest run by its exit status and its log, the same way for every suite: a failed test fails
# the run, and so does no test at all; in CI (CI=true) a skipped test fails it too, so that a missing
# program on the machine cannot quietly hide a test.
#   scripts/ctest-verdict.sh NAME STATUS LOG
set -euo pipefail
name=$1 status=$2 log=$3

if [ "$status" -ne 0 ]; then
  echo "$name: tests failed" >&2
  exit "$status"
fi
if [ "${CI:-}" = "true" ] && grep -qE '\*\*\*Skipped|[1-9][0-9]* tests? skipped|Not Run' "$log"; then
  echo "$name: a test was skipped or not run; in CI every test must run" >&2
  exit 1
fi
if grep -q 'No tests were found' "$log"; then
  echo "$name: no test ran" >&2
  exit 1
fi
