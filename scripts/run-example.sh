#!/usr/bin/env bash
# Builds Vorn, creates the example site's SQLite database from its schema and
# seed, signs the guestbook once through the form page and prints the
# rendered front page, all from the shell. As root on a fresh Debian it first
# installs what the build needs.
set -euo pipefail
repo=$(cd "$(dirname "$0")/.." && pwd)
site=$repo/examples/site

packages=(cmake g++ make pkg-config libsqlite3-dev libpq-dev libcrypt-dev sqlite3)
missing=()
for p in "${packages[@]}"; do
    dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
    if [ "$(id -u)" -ne 0 ]; then
        echo "run-example.sh: missing packages: ${missing[*]} (run as root to install them)" >&2
        exit 1
    fi
    export DEBIAN_FRONTEND=noninteractive
    apt-get update -qq
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi

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

bash "$repo/examples/run-site.sh" "$repo/build/vorn" "$repo/build/example-home"
