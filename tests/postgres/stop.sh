#!/bin/bash
# Stops the private PostgreSQL server of the database page cases.
# Usage: stop.sh DATA_ROOT
set -u
data=$1/data
bindir=/usr/lib/postgresql/15/bin
if [ ! -x "$bindir/pg_ctl" ] && command -v pg_config >/dev/null; then
    bindir=$(pg_config --bindir)
fi
if [ ! -f "$data/postmaster.pid" ]; then
    echo "no server running in $data"
    exit 0
fi
if [ "$(id -u)" -eq 0 ]; then
    runuser -u postgres -- "$bindir/pg_ctl" -D "$data" -m fast -w stop
else
    "$bindir/pg_ctl" -D "$data" -m fast -w stop
fi
