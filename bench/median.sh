# Shared by the benchmark scripts: runs one page as a whole process several
# times, checks its last output line, and prints the runs and their median.
# Usage (sourced): time_page SCRIPT VORN RUNS WORK PAGE LAST_LINE WHAT [VAR=value ...]
time_page() {
    local script=$1 vorn=$2 runs=$3 work=$4 page=$5 last=$6 what=$7
    shift 7
    local times="" i=0 start end
    while [ "$i" -lt "$runs" ]; do
        start=$(date +%s%N)
        (cd "$here" && env "$@" V_HOME="$work/home" TMP_DIR="$work/tmp" "$vorn" "$page" >"$work/out")
        end=$(date +%s%N)
        if [ "$(tail -n 1 "$work/out")" != "$last" ]; then
            echo "$script: unexpected output, last line: $(tail -n 1 "$work/out")" >&2
            exit 1
        fi
        times="$times $(( (end - start) / 1000000 ))"
        i=$((i + 1))
    done
    local sorted median
    sorted=$(for t in $times; do echo "$t"; done | sort -n)
    median=$(echo "$sorted" | sed -n "$(( (runs + 1) / 2 ))p")
    echo "runs (ms):$(echo $sorted | sed 's/^/ /')"
    echo "median: $median ms for $what"
}
