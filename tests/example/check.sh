#!/usr/bin/env bash
# Serves the example guestbook under lighttpd as the README's first command
# does (run-site.sh --check) and compares what it prints, the pages fetched
# through the server, with the expected text: the port written as PORT and
# today's date as TODAY.
# Usage: check.sh VORN
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
# Vorn under the server reads the system's local time, not a TZ of ours
unset TZ
out=$(bash "$here/../../examples/run-site.sh" "$1" --check)
printf '%s\n' "$out" | tr -d '\r' |
    sed -e "s/$(date +%Y-%m-%d)/TODAY/" -e 's/127\.0\.0\.1:[0-9]*/127.0.0.1:PORT/' |
    diff -u "$here/guestbook.expected" -
