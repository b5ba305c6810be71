#!/usr/bin/env bash
# Compares Vorn with the floor (a static C hello CGI) and with php-cgi on the
# same pages, each run as a CGI GET request whose output is read through a
# pipe: a small page (10 lines, 3 query values), an include-heavy page (20
# parts), a 1 MB static page, the loop page and the rows page (100,000
# SQLite rows). Prints per page the medians of CPU and wall time, the ratios
# Vorn/C and Vorn/php-cgi, and each program's peak memory; after the table,
# the same hello linked dynamically (libc, libm): what the loader alone costs.
#
# Usage: bench/compare.sh [--vorn PATH] [--quick] [--markdown] [--pages a,b]
#   --vorn PATH   time this binary instead of building build-bench/ (Release)
#   --quick       7 runs of the light pages and 3 of the heavy ones (not 21/7)
#   --markdown    print the table as Markdown (the README's Speed section)
#   --pages LIST  only these pages: small, include, "static 1 MB", loop, rows
# Installs what it needs with apt-get when missing (as root).
set -euo pipefail

here=$(cd "$(dirname "$0")" && pwd)
root=$(cd "$here/.." && pwd)
vorn=""
light=21
heavy=7
extra=()
while [ $# -gt 0 ]; do
  case $1 in
  --vorn) vorn=$2; shift 2 ;;
  --quick) light=7; heavy=3; shift ;;
  --markdown) extra+=(--markdown); shift ;;
  --pages) extra+=(--pages "$2"); shift 2 ;;
  *) sed -n '2,/^set /p' "$0" | sed '$d; s/^# \{0,1\}//' >&2; exit 2 ;;
  esac
done

# what the run needs beyond the build: php-cgi with SQLite, the sqlite3
# shell for the table, a static C library for the hello program
bash "$root/scripts/install-deps.sh" --only php8.2-cgi php8.2-sqlite3 sqlite3 gcc libc6-dev python3
php=$(command -v php-cgi8.2 || command -v php-cgi)

if [ -z "$vorn" ]; then
  bash "$root/scripts/install-deps.sh"
  echo "compare.sh: building Vorn (Release) in build-bench/" >&2
  cmake -S "$root" -B "$root/build-bench" -DCMAKE_BUILD_TYPE=Release -DVORN_TESTS=OFF >/dev/null
  cmake --build "$root/build-bench" -j2 --target vorn >/dev/null
  vorn=$root/build-bench/vorn
fi
case $vorn in /*) ;; *) vorn=$(pwd)/$vorn ;; esac
if [ ! -x "$vorn" ]; then
  echo "compare.sh: no interpreter at $vorn" >&2
  exit 2
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir -p "$work/site/inc" "$work/home" "$work/tmp"
gcc -O2 -static -o "$work/hello" "$here/hello.c"
gcc -O2 -o "$work/hello-dynamic" "$here/hello.c" -Wl,--no-as-needed -lm
gcc -O2 -static -o "$work/spawn" "$here/spawn.c"

# the pages, and what is made at run time: the include parts, the static page
cp "$here"/{small,include,loop,rows}.{html,php} "$work/site/"
for i in $(seq -w 1 20); do
  printf '<div class="part">\n<h2>Part %s of $(title)</h2>\n<p>Some text of part %s.</p>\n<@parts>+= 1\n</div>\n' \
    "$i" "$i" > "$work/site/inc/$i.html"
  printf '<div class="part">\n<h2>Part %s of <?= $title ?></h2>\n<p>Some text of part %s.</p>\n<?php $parts += 1; ?>\n</div>\n' \
    "$i" "$i" > "$work/site/inc/$i.php"
done
awk 'BEGIN {
  print "<!DOCTYPE html>\n<html>\n<body>"
  for (i = 1; i <= 13000; i++)
    printf "<p class=\"line\">Line %06d of the static page, plain text and markup.</p>\n", i
  print "</body>\n</html>\n<!-- static end -->"
}' > "$work/site/static.html"
cp "$work/site/static.html" "$work/site/static.php"

printf 'bench:80 %s\n' "$work/site" > "$work/home/v.config"
printf 'TMP_DIR=%s\nVORN_DB=sqlite\n' "$work/tmp" > "$work/home/v.env"
# the default base "Vorn" is the file Vorn.db in V_HOME; php reads the same
sqlite3 "$work/home/Vorn.db" <<'SQL'
create table items (id integer primary key, name varchar(30), price real, added varchar(10));
with recursive n(i) as (select 1 union all select i + 1 from n where i < 100000)
insert into items select i, 'item number ' || i, i * 0.25, '2024-01-' || printf('%02d', i % 28 + 1) from n;
SQL

python3 "$here/cgi_bench.py" --work "$work" --vorn "$vorn" --hello "$work/hello" --php "$php" \
  --spawn "$work/spawn" --hello-dynamic "$work/hello-dynamic" --light-runs "$light" --heavy-runs "$heavy" "${extra[@]}"
