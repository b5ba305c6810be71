#!/usr/bin/env bash
# Two web nodes (lighttpd running Vorn as CGI, each with a home of its own)
# behind an nginx balancer serve one site from one private PostgreSQL server,
# all on 127.0.0.1. ab posts REQUESTS visits at concurrency 8; a visit raises
# a counter and records a row in the request's one transaction. Every visit
# answered with 200 must have its row, the counter must equal the rows, no
# two visits may have seen the same count, and both nodes must have served:
# each node's access log agrees with the rows that name it (VORN_NODE, from
# its v.env).
# Usage: run.sh VORN ROOT PG_SOCKET [REQUESTS]
#   ROOT       the directory for the PostgreSQL data (made afresh)
#   PG_SOCKET  the server's socket directory, a short path of this run's own
set -euo pipefail
vorn=$(realpath "$1")
root=$2
sock=$3
requests=${4:-2000}
concurrency=8
here=$(cd "$(dirname "$0")" && pwd)
source "$here/../../deploy/serve.sh"
source "$here/../sanitizer.sh"
command -v ab >/dev/null || { echo "multinode: ab is missing (apache2-utils)"; exit 1; }

work=$(mktemp -d /tmp/vorn-multinode-XXXXXX)
chmod 755 "$work"   # the servers' user goes through it
cleanup() {
    set +e
    serve_stop
    bash "$here/../postgres/stop.sh" "$root" >/dev/null
    rm -rf "$work" "$sock"
}
trap cleanup EXIT

fail() {
    echo "FAIL: $*"
    for log in "$work"/*/server/logs/{error,cgi}.log "$work/balancer/logs/error.log"; do
        [ -s "$log" ] && { echo "--- $log"; tail -20 "$log"; }
    done
    exit 1
}

# The database: the site's tables, and a role of its own that must give its
# password (the nodes' v.env holds it), though the test server trusts local
# connections otherwise.
bash "$here/../postgres/start.sh" "$root" "$sock" 5432 site >/dev/null
as_pg() {
    if [ "$(id -u)" = 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi
}
sql() {
    as_pg psql -X -q -At -v ON_ERROR_STOP=1 -h "$sock" -U postgres -d site "$@"
}
password=$(head -c 18 /dev/urandom | base64 | tr -dc 'A-Za-z0-9')
sql <<SQL
CREATE ROLE site_web LOGIN PASSWORD '$password';
CREATE TABLE visits (id integer PRIMARY KEY, n integer NOT NULL);
INSERT INTO visits VALUES (1, 0);
CREATE TABLE hits (id serial PRIMARY KEY, node text NOT NULL, seen integer NOT NULL);
GRANT SELECT, UPDATE ON visits TO site_web;
GRANT SELECT, INSERT ON hits TO site_web;
GRANT USAGE ON SEQUENCE hits_id_seq TO site_web;
SQL
hba=$root/data/pg_hba.conf
as_pg sh -c "{ echo 'local site site_web scram-sha-256'; cat '$hba'; } >'$hba.new' && mv '$hba.new' '$hba'"
sql -c 'SELECT pg_reload_conf()' >/dev/null
if PGPASSWORD=wrong psql -X -q -h "$sock" -U site_web -d site -c 'SELECT 1' >/dev/null 2>&1; then
    fail "the site's role logs in without its password"
fi

# The site, read by both nodes (on separate hosts each would have its copy).
cp -r "$here/site" "$work/site"
chmod -R a+rX "$work/site"

ports=()
for node in a b; do
    mkdir -p "$work/$node/home" "$work/$node/tmp"
    serve_start lighttpd "$work/$node/server" "$vorn" "$work/$node/home" || fail "node $node did not start"
    ports+=("$SERVE_PORT")
done
serve_balance "$work/balancer" "${ports[@]}" || fail "the balancer did not start"

# The homes, written now that the balancer's port, the site's key, is known:
# the same v.config on every node; v.env differs only in the node's name and
# its temporary directory.
for node in a b; do
    home=$work/$node/home
    echo "127.0.0.1:$BALANCE_PORT $work/site site" >"$home/v.config"
    cat >"$home/v.env" <<ENV
VORN_DB=postgres
PGHOST=$sock
PGPORT=5432
V_USER=site_web
V_PASSWD=$password
TMP_DIR=$work/$node/tmp
VORN_NODE=$node
ENV
    chgrp "$SERVE_GROUP" "$home" "$home"/*
    chmod 750 "$home"
    chmod 640 "$home"/*
    chown "$SERVE_USER:$SERVE_GROUP" "$work/$node/tmp"
    chmod 700 "$work/$node/tmp"
done

# 1. a node reached directly is not the site: its own host:port has no line
direct=$(curl -sS "http://127.0.0.1:${ports[0]}/vorn/where.html" || true)
grep -q "No V_ROOT configuration for SERVER: 127.0.0.1:${ports[0]}" <<<"$direct" ||
    fail "direct request to node a: $direct"

# 2. through the balancer, one request to each node in turn, as the site's role
seen=
for _ in 1 2; do
    page=$(curl -sS "$BALANCE_URL/vorn/where.html" | tail -n 1 || true)
    case $page in
    "node="[ab]" role=site_web") seen+=" ${page%% *}" ;;
    *) fail "where.html through the balancer: $page" ;;
    esac
done
[ "$seen" = " node=a node=b" ] || [ "$seen" = " node=b node=a" ] ||
    fail "two requests through the balancer went to:$seen"

# 3. the load: bounded in count, and in time by timeout
printf V_PAGE=hit.html >"$work/post.txt"
timeout 180 ab -q -l -n "$requests" -c "$concurrency" -s 30 -p "$work/post.txt" \
    -T application/x-www-form-urlencoded "$BALANCE_URL/vorn/hit.html" >"$work/ab.txt" ||
    { status=$?; cat "$work/ab.txt"; fail "ab ended with status $status"; }
field() { sed -n "s/^$1: *\([0-9.]*\).*/\1/p" "$work/ab.txt"; }
complete=$(field 'Complete requests')
failed=$(field 'Failed requests')
non200=$(field 'Non-2xx responses')
answered=$((complete - ${non200:-0}))
[ "$answered" = "$requests" ] && [ "$failed" = 0 ] ||
    { cat "$work/ab.txt"; fail "$answered of $requests requests answered with 200, $failed failed"; }

# 4. every visit is there once, and the counter is exact
read -r rows distinct highest counter on_a on_b < <(sql -F ' ' -c "
    SELECT count(*), count(DISTINCT seen), coalesce(max(seen), 0),
           (SELECT n FROM visits WHERE id = 1),
           count(*) FILTER (WHERE node = 'a'), count(*) FILTER (WHERE node = 'b')
    FROM hits")
# lighttpd writes its access log out when it stops
serve_stop
logged() {
    grep -c '"POST /vorn/hit.html HTTP/1\.[01]" 200 ' "$work/$1/server/logs/access.log" || true
}
log_a=$(logged a)
log_b=$(logged b)
echo "multinode: $requests requests, concurrency $concurrency, $(field 'Time taken for tests') s," \
     "$(field 'Requests per second') requests/s; rows $rows (node a $on_a, node b $on_b)," \
     "counter $counter; access logs a $log_a, b $log_b"
[ "$rows" = "$answered" ] || fail "$rows rows for $answered answered visits"
[ "$counter" = "$rows" ] || fail "counter $counter for $rows rows"
[ "$distinct" = "$rows" ] && [ "$highest" = "$rows" ] ||
    fail "visits saw $distinct distinct counts up to $highest for $rows rows"
[ "$on_a" -gt 0 ] && [ "$on_b" -gt 0 ] || fail "one node took every visit"
[ "$on_a" = "$log_a" ] && [ "$on_b" = "$log_b" ] ||
    fail "rows by node ($on_a, $on_b) differ from the access logs ($log_a, $log_b)"

sanitizer_clean "$work"/*/server/logs/cgi.log
