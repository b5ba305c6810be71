#!/usr/bin/env bash
# Serves the example guestbook under lighttpd, Apache httpd (mod_cgi) and
# nginx with fcgiwrap in turn, each on 127.0.0.1, walks headless Chromium
# through it (guestbook.mjs) and looks for Vorn's line in the error log. playwright-core is installed with npm into OUT,
# where failed steps leave their screenshots (OUT/screenshots).
# Usage: run.sh VORN OUT [SERVER...]
set -euo pipefail
vorn=$(realpath "$1")
out=$2
shift 2
servers=("$@")
[ ${#servers[@]} -gt 0 ] || servers=(lighttpd apache2 nginx)
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../../examples/serve-example.sh"

for tool in node npm /usr/bin/chromium; do
    command -v "$tool" >/dev/null || { echo "browser: $tool is missing (scripts/install-deps.sh --test)"; exit 1; }
done
mkdir -p "$out"
out=$(realpath "$out")
cp "$here/package.json" "$here/package-lock.json" "$here/guestbook.mjs" "$out/"
if ! cmp -s "$out/package-lock.json" "$out/node_modules/.installed-lock.json"; then
    (cd "$out" && npm ci --no-audit --no-fund --loglevel=error) || exit 1
    cp "$out/package-lock.json" "$out/node_modules/.installed-lock.json"
fi
rm -rf "$out/screenshots"
mkdir -p "$out/screenshots"

work=$(mktemp -d /tmp/vorn-browser-XXXXXX)
chmod 755 "$work"   # the servers' user goes through it
trap 'example_stop; rm -rf "$work"' EXIT
status=0
for server in "${servers[@]}"; do
    example_serve "$server" "$work/$server" "$vorn" || { status=1; continue; }
    mkdir -p "$work/$server/profile"
    if ! VORN_URL=$EXAMPLE_URL VORN_TMP=$EXAMPLE_TMP VORN_SERVER=$server \
         VORN_SHOTS=$out/screenshots VORN_PROFILE=$work/$server/profile \
         node "$out/guestbook.mjs"; then
        status=1
        echo "--- $server logs"
        cat "$work/$server/server/logs/"*.log
    fi
    example_stop
    if grep -E 'AddressSanitizer|runtime error' "$work/$server/server/logs/"*.log; then
        echo "FAIL $server: sanitizer report from the CGI process"
        status=1
    fi
    # the missing page's error reached the server's error log as one line
    if ! grep -q 'vorn\[[0-9]*\]: Invalid V_PAGE value: /nothere\.html' \
            "$work/$server/server/logs/"*.log; then
        echo "FAIL $server: no error-log line for the missing page"
        status=1
    fi
done
exit $status
