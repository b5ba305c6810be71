#!/usr/bin/env bash
# Builds Vorn twice, plainly and with AddressSanitizer and
# UndefinedBehaviorSanitizer, and runs every test suite on both builds.
set -uo pipefail
cd "$(dirname "$0")/.."

bash scripts/install-deps.sh --test || exit 1

jobs=$(nproc)
status=0
run_suite() {
  local dir=$1; shift
  echo "== build $dir $*"
  mkdir -p "$dir"
  cmake -S . -B "$dir" "$@" >"$dir/configure.log" 2>&1 || { cat "$dir/configure.log"; return 1; }
  if ! cmake --build "$dir" -j "$jobs" >"$dir/build.log" 2>&1; then
    grep -E -A5 'error' "$dir/build.log" | head -100
    return 1
  fi
  grep -E 'warning:' "$dir/build.log" | sort -u | head -50
  echo "== test $dir"
  (cd "$dir" && ctest --output-on-failure -j "$jobs" --timeout 300)
}

run_suite build -DCMAKE_BUILD_TYPE=RelWithDebInfo || status=1
ASAN_OPTIONS=detect_leaks=0:abort_on_error=0 UBSAN_OPTIONS=print_stacktrace=1 \
  run_suite build-sanitize -DCMAKE_BUILD_TYPE=Debug -DVORN_SANITIZE=ON || status=1

[ $status -eq 0 ] && echo "== all suites passed" || echo "== some suites failed"
exit $status
