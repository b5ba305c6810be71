#!/usr/bin/env bash
# Runs the example guestbook with the built interpreter and compares what it
# prints with the expected pages, today's date written as TODAY.
# Usage: check.sh VORN
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TZ=UTC
bash "$here/../../examples/run-site.sh" "$1" "$work/home" >"$work/out"
sed "s/$(date -u +%Y-%m-%d)/TODAY/" "$work/out" | diff -u "$here/guestbook.expected" -
