#!/usr/bin/env bash
# The helper process vorn-pq around a page, against the test server (the PG
# variables come from the test): 1 the helper is nobody's child but in the
# page's process group (which the FastCGI time limit kills), has only
# /dev/null, the error log, its socket and the server connection open, and
# ends with the page;
# 2 a helper killed mid-page fails the statements with a clear message and
# the next connect starts a new one; 3 a missing helper and 4 one that does
# not start each end the page like a failed connection, with one error-log
# line that names the cause, and leave a page without SQL alone.
# Usage: helper.sh VORN
set -euo pipefail
vorn=$1
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../sanitizer.sh"

work=$(mktemp -d /tmp/vorn-pqhelper-XXXXXX)
trap 'rm -rf "$work"' EXIT
mkdir "$work/bin" "$work/alone" "$work/broken"
cp "$vorn" "$(dirname "$vorn")/vorn-pq" "$work/bin/"
cp "$vorn" "$work/alone/"
cp "$vorn" "$work/broken/"
printf '#!/bin/sh\necho "broken install" >&2\nexit 1\n' >"$work/broken/vorn-pq"
chmod +x "$work/broken/vorn-pq"

# the helpers started from $work/bin, by process id; with "kill" they are
# killed and waited for, so the page's next statement meets a dead helper
cat >"$work/helpers.sh" <<SCRIPT
pids=
for exe in /proc/[0-9]*/exe; do
  [ "\$(readlink "\$exe" 2>/dev/null)" = "$work/bin/vorn-pq" ] && pids="\$pids \$(basename "\$(dirname "\$exe")")"
done
if [ "\${1:-}" = kill ]; then
  kill -9 \$pids
  for pid in \$pids; do while [ -e /proc/\$pid/exe ] && [ "\$(readlink /proc/\$pid/exe)" ]; do sleep 0.05; done; done
else
  echo \$pids
fi
SCRIPT
helpers() { bash "$work/helpers.sh"; }

# what the helper holds, as the page's shell command sees it: the
# interpreter is the parent of the shell that runs this
cat >"$work/inspect.sh" <<'SCRIPT'
vorn_pid=$(awk '/^PPid:/ { print $2 }' /proc/$PPID/status)
for pid in $(bash "$(dirname "$0")/helpers.sh"); do
  parent=$(awk '/^PPid:/ { print $2 }' /proc/$pid/status)
  [ "$parent" = "$vorn_pid" ] && echo "a child of the interpreter"
  # the FastCGI time limit kills the request's process group
  [ "$(awk '{ print $5 }' /proc/$pid/stat)" = "$(awk '{ print $5 }' /proc/$vorn_pid/stat)" ] &&
    echo "in the interpreter's process group"
  echo "descriptors: $(ls /proc/$pid/fd | sort -n | tr '\n' ' ')"
  echo "0 $(readlink /proc/$pid/fd/0) 1 $(readlink /proc/$pid/fd/1)"
  [ "$(readlink /proc/$pid/fd/2)" = "$(readlink /proc/$vorn_pid/fd/2)" ] && echo "2 the error log"
  case $(readlink /proc/$pid/fd/3) in socket:*) echo "3 a socket" ;; esac
  case $(readlink /proc/$pid/fd/4) in socket:*) echo "4 libpq's connection" ;; esac
done
SCRIPT

cat >"$work/hygiene.html" <<'PAGE'
<@set> V_BASE -
<@sql> select 1 as one
1 connected $(one)
<@end>
<@shell> sh WORK/inspect.sh
PAGE
cat >"$work/killed.html" <<'PAGE'
<@set> V_BASE -
<@sqltrap> OFF
<@sql> select 1 as one
1 connected $(one)
<@end>
<@shell> bash WORK/helpers.sh kill
<@sqlexec> select 2
2 after the kill: $(V_SQLCODE) $(V_ERRMSG)
<@sqlexec> disconnect
<@sql> select 3 as three
3 connected again: $(three)
<@end>
PAGE
sed -i "s|WORK|$work|" "$work/hygiene.html" "$work/killed.html"
cat >"$work/sql.html" <<'PAGE'
1 before the first SQL command
<@set> V_BASE -
<@sql> select 1 as one
2 never $(one)
<@end>
PAGE
printf '1 no SQL: $(expr:6*7)\n' >"$work/plain.html"

status=0
fail() {
  echo "--- $1"
  shift
  cat "$@"
  status=1
}

# runs the vorn in DIR on PAGE in $work; stdout to out, stderr to err
run() {
  (cd "$work" && "$1/vorn" "$2" >out 2>err) || echo "status $?" >>"$work/out"
}

# 1 hygiene
run "$work/bin" hygiene.html
expected="1 connected 1
in the interpreter's process group
descriptors: 0 1 2 3 4 
0 /dev/null 1 /dev/null
2 the error log
3 a socket
4 libpq's connection"
[ "$(cat "$work/out")" = "$expected" ] || fail "1 the helper's process" "$work/out" "$work/err"
for _ in $(seq 50); do [ -z "$(helpers)" ] && break; sleep 0.1; done
[ -z "$(helpers)" ] || fail "1 the helper outlives the page: $(helpers)" /dev/null
sanitizer_clean "$work/err" || status=1

# 2 the helper killed under the page
run "$work/bin" killed.html
expected="1 connected 1
2 after the kill: -1 ### DATABASE Query ERROR: QUERY:  select 2 ; ### ERRMSG: PostgreSQL helper vorn-pq: ended
 
3 connected again: 3"
[ "$(cat "$work/out")" = "$expected" ] || fail "2 a killed helper" "$work/out" "$work/err"
grep -q ": PostgreSQL helper vorn-pq: ended$" "$work/err" || fail "2 the log of a killed helper" "$work/err"
sanitizer_clean "$work/err" || status=1

# 3 and 4: no helper beside vorn, a helper that does not start
failed_sql="1 before the first SQL command
<CR>
<CR>
<!-- Vorn v.6.7 page interpreter -->

Usage:
	Vorn script [-Var Value [-Var2 Value2 [..]]]

ERROR: ### Cannot open database: - SQLCODE: -1
status 255"
for dir in alone broken; do
  if [ $dir = alone ]; then
    cause="is missing (install vorn-pq beside vorn): No such file or directory"
  else
    cause="did not start: broken install"
  fi
  run "$work/$dir" sql.html
  [ "$(sed 's/\r$/<CR>/' "$work/out")" = "$failed_sql" ] || fail "$dir: a SQL page" "$work/out"
  if ! grep -q ": PostgreSQL helper $work/$dir/vorn-pq $cause\$" "$work/err" ||
     [ "$(grep -c . "$work/err")" != 2 ]; then
    fail "$dir: the error log does not name the cause in one line" "$work/err"
  fi
  sanitizer_clean "$work/err" || status=1
  run "$work/$dir" plain.html
  if [ "$(cat "$work/out")" != "1 no SQL: 42" ] || [ -s "$work/err" ]; then
    fail "$dir: a page without SQL" "$work/out" "$work/err"
  fi
done
[ $status = 0 ] && echo "passed: the helper process"
exit $status
