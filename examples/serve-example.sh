# Serves the example guestbook on 127.0.0.1 through one of the web servers of
# deploy/ (lighttpd, apache2 or nginx). Source it, then
#   example_serve SERVER DIR VORN   # sets EXAMPLE_URL, EXAMPLE_HOME, EXAMPLE_TMP
#   example_stop
# DIR is made afresh: home/ (v.env, v.config with lines for the server's port,
# guestbook.db from the schema and seed), tmp/ (TMP_DIR, where uploads land)
# and server/ (deploy/serve.sh). The pages are examples/site itself when the
# server's user can read them, else a copy in DIR/site (EXAMPLE_SITE).
EXAMPLE_SOURCE=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)
source "$EXAMPLE_SOURCE/../deploy/serve.sh"

# Whether the server's user can read $1 (for root: as www-data).
example_readable() {
    if [ "$(id -u)" = 0 ]; then
        setpriv --reuid="$SERVE_USER" --regid="$SERVE_GROUP" --init-groups test -r "$1"
    else
        test -r "$1"
    fi
}

example_serve() {
    local server=$1 dir=$2 vorn=$3
    rm -rf "$dir"
    mkdir -p "$dir/home" "$dir/tmp"
    chmod 755 "$dir"
    EXAMPLE_HOME=$dir/home
    EXAMPLE_TMP=$dir/tmp
    # Vorn reads v.config afresh for every request, so the home can be
    # finished once the server's port is known.
    serve_start "$server" "$dir/server" "$vorn" "$EXAMPLE_HOME" || return 1
    EXAMPLE_URL=$SERVE_URL/vorn/index.html

    EXAMPLE_SITE=$EXAMPLE_SOURCE/site
    if ! example_readable "$EXAMPLE_SITE/index.html"; then
        EXAMPLE_SITE=$dir/site
        cp -r "$EXAMPLE_SOURCE/site" "$EXAMPLE_SITE"
        chmod -R a+rX "$EXAMPLE_SITE"
    fi
    sed "s|^TMP_DIR=.*|TMP_DIR=$EXAMPLE_TMP|" "$EXAMPLE_SOURCE/home/v.env" >"$EXAMPLE_HOME/v.env"
    # The key is the Host header with its port; "shell:00" serves a run from
    # a shell (V_HOME=... vorn index.html in the site).
    {
        echo "127.0.0.1:$SERVE_PORT $EXAMPLE_SITE guestbook"
        echo "localhost:$SERVE_PORT $EXAMPLE_SITE guestbook"
        echo "shell:00 $EXAMPLE_SITE guestbook"
    } >"$EXAMPLE_HOME/v.config"
    # base "guestbook" with VORN_DB=sqlite (v.env) is the file guestbook.db
    # in the home
    sqlite3 "$EXAMPLE_HOME/guestbook.db" <"$EXAMPLE_SOURCE/db/schema.sql"
    sqlite3 "$EXAMPLE_HOME/guestbook.db" <"$EXAMPLE_SOURCE/db/seed.sql"

    # The server's user writes the database, and SQLite its journal beside
    # it, so the home is group-writable; the sticky bit keeps that user from
    # replacing v.env and v.config, which it may only read.
    chgrp "$SERVE_GROUP" "$EXAMPLE_HOME" "$EXAMPLE_HOME"/*
    chmod 1770 "$EXAMPLE_HOME"
    chmod 640 "$EXAMPLE_HOME/v.env" "$EXAMPLE_HOME/v.config"
    chmod 660 "$EXAMPLE_HOME/guestbook.db"
    chown "$SERVE_USER:$SERVE_GROUP" "$EXAMPLE_TMP"
    chmod 700 "$EXAMPLE_TMP"
}

example_stop() {
    serve_stop
}
