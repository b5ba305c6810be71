#!/usr/bin/env bash
# Runs the example guestbook with a built interpreter: makes its home afresh,
# creates the SQLite database from the schema and seed, signs the guestbook
# once through the form page and prints the rendered front page.
# Usage: run-site.sh VORN HOME_DIR
set -euo pipefail
if [ $# -ne 2 ]; then
    echo "usage: $0 VORN HOME_DIR" >&2
    exit 2
fi
vorn=$(realpath "$1")
home=$2
here=$(cd "$(dirname "$0")" && pwd)
site=$here/site

# v.env as it stands, and v.config with the site root pointed at this checkout
rm -rf "$home"
mkdir -p "$home"
home=$(realpath "$home")
cp "$here/home/v.env" "$home/"
sed "s|/path/to/examples/site|$site|" "$here/home/v.config" >"$home/v.config"

# base "guestbook" with VORN_DB=sqlite (v.env) is the file guestbook.db in V_HOME
sqlite3 "$home/guestbook.db" <"$here/db/schema.sql"
sqlite3 "$home/guestbook.db" <"$here/db/seed.sql"

cd "$site"
message="<b>It's</b> live; & well."
echo "== sign.html -author Margaret -message \"$message\""
V_HOME=$home "$vorn" sign.html -author Margaret -message "$message"
echo "== index.html"
V_HOME=$home "$vorn" index.html
