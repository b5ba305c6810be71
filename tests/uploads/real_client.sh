#!/usr/bin/env bash
# Sends forms with curl to a capture listener on 127.0.0.1, then runs the
# interpreter as a CGI program on each captured body and checks what the
# page saw, including a multi-megabyte binary upload compared byte by byte.
set -euo pipefail
vorn=$1
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../sanitizer.sh"
work=$(mktemp -d /tmp/vorn-upload-XXXXXX)
trap 'kill $server 2>/dev/null || true; rm -rf "$work"' EXIT
mkdir -p "$work/cap" "$work/home" "$work/site" "$work/tmp"

python3 "$here/capture_server.py" "$work/cap" 2 &
server=$!
for _ in $(seq 100); do [ -f "$work/cap/port" ] && break; sleep 0.1; done
port=$(cat "$work/cap/port")

head -c 3145728 /dev/urandom > "$work/big.bin"
printf 'line one\r\nline two\n\0zero\r' > "$work/small.txt"
curl -sS -o /dev/null --form 'title=Hello world' --form 'note=a&b=c' \
     --form "big=@$work/big.bin;filename=C:\\Users\\me\\big.bin" \
     --form "small=@$work/small.txt;filename=../../etc/small.txt" \
     "http://127.0.0.1:$port/upload"
curl -sS -o /dev/null --form 'title=only fields' --form 'empty=' "http://127.0.0.1:$port/"
wait $server

# a POST names no page: the site's default page v.page runs
cat > "$work/site/v.page" <<'PAGE'
title=$(title)
note=$(note)
empty=[$(empty)]
big=$(big)
small=$(small)
PAGE
printf 'localhost:80 %s\n' "$work/site" > "$work/home/v.config"

run() {   # body number -> page output without the header block
  local n=$1 rc=0
  (cd "$work/site" && env -i PATH="$PATH" V_HOME="$work/home" TMP_DIR="$work/tmp" \
      REQUEST_METHOD=POST HTTP_HOST=localhost CONTENT_TYPE="$(cat "$work/cap/$n.type")" \
      CONTENT_LENGTH="$(stat -c %s "$work/cap/$n.body")" "${sanitizer_settings[@]}" \
      "$vorn" < "$work/cap/$n.body") > "$work/out.$n" 2> "$work/err.$n" || rc=$?
  sanitizer_clean "$work/err.$n" || fail "sanitizer report for form $n"
  [ $rc -eq 0 ] || { cat "$work/err.$n"; fail "exit status $rc for form $n"; }
}
fail() { echo "FAIL: $*"; echo "--- output"; cat "$work/out.0" "$work/out.1" 2>/dev/null; exit 1; }

run 0
grep -qx 'title=Hello world' "$work/out.0" || fail "title field"
grep -qx 'note=a&b=c' "$work/out.0" || fail "field with & and ="
big=$(sed -n 's/^big=//p' "$work/out.0")
small=$(sed -n 's/^small=//p' "$work/out.0")
case "$big" in "$work/tmp/big.bin.."*) ;; *) fail "upload path $big";; esac
case "$small" in "$work/tmp/small.txt.."*) ;; *) fail "stripped path $small";; esac
cmp "$big" "$work/big.bin" || fail "big upload differs"
cmp "$small" "$work/small.txt" || fail "small upload differs"
[ "$(ls "$work/tmp" | grep -c '\.\.')" -eq 2 ] || fail "files outside the expected set"

run 1
grep -qx 'title=only fields' "$work/out.1" || fail "second form"
grep -qx 'empty=\[\]' "$work/out.1" || fail "empty field"
echo "real-client uploads: 2 forms checked"
