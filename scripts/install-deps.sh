#!/usr/bin/env bash
# Installs what building Vorn needs; with --test also what the test suites
# need (GoogleTest, a PostgreSQL server, a real HTTP client, a web server
# that runs the interpreter as CGI; its tests start their own lighttpd;
# clang and its sanitizer runtimes for the sanitizer build).
set -euo pipefail

packages=(cmake g++ make pkg-config libsqlite3-dev libpq-dev libcrypt-dev sqlite3)
if [ "${1:-}" = "--test" ]; then
  packages+=(libgtest-dev python3 postgresql-15 postgresql-15-orafce curl tzdata procps lighttpd
            clang libclang-rt-dev)
fi

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
