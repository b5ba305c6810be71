#!/usr/bin/env bash
# Builds Vorn and serves the example site through a private lighttpd on
# 127.0.0.1 (examples/run-site.sh): it creates the guestbook's SQLite
# database, signs the guestbook once through the form, prints the URL to open
# and the rendered front page, and serves until Ctrl-C. With --check it exits
# after printing. As root on a fresh Debian it first installs what it needs.
# Usage: run-example.sh [--check]
set -euo pipefail
repo=$(cd "$(dirname "$0")/.." && pwd)

bash "$repo/scripts/install-deps.sh" --example

# an existing build tree keeps its settings; a new one gets the tests only
# when GoogleTest is there
configure=()
if [ ! -f "$repo/build/CMakeCache.txt" ]; then
    tests=OFF
    dpkg-query -W -f='${Status}' libgtest-dev 2>/dev/null | grep -q 'install ok installed' && tests=ON
    configure=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DVORN_TESTS=$tests)
fi
mkdir -p "$repo/build"
if ! { cmake -S "$repo" -B "$repo/build" "${configure[@]}" &&
       cmake --build "$repo/build" --target vorn -j "$(nproc)"; } >"$repo/build/example-build.log" 2>&1; then
    tail -40 "$repo/build/example-build.log" >&2
    exit 1
fi

exec bash "$repo/examples/run-site.sh" "$repo/build/vorn" "$@"
