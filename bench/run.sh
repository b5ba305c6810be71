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

times=""
i=0
while [ "$i" -lt "$runs" ]; do
    start=$(date +%s%N)
    (cd "$here" && V_HOME=$work/home TMP_DIR=$work/tmp "$vorn" loop.html >"$work/out")
    end=$(date +%s%N)
    if [ "$(tail -n 1 "$work/out")" != "passes: 100001" ]; then
        echo "run.sh: unexpected output, last line: $(tail -n 1 "$work/out")" >&2
        exit 1
    fi
    times="$times $(( (end - start) / 1000000 ))"
    i=$((i + 1))
done

sorted=$(for t in $times; do echo "$t"; done | sort -n)
median=$(echo "$sorted" | sed -n "$(( (runs + 1) / 2 ))p")
echo "runs (ms):$(echo $sorted | sed 's/^/ /')"
echo "median: $median ms for 100000 passes"
