#!/bin/sh
# Loop benchmark: runs the interpreter on bench/loop.html as a whole process
# several times and prints the median wall time.
# Usage: bench/run.sh [path/to/vorn] [runs]   (defaults: build/vorn, 7 runs)
set -eu

here=$(cd "$(dirname "$0")" && pwd)
vorn=${1:-$here/../build/vorn}
runs=${2:-7}
case $vorn in /*) ;; *) vorn=$(pwd)/$vorn ;; esac
if [ ! -x "$vorn" ]; then
    echo "run.sh: no interpreter at $vorn (build it, or pass its path)" >&2
    exit 2
fi

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir "$work/home" "$work/tmp"

. "$here/median.sh"
time_page run.sh "$vorn" "$runs" "$work" loop.html "passes: 100001" "100000 passes"
