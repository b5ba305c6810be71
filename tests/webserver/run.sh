#!/usr/bin/env bash
# Runs the interpreter as a CGI program under lighttpd on 127.0.0.1 and
# checks what curl gets back: GET, HEAD, url-encoded and multipart POST,
# cookies both ways, and error pages, each as real HTTP responses.
set -euo pipefail
vorn=$1
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../sanitizer.sh"
work=$(mktemp -d /tmp/vorn-web-XXXXXX)
server=
trap '[ -n "$server" ] && kill "$server" 2>/dev/null && wait "$server" 2>/dev/null; rm -rf "$work"' EXIT
chmod 755 "$work"
mkdir -p "$work/home" "$work/cgi" "$work/tmp" "$work/www"
chmod 1777 "$work/tmp"
cp -r "$here/site" "$work/site"
cp "$vorn" "$work/cgi/vorn"      # the build tree need not be readable by the server's user
chmod -R a+rX "$work/site" "$work/cgi"

port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')
printf '127.0.0.1:%s %s\n' "$port" "$work/site" > "$work/home/v.config"
printf 'TMP_DIR=%s\n' "$work/tmp" > "$work/home/v.env"
chmod 644 "$work/home/"*

user_lines=
if [ "$(id -u)" = 0 ]; then   # lighttpd will not keep running as root
  user_lines='server.username = "nobody"
server.groupname = "nogroup"'
fi
cat > "$work/lighttpd.conf" <<CONF
server.modules = ("mod_alias", "mod_setenv", "mod_cgi")
server.bind = "127.0.0.1"
server.port = $port
server.document-root = "$work/www"
server.errorlog = "$work/error.log"
server.breakagelog = "$work/cgi.log"
# let encoded control bytes through to the program, as other servers do, so
# that the interpreter's own guard against header injection is what is tested
server.http-parseopts = ("url-ctrls-reject" => "disable")
$user_lines
alias.url = ("/vorn" => "$work/cgi/vorn")
\$HTTP["url"] =~ "^/vorn" { cgi.assign = ("" => "") }
setenv.add-environment = ("V_HOME" => "$work/home", "ASAN_OPTIONS" => "${ASAN_OPTIONS:-}",
                          "UBSAN_OPTIONS" => "${UBSAN_OPTIONS:-}",
                          "LSAN_OPTIONS" => "${LSAN_OPTIONS:-}")
CONF
touch "$work/error.log" "$work/cgi.log"
chmod 666 "$work/error.log" "$work/cgi.log"

fail() {
  echo "FAIL: $*"
  echo "--- server log"; cat "$work/error.log" "$work/cgi.log"
  exit 1
}
lighttpd -D -f "$work/lighttpd.conf" &
server=$!
for _ in $(seq 100); do
  curl -s -o /dev/null "http://127.0.0.1:$port/" && break
  kill -0 "$server" 2>/dev/null || fail "lighttpd did not start"
  sleep 0.1
done
base=http://127.0.0.1:$port/vorn
html="Content-Type: text/html"

get() {   # name curl-args... -> $work/name.head (without CRs) and $work/name.body
  local name=$1; shift
  curl -sS -D "$work/$name.raw" -o "$work/$name.body" "$@" || fail "$name: curl $?"
  tr -d '\r' < "$work/$name.raw" > "$work/$name.head"
}
headers() {   # name status header-lines...: each line must be in the response as it stands
  local name=$1 status=$2; shift 2
  grep -q "^HTTP/1.1 $status " "$work/$name.head" || fail "$name: status, got $(head -1 "$work/$name.head")"
  for line in "$@"; do
    grep -Fxq -- "$line" "$work/$name.head" || { cat "$work/$name.head"; fail "$name: no header line '$line'"; }
  done
}
body() {   # name printf-format args...: the body after the banner
  local name=$1 fmt=$2; shift 2
  printf "\r\n<!-- Vorn v.6.7 page interpreter -->\n\n$fmt" "$@" > "$work/$name.want"
  cmp -s "$work/$name.want" "$work/$name.body" ||
    { diff <(cat -A "$work/$name.want") <(cat -A "$work/$name.body") || true; fail "$name: body"; }
}

# 1. a GET whose query string names the page and carries a value
get hello "$base?V_PAGE=hello.html&who=Ann%20Lee+%26+co"
headers hello 200 "$html"
body hello 'hello Ann Lee & co\n'

# 2. a url-encoded POST; the page comes from the body, not the path
get form --data 'V_PAGE=form.html&name=J%F6rg+M%26M%3D1&note=100%25+sure&empty=' "$base"
headers form 200 "$html"
body form 'name=[J&ouml;rg M&M=1] note=[100%% sure] empty=[]\n'

# 3. a multipart POST with a binary upload, stored under TMP_DIR
head -c 1048576 /dev/urandom > "$work/upload.bin"
get upload --form V_PAGE=upload.html --form 'title=a "quoted" title' \
    --form "file=@$work/upload.bin;filename=dir/up.bin" "$base"
headers upload 200 "$html"
stored=$(sed -n 's/^file=//p' "$work/upload.body")
case "$stored" in "$work/tmp/up.bin.."*) ;; *) fail "upload: stored as '$stored'";; esac
body upload 'title=a "quoted" title\nfile=%s\n' "$stored"
cmp "$work/upload.bin" "$stored" || fail "upload: stored file differs"
rm -f "$stored"

# 4. cookies: the lists of the request become Set-Cookie lines, and the
# client's cookie jar sends back what it kept (the deleted one it drops); a
# name with CR LF in it is dropped instead of adding a header of its own
get setc -c "$work/jar" "$base/cookies.html?V_ServerCOOKIES=user+gone&user=x+y&V_SessionCOOKIES=sid+z%0D%0ALocation:http://evil.example/&sid=s/1"
headers setc 200 "$html" \
  'Set-Cookie: user=x%20y; path=/; expires=31-Dec-2037 23:55:00 GMT ' \
  'Set-Cookie: gone=NULL; path=/; expires=Wednesday, 21-Aug-1996 01:21:36 GMT ' \
  'Set-Cookie: sid=s%2f1; path=/; '
[ "$(grep -c '^Set-Cookie:' "$work/setc.head")" = 3 ] || fail "setc: Set-Cookie count"
grep -qi '^Location:' "$work/setc.head" && fail "setc: a request value added a header"
body setc 'user=[] sid=[] gone=[]\n'
get getc -b "$work/jar" "$base/cookies.html"
grep -q '^Set-Cookie' "$work/getc.head" && fail "getc: cookies set without the lists"
headers getc 200 "$html"
body getc 'user=[x y] sid=[s/1] gone=[]\n'

# 5. errors reach the client as a well-formed page
get option "$base?V_PAGE=option.html"
headers option 200 "$html"
body option 'before\n</table></table></table><hr><h3><pre>\n Unknown option:  nosuch \n</pre></h3><hr>'
get missing "$base?V_PAGE=nothere.html"
headers missing 404 "$html"
body missing '</table></table></table><hr><h3><pre>\n Invalid V_PAGE value: nothere.html \n \n</pre></h3><hr>'
# A body cut before its closing boundary fails in the decoder: the error
# still comes back as a page with its Content-Type, and the status 500.
printf -- '--XX\r\nContent-Disposition: form-data; name="a"\r\n\r\nno end' > "$work/cut"
get cut --data-binary "@$work/cut" -H 'Content-Type: multipart/form-data; boundary=XX' "$base"
headers cut 500 "$html"
body cut '</table></table></table><hr><h3><pre>\n Broken Input... \n</pre></h3><hr>'

# 6. HEAD gets the header block of the GET; a missing page 404
get head -I "$base/hello.html?who=x"
headers head 200 "$html"
get headmissing -I "$base/nothere.html"
headers headmissing 404 "$html"

# the interpreter's stderr goes to the breakage log, one line per error
sanitizer_clean "$work/cgi.log" || fail "sanitizer report from the CGI process"
grep -q 'vorn\[[0-9]*\]: Invalid V_PAGE value: nothere.html' "$work/cgi.log" ||
  fail "no error log line for the missing page"
echo "webserver: 11 requests through lighttpd checked"
