#!/usr/bin/env bash
# Vorn as a FastCGI server behind real web servers on 127.0.0.1: nginx and
# Apache httpd (mod_proxy_fcgi) with `vorn --fastcgi` on a Unix socket, and
# lighttpd starting vorn itself on a socket handed over on descriptor 0. Every request goes to both and to
# lighttpd running Vorn as CGI; status, the header lines Vorn makes and the
# body must be the same (uploads byte for byte), for the test site and the
# example guestbook.
# Usage: servers.sh VORN
set -euo pipefail
vorn=$(realpath "$1")
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../sanitizer.sh"
source "$here/../../examples/serve-example.sh"
work=$(mktemp -d /tmp/vorn-fcgi-web-XXXXXX)
trap 'serve_stop; rm -rf "$work"' EXIT
chmod 755 "$work"
servers=(lighttpd nginx-fastcgi lighttpd-fastcgi apache2-fastcgi)

fail() {
  echo "FAIL: $*"
  for log in "$work"/*/logs/*.log "$work"/*/server/logs/*.log; do
    [ -s "$log" ] && { echo "--- $log"; tail -20 "$log"; }
  done
  exit 1
}

# The test site of the CGI suite, and pages for the order of output.
mkdir -p "$work/home" "$work/tmp"
cp -r "$here/../webserver/site" "$work/site"
cat > "$work/site/order.html" <<'PAGE'
1 page
<@shell> echo 2 shell
3 page
<@fork> pid
<@if> icmp $(pid) = 0
4 child
<@quit>
<@end>
<@shell> sleep 0.2
5 page
PAGE
printf 'TMP_DIR=%s\n' "$work/tmp" > "$work/home/v.env"
serve_user
chown "$SERVE_USER:$SERVE_GROUP" "$work/tmp"
chmod -R a+rX "$work/site" "$work/home"

ports=()
for s in "${servers[@]}"; do
  serve_start "$s" "$work/$s" "$vorn" "$work/home" || fail "$s did not start"
  ports+=("$SERVE_PORT")
done
for p in "${ports[@]}"; do printf '127.0.0.1:%s %s\n' "$p" "$work/site"; done > "$work/home/v.config"
chmod 644 "$work/home/v.config"
# the FastCGI parents load the site's pages now that v.config names it
for s in "${servers[@]:1}"; do
  pid=$(pgrep -o -f "^$work/$s/cgi/vorn") || fail "$s: no vorn parent"
  kill -HUP "$pid"
done
sleep 0.3

# fetch NAME URL-PATH curl-args...: NAME.S.head (status and Vorn's header
# lines, sorted; nginx drops a line's trailing blanks) and NAME.S.body for
# each server S
fetch() {
  local name=$1 path=$2 i
  shift 2
  for i in "${!servers[@]}"; do
    local s=${servers[$i]} out=$work/$name.${servers[$i]}
    curl -sS -D "$out.raw" -o "$out.body" "$@" "http://127.0.0.1:${ports[$i]}$path" ||
      fail "$name: curl $? from $s"
    tr -d '\r' < "$out.raw" | grep -E '^(HTTP/|Content-Type:|Set-Cookie:|Location:)' |
      sed -e 's/^HTTP\/1.1 \([0-9]*\).*/\1/' -e 's/ *$//' | sort > "$out.head"
  done
}
same() {   # NAME: the FastCGI answers are the CGI answer
  local name=$1 s
  for s in "${servers[@]:1}"; do
    cmp -s "$work/$name.lighttpd.head" "$work/$name.$s.head" ||
      { diff "$work/$name.lighttpd.head" "$work/$name.$s.head" || true; fail "$name: $s header"; }
    cmp -s "$work/$name.lighttpd.body" "$work/$name.$s.body" ||
      { diff <(cat -A "$work/$name.lighttpd.body") <(cat -A "$work/$name.$s.body") || true
        fail "$name: $s body"; }
  done
}

fetch hello '/vorn/hello.html?who=Ann%20Lee+%26+co'; same hello
fetch form /vorn/form.html --data 'V_PAGE=form.html&name=J%F6rg+M%26M%3D1&note=100%25+sure&empty='
same form
fetch cookies '/vorn/cookies.html?V_ServerCOOKIES=user+gone&user=x+y&V_SessionCOOKIES=sid&sid=s/1'
same cookies
fetch getc /vorn/cookies.html -b 'user=x%20y; sid=s%2f1'; same getc
fetch option /vorn/option.html; same option
fetch missing /vorn/nothere.html; same missing
printf -- '--XX\r\nContent-Disposition: form-data; name="a"\r\n\r\nno end' > "$work/cut"
fetch cut /vorn/cut.html --data-binary "@$work/cut" -H 'Content-Type: multipart/form-data; boundary=XX'
same cut
fetch head /vorn/hello.html?who=x -I
for s in "${servers[@]}"; do : > "$work/head.$s.body"; done   # curl -I writes the header there
same head
fetch order '/vorn/order.html'; same order

# an upload of 1 MiB through each: the page names the stored file, which
# differs only in the process id, and the file is the one sent
head -c 1048576 /dev/urandom > "$work/upload.bin"
fetch upload /vorn/upload.html --form V_PAGE=upload.html --form 'title=a "quoted" title' \
  --form "file=@$work/upload.bin;filename=dir/up.bin"
for s in "${servers[@]}"; do
  stored=$(sed -n 's/^file=//p' "$work/upload.$s.body")
  case "$stored" in "$work/tmp/up.bin.."*) ;; *) fail "upload: $s stored it as '$stored'" ;; esac
  cmp -s "$work/upload.bin" "$stored" || fail "upload: $s stored file differs"
  sed -i 's/\.\.[0-9]*\./..PID./' "$work/upload.$s.body"
done
same upload

# the example guestbook: front page, a signature (a redirect), front page
for s in "${servers[@]}"; do
  example_serve "$s" "$work/example-$s" "$vorn" || fail "example under $s"
  curl -sS "$EXAMPLE_URL" -o "$work/guest1.$s" || fail "example front page under $s"
  curl -sS -D "$work/sign.$s.raw" -o "$work/sign.$s" --data-urlencode V_PAGE=sign.html \
    --data-urlencode author=Ada --data-urlencode "message=<b>bold</b> & more" \
    "$SERVE_URL/vorn/sign.html" || fail "example signature under $s"
  tr -d '\r' < "$work/sign.$s.raw" | grep -E '^(HTTP/|Location:)' | sed 's/ [A-Za-z ]*$//' \
    >> "$work/sign.$s"
  curl -sS "$EXAMPLE_URL" -o "$work/guest2.$s" || fail "example front page under $s"
  sed -i "s/$(date +%Y-%m-%d)/TODAY/g; s/127\.0\.0\.1:[0-9]*/HOST/g" "$work/guest1.$s" "$work/guest2.$s"
done
for page in guest1 sign guest2; do
  for s in "${servers[@]:1}"; do
    cmp -s "$work/$page.lighttpd" "$work/$page.$s" ||
      { diff "$work/$page.lighttpd" "$work/$page.$s" || true; fail "example $page: $s differs"; }
  done
done
grep -q 'Ada' "$work/guest2.nginx-fastcgi" || fail "example: the signature is not shown"

for log in "$work"/*/logs/*.log "$work"/*/server/logs/*.log; do
  sanitizer_clean "$log" || fail "sanitizer report in $log"
done
grep -q 'Invalid V_PAGE value: /nothere.html' "$work/nginx-fastcgi/logs/vorn.log" ||
  fail "nginx-fastcgi: no error log line for the missing page"
echo "fastcgi servers: 12 requests and the example through nginx, lighttpd and Apache checked"
