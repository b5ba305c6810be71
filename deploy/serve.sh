# Starts a private web server on 127.0.0.1, on a free port, that runs Vorn as
# CGI through the configuration templates beside this file: lighttpd, apache2
# (prefork with mod_cgi) or nginx (with fcgiwrap); or as a FastCGI server:
# nginx-fastcgi (nginx and `vorn --fastcgi` on a Unix socket),
# lighttpd-fastcgi (lighttpd starts vorn on its socket) or apache2-fastcgi
# (mod_proxy_fcgi and `vorn --fastcgi`). Used by the example and the tests;
# source it, then
#   serve_start SERVER DIR VORN HOME   # sets SERVE_PORT, SERVE_URL, SERVE_USER
#   serve_balance DIR PORT...          # nginx in front of the servers on PORT...
#                                      # sets BALANCE_PORT, BALANCE_URL
#   serve_stop                         # also safe when nothing was started
# Several servers may run side by side, each with a DIR of its own;
# serve_stop stops them all. DIR is made afresh for the configuration, logs,
# sockets and a copy of VORN (so the server's user need not reach the build
# tree). Started by root, the server and its CGI programs run as www-data:
# the caller makes HOME, the site and the temporary directory readable or
# writable for SERVE_USER, and DIR's parents searchable.

SERVE_PIDS=()
SERVE_GROUPS=()
SERVE_DEPLOY=$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)

# A port on 127.0.0.1 that nothing answers on; the server's start tells
# whether it is still free.
serve_pick_port() {
    local port
    for _ in $(seq 50); do
        port=$((20000 + RANDOM % 40000))
        (: </dev/tcp/127.0.0.1/$port) 2>/dev/null || { echo "$port"; return 0; }
    done
    return 1
}

# Copies template $1 to $2 with every @NAME@ replaced by its value from the
# NAME=value pairs that follow.
serve_fill() {
    local from=$1 to=$2 text
    shift 2
    text=$(<"$from")
    for pair in "$@"; do
        text=${text//"@${pair%%=*}@"/"${pair#*=}"}
    done
    printf '%s\n' "$text" >"$to"
}

# The user the servers run as (and their CGI programs): SERVE_USER, SERVE_GROUP.
serve_user() {
    if [ "$(id -u)" = 0 ]; then
        SERVE_USER=www-data SERVE_GROUP=www-data
    else
        SERVE_USER=$(id -un) SERVE_GROUP=$(id -gn)
    fi
}

# Starts $1 with the files under $2 on port $3 and waits until it answers;
# 1 when it ended first (the port was taken, or the configuration is bad),
# with what it started stopped again and the servers started before left
# running.
serve_launch() {
    local server=$1 dir=$2 port=$3 first=${#SERVE_PIDS[@]}
    case $server in
    lighttpd)
        lighttpd -D -f "$dir/private.conf" &
        SERVE_PIDS+=($!)
        ;;
    apache2)
        # Stopping, httpd signals its whole process group: give it its own.
        setsid apache2 -f "$dir/private.conf" -DFOREGROUND &
        SERVE_PIDS+=($!)
        ;;
    nginx)
        # fcgiwrap hands its own environment to the CGI programs: give it a
        # clean one, with the sanitizer settings of a test run. Its workers
        # outlive a stopped parent, so it leads a process group of its own.
        local as_user=()
        [ "$(id -u)" = 0 ] && as_user=(setpriv --reuid="$SERVE_USER" --regid="$SERVE_GROUP" --init-groups)
        setsid env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin ${ASAN_OPTIONS:+ASAN_OPTIONS="$ASAN_OPTIONS"} \
            ${UBSAN_OPTIONS:+UBSAN_OPTIONS="$UBSAN_OPTIONS"} \
            "${as_user[@]}" fcgiwrap -f -c 2 -p "$dir/cgi/vorn" -s "unix:$dir/run/fcgiwrap.sock" \
            2>>"$dir/logs/fcgiwrap.log" &
        SERVE_PIDS+=($!)
        SERVE_GROUPS+=($!)
        nginx -e "$dir/logs/error.log" -c "$dir/private.conf" -g 'daemon off;' &
        SERVE_PIDS+=($!)
        ;;
    nginx-fastcgi | apache2-fastcgi)
        # Vorn's own FastCGI server in the place of fcgiwrap; stopped by
        # SIGTERM, it lets the requests in flight finish
        local as_user=()
        [ "$(id -u)" = 0 ] && as_user=(setpriv --reuid="$SERVE_USER" --regid="$SERVE_GROUP" --init-groups)
        env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin V_HOME="$SERVE_HOME" \
            ${ASAN_OPTIONS:+ASAN_OPTIONS="$ASAN_OPTIONS"} ${UBSAN_OPTIONS:+UBSAN_OPTIONS="$UBSAN_OPTIONS"} \
            "${as_user[@]}" "$dir/cgi/vorn" --fastcgi "$dir/run/vorn.sock" --children 4 \
            ${SERVE_FASTCGI_OPTIONS:-} 2>>"$dir/logs/vorn.log" &
        SERVE_PIDS+=($!)
        for _ in $(seq 100); do [ -S "$dir/run/vorn.sock" ] && break; sleep 0.05; done
        if [ "$server" = nginx-fastcgi ]; then
            nginx -e "$dir/logs/error.log" -c "$dir/private.conf" -g 'daemon off;' &
        else
            setsid apache2 -f "$dir/private.conf" -DFOREGROUND &
        fi
        SERVE_PIDS+=($!)
        ;;
    lighttpd-fastcgi)
        lighttpd -D -f "$dir/private.conf" &
        SERVE_PIDS+=($!)
        ;;
    balancer)
        nginx -e "$dir/logs/error.log" -c "$dir/private.conf" -g 'daemon off;' &
        SERVE_PIDS+=($!)
        ;;
    *)
        echo "serve_start: unknown server $server" >&2
        return 2
        ;;
    esac
    for _ in $(seq 100); do
        if [ "$server" != nginx ] || [ -S "$dir/run/fcgiwrap.sock" ]; then
            curl -s -o /dev/null "http://127.0.0.1:$port/" && return 0
        fi
        for pid in "${SERVE_PIDS[@]:first}"; do
            kill -0 "$pid" 2>/dev/null || { serve_stop_from "$first"; return 1; }
        done
        sleep 0.1
    done
    serve_stop_from "$first"
    return 1
}

serve_start() {
    local server=$1 dir=$2 vorn=$3 home=$4
    # the templates: a FastCGI server shares its web server's private.conf
    local kind=${server%-fastcgi} conf=vorn.conf.in socket=$dir/run/fcgiwrap.sock
    if [ "$kind" != "$server" ]; then
        socket=$dir/run/vorn.sock
        [ "$kind" = nginx ] || conf=fastcgi.conf.in
    fi
    SERVE_HOME=$home
    serve_user
    rm -rf "$dir"
    mkdir -p "$dir"/{www,logs,run,cgi}
    chmod 755 "$dir" "$dir"/{www,cgi}
    install -m 755 "$vorn" "$dir/cgi/vorn"
    # the PostgreSQL helper goes beside the interpreter, where it looks
    if [ -x "$(dirname "$vorn")/vorn-pq" ]; then
        install -m 755 "$(dirname "$vorn")/vorn-pq" "$dir/cgi/vorn-pq"
    fi
    # the workers write their temporary files and sockets under run/
    chown "$SERVE_USER:$SERVE_GROUP" "$dir/run" "$dir/logs"

    local port
    for _ in 1 2 3 4 5; do
        port=$(serve_pick_port) || break
        local values=(DIR="$dir" PORT="$port" USER="$SERVE_USER" GROUP="$SERVE_GROUP"
                      VORN="$dir/cgi/vorn" V_HOME="$home" LISTEN="127.0.0.1:$port"
                      FCGI_SOCKET="$socket"
                      ASAN_OPTIONS="${ASAN_OPTIONS:-}" UBSAN_OPTIONS="${UBSAN_OPTIONS:-}")
        serve_fill "$SERVE_DEPLOY/$kind/$conf" "$dir/vorn.conf" "${values[@]}"
        serve_fill "$SERVE_DEPLOY/$kind/private.conf.in" "$dir/private.conf" "${values[@]}"
        if serve_launch "$server" "$dir" "$port"; then
            SERVE_PORT=$port
            SERVE_URL=http://127.0.0.1:$port
            return 0
        fi
        rm -f "$socket"
    done
    echo "serve_start: $server did not start; its log:" >&2
    cat "$dir"/logs/*.log >&2 2>/dev/null
    return 1
}

# Starts nginx on a free port of 127.0.0.1 as the balancer of
# nginx/balancer.conf.in in front of the servers listening on 127.0.0.1 at
# the ports given after DIR; its files go under DIR, made afresh.
serve_balance() {
    local dir=$1 nodes= node
    shift
    for node in "$@"; do
        nodes+="${nodes:+ }server 127.0.0.1:$node;"
    done
    serve_user
    rm -rf "$dir"
    mkdir -p "$dir"/{logs,run}
    chmod 755 "$dir"
    chown "$SERVE_USER:$SERVE_GROUP" "$dir/run" "$dir/logs"

    local port
    for _ in 1 2 3 4 5; do
        port=$(serve_pick_port) || break
        # the private wrapper of nginx includes DIR/vorn.conf
        serve_fill "$SERVE_DEPLOY/nginx/balancer.conf.in" "$dir/vorn.conf" \
            LISTEN="127.0.0.1:$port" NODES="$nodes"
        serve_fill "$SERVE_DEPLOY/nginx/private.conf.in" "$dir/private.conf" \
            DIR="$dir" USER="$SERVE_USER" GROUP="$SERVE_GROUP"
        if serve_launch balancer "$dir" "$port"; then
            BALANCE_PORT=$port
            BALANCE_URL=http://127.0.0.1:$port
            return 0
        fi
    done
    echo "serve_balance: nginx did not start; its log:" >&2
    cat "$dir"/logs/*.log >&2 2>/dev/null
    return 1
}

# Stops the servers started after the first $1 of SERVE_PIDS.
serve_stop_from() {
    local from=$1 pid group kept=()
    for pid in "${SERVE_PIDS[@]:from}"; do
        for group in "${SERVE_GROUPS[@]}"; do
            [ "$group" = "$pid" ] && { kill -- "-$pid" 2>/dev/null || true; }
        done
        kill "$pid" 2>/dev/null || true
    done
    for pid in "${SERVE_PIDS[@]:from}"; do
        wait "$pid" 2>/dev/null || true
    done
    SERVE_PIDS=("${SERVE_PIDS[@]:0:from}")
    for group in "${SERVE_GROUPS[@]}"; do
        for pid in "${SERVE_PIDS[@]}"; do
            [ "$group" = "$pid" ] && kept+=("$group")
        done
    done
    SERVE_GROUPS=("${kept[@]}")
    return 0
}

serve_stop() {
    serve_stop_from 0
}
