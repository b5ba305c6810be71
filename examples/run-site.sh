#!/usr/bin/env bash
# Serves the example guestbook with a built interpreter under a private
# lighttpd on 127.0.0.1 (a free port): makes a fresh home with the SQLite
# database from the schema and seed, signs the guestbook once through the
# sign form (its answer: a redirect), prints the URL to open and the
# rendered front page, and serves until interrupted. With --check it stops
# after printing.
# Usage: run-site.sh VORN [--check]
set -euo pipefail
if [ $# -lt 1 ] || [ $# -gt 2 ] || { [ $# = 2 ] && [ "$2" != --check ]; }; then
    echo "usage: $0 VORN [--check]" >&2
    exit 2
fi
vorn=$(realpath "$1")
check=${2:-}
here=$(cd "$(dirname "$0")" && pwd)
source "$here/serve-example.sh"

dir=$(mktemp -d /tmp/vorn-example-XXXXXX)
trap 'example_stop; rm -rf "$dir"' EXIT
trap 'exit 130' INT TERM
example_serve lighttpd "$dir" "$vorn"

echo "The example guestbook is served by lighttpd; open"
echo "  $EXAMPLE_URL"
message="<b>It's</b> live; & well."
echo "== POST $SERVE_URL/vorn/sign.html author=Margaret message=$message"
# a signature that went in is answered with a redirect to the front page
curl -sS --fail --data-urlencode V_PAGE=sign.html --data-urlencode author=Margaret \
    --data-urlencode "message=$message" -o /dev/null \
    -w '%{response_code} Location: %header{location}\n' "$SERVE_URL/vorn/sign.html"
echo "== GET $EXAMPLE_URL"
curl -sS --fail "$EXAMPLE_URL"
[ "$check" = --check ] && exit 0

echo "Serving until Ctrl-C: pages in $EXAMPLE_SITE, home $EXAMPLE_HOME,"
echo "uploads in $EXAMPLE_TMP, server logs in $dir/server/logs (all but the pages"
echo "are removed when it stops)."
wait "${SERVE_PIDS[0]}"
