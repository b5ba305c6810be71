#!/usr/bin/env bash
# Builds Vorn with g++'s coverage counters in build-coverage, runs every test
# suite there (the PostgreSQL, real-client and web-server suites included)
# and reports the lines and branches of src/ the suites reached, with gcovr:
# a summary on the terminal, a per-file table in build-coverage/coverage.txt
# and annotated sources in build-coverage/coverage/index.html.
#
#   bash scripts/coverage.sh            # build, test, report
#   bash scripts/coverage.sh --report   # report again from the last run
#
# Branches the compiler adds for exceptions are left out of the figures:
# Vorn throws none, and they would only count against it.
set -uo pipefail
cd "$(dirname "$0")/.."

dir=build-coverage
mkdir -p "$dir"
bash scripts/install-deps.sh --test || exit 1
if ! command -v gcovr >/dev/null; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq && apt-get install -y -qq --no-install-recommends gcovr >/dev/null || exit 1
fi

if [ "${1:-}" != "--report" ]; then
  cmake -S . -B "$dir" -DCMAKE_BUILD_TYPE=Debug -DVORN_COVERAGE=ON \
    -DCMAKE_CXX_COMPILER=g++ >"$dir/configure.log" 2>&1 || { cat "$dir/configure.log"; exit 1; }
  cmake --build "$dir" -j "$(nproc)" 2>&1 | grep -E 'error|warning'
  [ "${PIPESTATUS[0]}" -eq 0 ] || exit 1
  # counters add up across runs: start from zero
  find "$dir" -name '*.gcda' -delete
  (cd "$dir" && ctest -j "$(nproc)" --timeout 300 --output-on-failure) ||
    echo "== some tests failed: the figures below count what ran"
fi

# A V_TRACE/V_DEBUG line is diagnostics only: its branch asks whether
# tracing is on, at every call site (the check is inline so that an idle
# trace costs nothing). Those lines are left out, as the mutation script
# leaves them out; the trace cases check what tracing writes.
common=(--root . --object-directory "$dir" --filter 'src/' --exclude-throw-branches
        --exclude-lines-by-pattern '^\s*(V_TRACE|V_DEBUG)\(.*')
mkdir -p "$dir/coverage"
# only the interpreter's own objects: the unit tests' are no part of src/
gcovr "${common[@]}" "$dir/CMakeFiles" --txt "$dir/coverage.txt" --html-details "$dir/coverage/index.html" \
  --print-summary
echo "== per file: $dir/coverage.txt; annotated sources: $dir/coverage/index.html"
