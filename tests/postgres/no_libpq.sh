#!/usr/bin/env bash
# A PostgreSQL base on a host without the client library: libpq is hidden
# by mounting an empty file over it in a private mount namespace (root
# only; skipped elsewhere), so the helper vorn-pq cannot start. The page
# runs up to its first SQL command, which ends the request like a failed
# connection, and the error log (stderr at a shell) names the missing
# library and its package in one line; a page without SQL is not affected.
# Usage: no_libpq.sh VORN
set -euo pipefail
vorn=$1
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../sanitizer.sh"
skip=77

lib=$(ldconfig -p | awk '$1 == "libpq.so.5" && !found { print $NF; found = 1 }')
if [ "$(id -u)" != 0 ] || [ -z "$lib" ] || ! command -v unshare >/dev/null; then
  echo "skipped: needs root, unshare and an installed libpq.so.5"
  exit $skip
fi
if ! unshare -m true 2>/dev/null; then
  echo "skipped: no private mount namespace here"
  exit $skip
fi

work=$(mktemp -d /tmp/vorn-nolibpq-XXXXXX)
trap 'rm -rf "$work"' EXIT
cat > "$work/sql.html" <<'PAGE'
1 before the first SQL command
<@set> V_BASE postgres:dbname=Vorn
<@sql> select 1 as one
2 never $(one)
<@end>
PAGE
printf '1 no SQL: $(expr:6*7)\n' > "$work/plain.html"

# runs vorn on PAGE with libpq hidden; stdout to OUT, stderr to ERR
hidden() {
  unshare -m sh -c 'mount --bind /dev/null "$1" && cd "$2" && shift 2 && exec "$@"' sh \
    "$lib" "$work" env -i PATH=/usr/bin:/bin "${sanitizer_settings[@]}" "$vorn" "$1" \
    >"$2" 2>"$3" || echo "status $?" >>"$2"
}

status=0
hidden sql.html "$work/out" "$work/err"
expected="1 before the first SQL command
<CR>
<CR>
<!-- Vorn v.6.7 page interpreter -->

Usage:
	Vorn script [-Var Value [-Var2 Value2 [..]]]

ERROR: ### Cannot open database: postgres:dbname=Vorn SQLCODE: -1
status 255"
if [ "$(sed 's/\r$/<CR>/' "$work/out")" != "$expected" ]; then
  echo "--- a SQL page without libpq: stdout"
  cat "$work/out"
  status=1
fi
helper="$(dirname "$vorn")/vorn-pq"
if ! grep -q ": PostgreSQL helper $helper cannot start: the client library libpq.so.5 is missing (Debian package libpq5): .*libpq.so.5" "$work/err" ||
   [ "$(wc -l <"$work/err")" != 2 ] ||
   ! grep -q ": ### Cannot open database: postgres:dbname=Vorn SQLCODE: -1" "$work/err"; then
  echo "--- a SQL page without libpq: the error log does not name the library"
  cat "$work/err"
  status=1
fi
sanitizer_clean "$work/err" || status=1

hidden plain.html "$work/out" "$work/err"
if [ "$(cat "$work/out")" != "1 no SQL: 42" ] || [ -s "$work/err" ]; then
  echo "--- a page without SQL, without libpq"
  cat "$work/out" "$work/err"
  status=1
fi
[ $status = 0 ] && echo "passed: libpq missing"
exit $status
