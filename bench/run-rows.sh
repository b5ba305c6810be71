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

times=""
i=0
while [ "$i" -lt "$runs" ]; do
    start=$(date +%s%N)
    (cd "$here" && VORN_DB=sqlite V_HOME=$work/home TMP_DIR=$work/tmp "$vorn" rows.html >"$work/out")
    end=$(date +%s%N)
    if [ "$(tail -n 1 "$work/out")" != "rows: 100000" ]; then
        echo "run-rows.sh: unexpected output, last line: $(tail -n 1 "$work/out")" >&2
        exit 1
    fi
    times="$times $(( (end - start) / 1000000 ))"
    i=$((i + 1))
done

sorted=$(for t in $times; do echo "$t"; done | sort -n)
median=$(echo "$sorted" | sed -n "$(( (runs + 1) / 2 ))p")
echo "runs (ms):$(echo $sorted | sed 's/^/ /')"
echo "median: $median ms for 100000 rows"
