#!/bin/sh
# A private PostgreSQL server for the tests: on a socket in a temporary directory,
# without a network port, gone with that directory.
#
# usage: tests/support/postgres.sh run COMMAND...   with KU_POSTGRES set to the
#                                                   connection string of a new server
#        eval "$(tests/support/postgres.sh start)"  the same by hand
#        tests/support/postgres.sh stop             ends the server of KU_POSTGRES
#
# Where no server is installed, run says so and runs the command without one.
set -eu

# The server refuses to run as root.
if [ "$(id -u)" -eq 0 ]; then
    account=postgres
    id "$account" >/dev/null 2>&1 || account=nobody
    as() { setpriv --reuid "$account" --regid "$(id -g "$account")" --clear-groups "$@"; }
else
    as() { "$@"; }
fi

programs() {
    for directory in "$(pg_config --bindir 2>/dev/null || true)" /usr/lib/postgresql/*/bin; do
        if [ -x "$directory/initdb" ]; then
            echo "$directory"
            return
        fi
    done
}

# Prints the directory of a new server, or nothing, with the reason on standard error.
begin() {
    bin=$(programs)
    if [ -z "$bin" ]; then
        echo "postgres.sh: no server is installed: apt-get install postgresql-15" >&2
        return 0
    fi
    work=$(mktemp -d /tmp/ku-postgres.XXXXXX)
    if [ "$(id -u)" -eq 0 ]; then chown "$account" "$work"; fi
    cd "$work" # where the server's account may be
    if as env HOME="$work" LC_ALL=C.UTF-8 "$bin/initdb" -D data -U ku -A trust -E UTF8 -N >log 2>&1 \
        && as "$bin/pg_ctl" -D data -l server.log -w -t 60 \
            -o "-k $work -c listen_addresses= -c fsync=off" start >>log 2>&1; then
        echo "$work"
        return 0
    fi
    echo "postgres.sh: the server does not start:" >&2
    tail -n 5 log server.log >&2 || true
    cd /
    rm -rf "$work"
}

end() {
    bin=$(programs)
    cd "$1"
    as "$bin/pg_ctl" -D data -m immediate -w stop >/dev/null 2>&1 || true
    cd /
    rm -rf "$1"
}

connection() {
    echo "Driver=PostgreSQL Unicode;Servername=$1;Port=5432;Database=postgres;Username=ku"
}

case ${1-} in
    run)
        shift
        server=$(begin)
        if [ -z "$server" ]; then exec "$@"; fi
        trap 'end "$server"' EXIT
        trap 'exit 1' INT TERM HUP
        KU_POSTGRES=$(connection "$server")
        export KU_POSTGRES
        status=0
        "$@" || status=$?
        exit "$status"
        ;;
    start)
        server=$(begin)
        [ -n "$server" ] || exit 1
        echo "export KU_POSTGRES='$(connection "$server")'"
        ;;
    stop)
        server=${KU_POSTGRES#*Servername=}
        server=${server%%;*}
        case $server in
            /tmp/ku-postgres.*) end "$server" ;;
            *) echo "postgres.sh: KU_POSTGRES names no server of this script" >&2; exit 2 ;;
        esac
        ;;
    *) sed -n '2,11s/^# \{0,1\}//p' "$0" >&2; exit 2 ;;
esac
