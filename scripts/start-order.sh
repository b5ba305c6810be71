#!/usr/bin/env bash
# Writes src/driver/start_up.order, the order in which the static link lays
# out the functions and variables a small page uses. Scattered over two
# megabytes of code, the functions cost a CGI request some twenty page
# faults, each of which maps up to sixteen pages of the binary that the exit
# unmaps again; together they fit a few pages. So do the variables, glibc's
# among them, that lie on a dozen pages of the data areas otherwise.
# The functions are what callgrind sees a release build run for a small GET
# page (under valgrind glibc picks other variants of the string functions:
# the ones it picks here, read from the resolved slots under gdb, stand for
# them), after the resolvers of the indirect functions, which every start
# runs; the variables are what lackey sees the same run touch, smallest
# first, so that the large buffers touched only at their start come last.
# A name missing from the list only costs speed; run this after larger
# changes to the start-up path.
#
# Usage: scripts/start-order.sh [VORN]   (default: build-rel/vorn, Release)
# Needs valgrind and gdb.
set -euo pipefail

root=$(cd "$(dirname "$0")/.." && pwd)
vorn=${1:-$root/build-rel/vorn}
case $vorn in /*) ;; *) vorn=$(pwd)/$vorn ;; esac
if [ ! -x "$vorn" ]; then
  echo "start-order.sh: no interpreter at $vorn (build-rel/ is the Release tree)" >&2
  exit 2
fi
for tool in valgrind gdb; do
  command -v $tool >/dev/null || { echo "start-order.sh: needs $tool" >&2; exit 2; }
done

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir -p "$work/home" "$work/site" "$work/tmp"
cp "$root/bench/small.html" "$work/site/"
printf 'bench:80 %s\n' "$work/site" > "$work/home/v.config"
printf 'TMP_DIR=%s\nVORN_DB=sqlite\n' "$work/tmp" > "$work/home/v.env"

env -i REQUEST_METHOD=GET QUERY_STRING='name=Ada&colour=blue&count=3' GATEWAY_INTERFACE=CGI/1.1 \
  SERVER_PROTOCOL=HTTP/1.1 SERVER_NAME=bench SERVER_PORT=80 SCRIPT_NAME=/vorn \
  PATH_INFO=/small.html V_HOME="$work/home" \
  valgrind -q --tool=callgrind --demangle=no --callgrind-out-file="$work/cg.out" "$vorn" >/dev/null
env -i REQUEST_METHOD=GET QUERY_STRING='name=Ada&colour=blue&count=3' GATEWAY_INTERFACE=CGI/1.1 \
  SERVER_PROTOCOL=HTTP/1.1 SERVER_NAME=bench SERVER_PORT=80 SCRIPT_NAME=/vorn \
  PATH_INFO=/small.html V_HOME="$work/home" \
  valgrind -q --tool=lackey --trace-mem=yes --log-file="$work/mem.out" "$vorn" >/dev/null

# the functions the indirect ones resolve to on this machine: the slots of
# the IRELATIVE relocations, read at main
readelf -rW "$vorn" | awk '/IRELATIV/ { print "x/gx 0x" $1 }' > "$work/slots.gdb"
gdb -q -batch -ex 'break main' -ex run -x "$work/slots.gdb" "$vorn" </dev/null 2>/dev/null |
  awk '/^0x[0-9a-f]+.*:/ { print $NF }' > "$work/resolved.txt"

python3 - "$vorn" "$work/cg.out" "$work/mem.out" "$work/resolved.txt" "$root/src/driver/start_up.order" <<'EOF'
import bisect
import re, subprocess, sys

vorn, profile, trace, resolved_list, out = sys.argv[1:]
functions = {}   # address -> names
names = set()
for line in subprocess.run(['nm', '-n', vorn], capture_output=True, text=True).stdout.splitlines():
    parts = line.split()
    if len(parts) == 3:
        names.add(parts[2])
        if parts[1] in 'TtWwi':
            functions.setdefault(int(parts[0], 16), []).append(parts[2])

order = []
def add(name):
    if name in names and name not in order:
        order.append(name)

# First of all SQLite's formatting code (its printf object, one section):
# its loop that turns a REAL into digits runs x87 instructions whose speed
# depends on where the loop falls in a 64-byte line, and a rows page spent
# three times as long in it after an unrelated change moved it. At the
# start of .text, whose start is 64-byte aligned, it always falls alike.
add('sqlite3_str_vappendf')

# the resolvers: the addends of the IRELATIVE relocations
relocs = subprocess.run(['readelf', '-rW', vorn], capture_output=True, text=True).stdout
for line in relocs.splitlines():
    if 'IRELATIV' in line:
        for name in functions.get(int(line.split()[-1], 16), []):
            add(name)

# A variant of a string function that valgrind ran stands for the one this
# machine's glibc picks: the same family among the resolved functions.
resolved = set()
with open(resolved_list) as f:
    for word in f.read().split():
        for name in functions.get(int(word, 16), []):
            resolved.add(name)
variant = re.compile(r'^(__\w+?)_(sse2|ssse3|sse4_1|sse42|avx|avx2|evex|avx512)')
with open(profile) as f:
    for line in f:
        m = re.match(r"^c?fn=\(\d+\) (\S+)", line)
        if not m:
            continue
        name = re.sub(r"'\d+$", '', m.group(1))
        v = variant.match(name)
        family = sorted(n for n in resolved if v and n.startswith(v.group(1) + '_'))
        for chosen in family or [name]:
            add(chosen)

# the variables: every object of the data areas the run reads or writes,
# but for the block of pages that has an area of its own (.lbss)
variables = []
for line in subprocess.run(['nm', '-S', '-n', vorn], capture_output=True, text=True).stdout.splitlines():
    parts = line.split()
    if len(parts) == 4 and parts[2] in 'dDbBrRvVu':
        variables.append((int(parts[0], 16), int(parts[1], 16), parts[3]))
variables.sort()
starts = [v[0] for v in variables]
lbss = (0, 0)
for line in subprocess.run(['readelf', '-SW', vorn], capture_output=True, text=True).stdout.splitlines():
    parts = line.replace('[ ', '[').split()
    if len(parts) > 5 and parts[1].startswith('.lbss'):
        lbss = (int(parts[3], 16), int(parts[3], 16) + int(parts[5], 16))
touched = {}
with open(trace) as f:
    for line in f:
        if len(line) < 4 or line[0] != ' ' or line[1] not in 'LSM':
            continue
        at = int(line[3:].split(',')[0], 16)
        i = bisect.bisect_right(starts, at) - 1
        if i >= 0 and at < variables[i][0] + max(variables[i][1], 1) and not lbss[0] <= at < lbss[1]:
            touched[variables[i][2]] = variables[i][1]
for name in sorted(touched, key=lambda n: (touched[n], n)):
    add(name)

with open(out, 'w') as f:
    f.write(''.join(n + '\n' for n in order))
print(f'start-order.sh: {len(order)} functions and variables in {out}')
EOF
