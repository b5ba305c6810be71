#!/usr/bin/env bash
# FastCGI benchmark: requests per second through one nginx on 127.0.0.1 for
# Vorn as CGI (fcgiwrap), Vorn as a FastCGI server and php-fpm, on two pages
# written for each: a small page (ten lines, three query values) and a rows
# page (100 rows of a 100,000-row SQLite table per request). ab runs each
# (page, concurrency, server) ROUNDS times, the servers taking turns, each
# run bounded by REQUESTS requests and SECONDS seconds; the median is shown.
# Beside them, on the small page, the floor of a server that forks for every
# request (bench/fork_floor.c: fork, a fixed answer, exit): what a fresh
# process per request can reach on this machine at best.
# Installs php8.2-fpm, php8.2-sqlite3, nginx, fcgiwrap and ab when missing
# (as root).
# Usage: bench/fastcgi.sh [path/to/vorn] [ROUNDS] [REQUESTS] [SECONDS]
#        (defaults: build/vorn, 3 rounds, 2000 requests, 10 seconds)
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
vorn=$(realpath "${1:-$here/../build/vorn}")
rounds=${2:-3}
requests=${3:-2000}
seconds=${4:-10}
children=8   # Vorn's connection processes and php-fpm's workers alike

bash "$here/../scripts/install-deps.sh" --only php8.2-fpm php8.2-sqlite3 php8.2-opcache nginx fcgiwrap \
  apache2-utils sqlite3 gcc libc6-dev

user=$(id -un) group=$(id -gn)
[ "$(id -u)" = 0 ] && user=www-data group=www-data
as_user=()
[ "$(id -u)" = 0 ] && as_user=(setpriv --reuid="$user" --regid="$group" --init-groups)

work=$(mktemp -d /tmp/vorn-bench-fcgi-XXXXXX)
pids=()
groups=()
stop() {
  for pid in "${groups[@]}"; do kill -- "-$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do kill "$pid" 2>/dev/null || true; done
  for pid in "${pids[@]}"; do wait "$pid" 2>/dev/null || true; done
  rm -rf "$work"
}
trap stop EXIT
chmod 755 "$work"
mkdir -p "$work"/{site,home,tmp,run,logs,php}
install -m 755 "$vorn" "$work/vorn"
gcc -O2 -static -o "$work/fork_floor" "$here/fork_floor.c"
port=$(python3 -c 'import socket; s=socket.socket(); s.bind(("127.0.0.1",0)); print(s.getsockname()[1])')

cat > "$work/site/small.html" <<'PAGE'
<html><head><title>$(title)</title></head>
<body>
<h1>Hello, $(name)</h1>
<p>You asked for item $(item).</p>
<ul>
<li>name: $(name)</li>
<li>item: $(item)</li>
</ul>
<p>$(title) ends here.</p>
</body></html>
PAGE
cat > "$work/php/small.php" <<'PAGE'
<html><head><title><?= $_GET['title'] ?? '' ?></title></head>
<body>
<h1>Hello, <?= $_GET['name'] ?? '' ?></h1>
<p>You asked for item <?= $_GET['item'] ?? '' ?>.</p>
<ul>
<li>name: <?= $_GET['name'] ?? '' ?></li>
<li>item: <?= $_GET['item'] ?? '' ?></li>
</ul>
<p><?= $_GET['title'] ?? '' ?> ends here.</p>
</body></html>
PAGE
cat > "$work/site/rows.html" <<'PAGE'
<table>
<@sql> select id, name, price, added from items where id between 5001 and 5100 order by id
<tr><td>$(id)</td><td>$(name)</td><td>$(price)</td><td>$(added)</td></tr>
<@end>
</table>
rows: $(V_ROWS)
PAGE
cat > "$work/php/rows.php" <<PAGE
<table>
<?php
\$db = new PDO('sqlite:$work/home/Vorn.db');
\$n = 0;
foreach (\$db->query('select id, name, price, added from items where id between 5001 and 5100 order by id') as \$r) {
    echo "<tr><td>{\$r['id']}</td><td>{\$r['name']}</td><td>{\$r['price']}</td><td>{\$r['added']}</td></tr>\n";
    \$n++;
}
?>
</table>
rows: <?= \$n ?>

PAGE
sqlite3 "$work/home/Vorn.db" <<'SQL'
create table items (id integer primary key, name varchar(30), price real, added varchar(10));
with recursive n(i) as (select 1 union all select i + 1 from n where i < 100000)
insert into items select i, 'item number ' || i, i * 0.25, '2024-01-' || printf('%02d', i % 28 + 1) from n;
SQL
printf 'TMP_DIR=%s\n' "$work/tmp" > "$work/home/v.env"
printf '127.0.0.1:%s %s\n' "$port" "$work/site" > "$work/home/v.config"
chown -R "$user:$group" "$work/tmp" "$work/run" "$work/logs" "$work/home"
chmod -R a+rX "$work/site" "$work/php" "$work/home"

# Vorn as CGI through fcgiwrap, and as its own FastCGI server
setsid env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin V_HOME="$work/home" "${as_user[@]}" \
  fcgiwrap -f -c "$children" -s "unix:$work/run/fcgiwrap.sock" 2>>"$work/logs/fcgiwrap.log" &
pids+=($!)
groups+=($!)   # its workers outlive their parent
env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin V_HOME="$work/home" "${as_user[@]}" \
  "$work/vorn" --fastcgi "$work/run/vorn.sock" --children "$children" 2>>"$work/logs/vorn.log" &
pids+=($!)
cat > "$work/php-fpm.conf" <<CONF
[global]
pid = $work/run/php-fpm.pid
error_log = $work/logs/php-fpm.log
daemonize = no
[bench]
user = $user
group = $group
listen = $work/run/php.sock
listen.owner = $user
listen.group = $group
pm = static
pm.max_children = $children
CONF
php-fpm8.2 -F -y "$work/php-fpm.conf" 2>>"$work/logs/php-fpm.log" &
pids+=($!)
setsid "${as_user[@]}" "$work/fork_floor" "$work/run/floor.sock" "$children" &
pids+=($!)
groups+=($!)
# Debian's fastcgi_params sends the Host header without its port, which
# v.config's key needs: the parameters are listed here instead.
cat > "$work/params.conf" <<'CONF'
fastcgi_param QUERY_STRING $query_string;
fastcgi_param REQUEST_METHOD $request_method;
fastcgi_param CONTENT_TYPE $content_type;
fastcgi_param CONTENT_LENGTH $content_length;
fastcgi_param SCRIPT_NAME $fastcgi_script_name;
fastcgi_param REQUEST_URI $request_uri;
fastcgi_param SERVER_PROTOCOL $server_protocol;
fastcgi_param GATEWAY_INTERFACE CGI/1.1;
fastcgi_param SERVER_SOFTWARE nginx;
fastcgi_param REMOTE_ADDR $remote_addr;
fastcgi_param SERVER_ADDR $server_addr;
fastcgi_param SERVER_PORT $server_port;
fastcgi_param SERVER_NAME $server_name;
fastcgi_param HTTP_HOST $http_host;
fastcgi_param REDIRECT_STATUS 200;
CONF
cat > "$work/nginx.conf" <<CONF
worker_processes 1;
pid $work/run/nginx.pid;
error_log $work/logs/error.log;
user $user $group;
events { worker_connections 256; }
http {
    access_log off;
    client_body_temp_path $work/run/body;
    fastcgi_temp_path $work/run/fastcgi;
    proxy_temp_path $work/run/proxy;
    uwsgi_temp_path $work/run/uwsgi;
    scgi_temp_path $work/run/scgi;
    server {
        listen 127.0.0.1:$port;
        location /cgi/ {
            fastcgi_split_path_info ^(/cgi)(/.+)\$;
            include $work/params.conf;
            fastcgi_param PATH_INFO \$fastcgi_path_info;
            fastcgi_param SCRIPT_FILENAME $work/vorn;
            fastcgi_pass unix:$work/run/fcgiwrap.sock;
        }
        location /fcgi/ {
            fastcgi_split_path_info ^(/fcgi)(/.+)\$;
            include $work/params.conf;
            fastcgi_param PATH_INFO \$fastcgi_path_info;
            fastcgi_param SCRIPT_FILENAME $work/vorn;
            fastcgi_pass unix:$work/run/vorn.sock;
        }
        location /floor/ {
            include $work/params.conf;
            fastcgi_pass unix:$work/run/floor.sock;
        }
        location ~ ^/php/(.+\.php)\$ {
            include $work/params.conf;
            fastcgi_param SCRIPT_FILENAME $work/php/\$1;
            fastcgi_pass unix:$work/run/php.sock;
        }
    }
}
CONF
nginx -c "$work/nginx.conf" -e "$work/logs/error.log" -g 'daemon off;' &
pids+=($!)
for _ in $(seq 100); do
  [ -S "$work/run/php.sock" ] && [ -S "$work/run/vorn.sock" ] && [ -S "$work/run/fcgiwrap.sock" ] &&
    [ -S "$work/run/floor.sock" ] &&
    curl -s -o /dev/null "http://127.0.0.1:$port/" && break
  sleep 0.1
done

url() {   # server page
  local query='?name=Ada&item=42&title=Bench'
  case $1 in
  cgi | fcgi) echo "http://127.0.0.1:$port/$1/$2.html$query" ;;
  php) echo "http://127.0.0.1:$port/php/$2.php$query" ;;
  floor) echo "http://127.0.0.1:$port/floor/$2$query" ;;
  esac
}
# the pages answer alike before they are timed
for page in small rows; do
  for s in cgi fcgi php; do
    body=$(curl -sS --fail "$(url "$s" "$page")") || { cat "$work"/logs/*; exit 1; }
    case $page in
    small) grep -q '<li>item: 42</li>' <<<"$body" || { echo "$s $page: $body" >&2; exit 1; } ;;
    rows) grep -q '^rows: 100$' <<<"$body" || { echo "$s $page: $body" >&2; exit 1; } ;;
    esac
  done
done

printf '%-6s %3s  %12s %12s %12s %12s   (requests per second, median of %d rounds)\n' \
  page c "Vorn CGI" "Vorn FastCGI" php-fpm "fork floor" "$rounds"
for page in small rows; do
  for c in 1 8; do
    declare -A runs=()
    for _ in $(seq "$rounds"); do
      servers=(cgi fcgi php)
      [ "$page" = small ] && servers+=(floor)
      for s in "${servers[@]}"; do
        rps=$(ab -q -k -t "$seconds" -n "$requests" -c "$c" "$(url "$s" "$page")" 2>/dev/null |
          sed -n 's/^Requests per second: *\([0-9.]*\).*/\1/p')
        runs[$s]+="${rps:-0} "
      done
    done
    med() { tr ' ' '\n' <<<"${runs[$1]}" | grep . | sort -n | sed -n "$(((rounds + 1) / 2))p"; }
    floor=-
    [ "$page" = small ] && floor=$(med floor)
    printf '%-6s %3s  %12s %12s %12s %12s\n' "$page" "$c" "$(med cgi)" "$(med fcgi)" "$(med php)" \
      "$floor"
    unset runs
  done
done
