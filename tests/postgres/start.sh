#!/bin/bash
# Starts a private PostgreSQL 15 server for the database page cases: a fresh
# data directory, a Unix socket only, a database with orafce, and one schema
# per case so that cases running side by side keep their tables apart.
# Usage: start.sh DATA_ROOT SOCKET_DIR PORT DATABASE [SCHEMA...]
set -eu
if [ $# -lt 4 ]; then
    echo "usage: $0 DATA_ROOT SOCKET_DIR PORT DATABASE [SCHEMA...]" >&2
    exit 2
fi
root=$1 sock=$2 port=$3 db=$4
shift 4

bindir=/usr/lib/postgresql/15/bin
if [ ! -x "$bindir/initdb" ] && command -v pg_config >/dev/null; then
    bindir=$(pg_config --bindir)
fi
if [ ! -x "$bindir/initdb" ] || [ ! -x "$bindir/pg_ctl" ]; then
    echo "PostgreSQL 15 server binaries not found (install postgresql-15 and postgresql-15-orafce)" >&2
    exit 1
fi
if [ ! -f "$("$bindir/pg_config" --sharedir 2>/dev/null || echo /usr/share/postgresql/15)/extension/orafce.control" ]; then
    echo "the orafce extension is not installed (postgresql-15-orafce)" >&2
    exit 1
fi

# The server refuses to run as root: run it as the postgres user then.
as_pg() {
    if [ "$(id -u)" -eq 0 ]; then
        runuser -u postgres -- "$@"
    else
        "$@"
    fi
}

data=$root/data
if [ -f "$data/postmaster.pid" ]; then
    as_pg "$bindir/pg_ctl" -D "$data" -m immediate stop >/dev/null 2>&1 || true
fi
rm -rf "$data" "$sock"
mkdir -p "$root" "$sock"
chmod 700 "$sock"
if [ "$(id -u)" -eq 0 ]; then
    chown postgres: "$root" "$sock"
fi

as_pg "$bindir/initdb" -D "$data" -U postgres -A trust -E UTF8 --locale=C >"$root/initdb.log" 2>&1 || {
    cat "$root/initdb.log" >&2
    exit 1
}
as_pg "$bindir/pg_ctl" -D "$data" -l "$root/server.log" -w -t 60 \
    -o "-c listen_addresses='' -k $sock -p $port -c fsync=off -c full_page_writes=off" start >/dev/null || {
    cat "$root/server.log" >&2
    exit 1
}
# the socket directory is private to the postgres user; the cases connect
# as root through it
chmod 755 "$sock"

psql_run() {
    as_pg "$bindir/psql" -X -q -v ON_ERROR_STOP=1 -h "$sock" -p "$port" -U postgres "$@"
}
psql_run -d postgres -c "CREATE DATABASE \"$db\""
# a site enables the Oracle dialect the same way: the extension, and its
# schema on the database's search path
psql_run -d "$db" -c "CREATE EXTENSION orafce" \
    -c "ALTER DATABASE \"$db\" SET search_path = \"\$user\", public, oracle"
for schema in "$@"; do
    psql_run -d "$db" -c "CREATE SCHEMA \"$schema\""
done
echo "PostgreSQL running on $sock port $port, database $db, $# case schemas"
