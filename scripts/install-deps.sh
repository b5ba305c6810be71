#!/usr/bin/env bash
# Installs what building Vorn needs (the -dev packages also hold the static
# archives a plain build links, libc6-dev glibc's among them, and libpq-dev
# the PostgreSQL client library the helper vorn-pq links); with --example
# also what serving the example site needs (lighttpd, curl); with --test
# also what the test suites need (GoogleTest, a PostgreSQL server, a real
# HTTP client, the three web servers that run the interpreter as CGI, ab for
# the load test of several web nodes, Chromium and Node.js for the browser
# suite, clang and its sanitizer runtimes and libFuzzer for the sanitizer
# build and the fuzz targets).
# With --only P... it installs just the packages named (the benchmarks use
# that for php-cgi, php-fpm and their helpers).
# The suites and the example start private servers of their own, so the
# system services these packages bring are not started here.
set -euo pipefail

packages=(cmake g++ make pkg-config lld libsqlite3-dev libpq-dev libcrypt-dev sqlite3)
case "${1:-}" in
--only)
  shift
  packages=("$@")
  ;;
--example)
  packages+=(lighttpd curl)
  ;;
--test)
  packages+=(libgtest-dev python3 postgresql-15 postgresql-15-orafce curl tzdata procps
             lighttpd apache2 nginx fcgiwrap apache2-utils chromium clang libclang-rt-dev
             libclang-rt-14-dev)
  command -v node >/dev/null || packages+=(nodejs)
  command -v npm >/dev/null || packages+=(npm)
  ;;
esac

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "install-deps.sh: missing packages: ${missing[*]} (run as root to install them)" >&2
    exit 1
  fi
  # Apache and nginx would both be started on port 80, and the second
  # install would fail; the invoke-rc.d policy keeps them stopped.
  if [ ! -e /usr/sbin/policy-rc.d ]; then
    printf '#!/bin/sh\nexit 101\n' >/usr/sbin/policy-rc.d
    chmod 755 /usr/sbin/policy-rc.d
    trap 'rm -f /usr/sbin/policy-rc.d' EXIT
  fi
  export DEBIAN_FRONTEND=noninteractive
  apt-get update -qq
  apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
