#!/bin/sh
# Rows benchmark: fills a SQLite table with 100000 rows once, then runs the
# interpreter on bench/rows.html as a whole process several times and prints
# the median wall time.
# Usage: bench/run-rows.sh [path/to/vorn] [runs]   (defaults: build/vorn, 7 runs)
set -eu

here=$(cd "$(dirname "$0")" && pwd)
vorn=${1:-$here/../build/vorn}
runs=${2:-7}
case $vorn in /*) ;; *) vorn=$(pwd)/$vorn ;; esac
if [ ! -x "$vorn" ]; then
    echo "run-rows.sh: no interpreter at $vorn (build it, or pass its path)" >&2
    exit 2
fi
if ! command -v sqlite3 >/dev/null; then
    echo "run-rows.sh: the sqlite3 shell is needed to fill the table" >&2
    exit 2
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir "$work/home" "$work/tmp"
# the default base "Vorn" is the file Vorn.db in V_HOME
sqlite3 "$work/home/Vorn.db" <<'SQL'
create table items (id integer primary key, name varchar(30), price real, added varchar(10));
with recursive n(i) as (select 1 union all select i + 1 from n where i < 100000)
insert into items select i, 'item number ' || i, i * 0.25, '2024-01-' || printf('%02d', i % 28 + 1) from n;
SQL

. "$here/median.sh"
time_page run-rows.sh "$vorn" "$runs" "$work" rows.html "rows: 100000" "100000 rows" VORN_DB=sqlite
