#!/usr/bin/env bash
# Runs the example guestbook with the built interpreter and compares what it
# prints with the expected pages, today's date written as TODAY.
# Usage: check.sh VORN
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../sanitizer.sh"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
export TZ=UTC
bash "$here/../../examples/run-site.sh" "$1" "$work/home" >"$work/out" 2>"$work/err" ||
  { cat "$work/err"; exit 1; }
sanitizer_clean "$work/err"
sed "s/$(date -u +%Y-%m-%d)/TODAY/" "$work/out" | diff -u "$here/guestbook.expected" -
