#!/usr/bin/env bash
# Builds Vorn twice, plainly with g++ and with clang's AddressSanitizer,
# LeakSanitizer and UndefinedBehaviorSanitizer, and runs every test suite on
# both builds; then builds the fuzz targets and runs each one briefly.
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
# clang rather than g++ for the sanitizer tree: its undefined-behaviour
# checks also cover float division by zero and float-to-integer conversions
# out of range. The first finding ends the process. Leaks are looked for at
# every exit: the interpreter keeps its heap and tables until then by
# design, but they are still reachable from its globals, so only memory
# nothing points to any more is reported. The suites hand these settings to
# every interpreter they start and fail on a report in its stderr.
ASAN_OPTIONS=detect_leaks=1:halt_on_error=1 UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
  run_suite build-sanitize -DCMAKE_BUILD_TYPE=Debug -DVORN_SANITIZE=ON \
    -DCMAKE_CXX_COMPILER=clang++ || status=1

# The fuzz targets: clang's libFuzzer under AddressSanitizer and
# UndefinedBehaviorSanitizer, each run for a few seconds from its seed corpus
# (tests/fuzz.cmake). A crash fails its test; the input that caused it is
# kept under build-fuzz/tests/fuzz/TARGET/.
echo "== build build-fuzz (fuzz targets)"
mkdir -p build-fuzz
if CC=clang CXX=clang++ cmake -S . -B build-fuzz -DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_FUZZ=ON \
     >build-fuzz/configure.log 2>&1 &&
   cmake --build build-fuzz -j "$jobs" --target vorn_fuzzers >build-fuzz/build.log 2>&1; then
  grep -E 'warning:' build-fuzz/build.log | sort -u | head -50
  echo "== test build-fuzz"
  (cd build-fuzz && ctest --output-on-failure -j "$jobs" -L fuzz --timeout 120) || status=1
else
  tail -50 build-fuzz/configure.log build-fuzz/build.log 2>/dev/null
  status=1
fi

[ $status -eq 0 ] && echo "== all suites passed" || echo "== some suites failed"
exit $status
