#!/usr/bin/env bash
# with-postgres.sh COMMAND [ARG...]
#
# Runs COMMAND against a throwaway PostgreSQL 15 server: a new cluster in a
# temporary folder, listening on 127.0.0.1 on a free port, with a login role
# and a database owned by it (citext installed), reachable through a private
# ODBC data source. Exports ODBCSYSINI, ODBCINI and DORVANE_TEST_DSN for the
# command, stops the server and removes the folder when the
# command ends (also on failure or interruption), and exits with the
# command's status.
#
# As root the server runs as the postgres user (initdb refuses root); as any
# other user it runs as that user. DORVANE_PG_OPTIONS adds server options
# ("-c log_min_duration_statement=20", say) to the ones given here.
set -euo pipefail

if [ $# -lt 1 ]; then
    echo "usage: $0 COMMAND [ARG...]" >&2
    exit 2
fi

PGBIN=${PGBIN:-/usr/lib/postgresql/15/bin}
PSQLODBC=${PSQLODBC:-/usr/lib/x86_64-linux-gnu/odbc/psqlodbcw.so}
DSN_NAME=dorvane_test
ROLE_NAME=dorvane
DB_NAME=dorvane

for tool in "$PGBIN/initdb" "$PGBIN/pg_ctl" "$PGBIN/psql" "$PSQLODBC"; do
    if [ ! -e "$tool" ]; then
        echo "with-postgres: $tool not found" >&2
        exit 2
    fi
done
command -v isql >/dev/null || { echo "with-postgres: isql (unixodbc) not found" >&2; exit 2; }

work=$(mktemp -d "${TMPDIR:-/tmp}/dorvane-pg.XXXXXX")
chmod 755 "$work"
pgdir="$work/pg"
mkdir -p "$pgdir/sock" "$work/odbc"

if [ "$(id -u)" = 0 ]; then
    chown -R postgres: "$pgdir"
    as_server() { (cd / && runuser -u postgres -- "$@"); }
else
    as_server() { (cd / && "$@"); }
fi

started=0
cleanup() {
    if [ "$started" = 1 ]; then
        as_server "$PGBIN/pg_ctl" -D "$pgdir/data" -m fast -w stop >/dev/null 2>&1 || true
    fi
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

password=$(od -An -N16 -tx1 /dev/urandom | tr -d ' \n')
printf '%s\n' "$password" >"$pgdir/pwfile"
[ "$(id -u)" = 0 ] && chown postgres: "$pgdir/pwfile"

if ! as_server "$PGBIN/initdb" -D "$pgdir/data" -U postgres --pwfile="$pgdir/pwfile" \
        --auth-local=trust --auth-host=scram-sha-256 -E UTF8 --locale=C.UTF-8 \
        >"$pgdir/initdb.log" 2>&1; then
    cat "$pgdir/initdb.log" >&2
    exit 1
fi

port_in_use() { (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null; }

# Another program may take the port between the probe and the start; try a few.
port=
for _ in 1 2 3 4 5 6 7 8 9 10; do
    candidate=$((20000 + RANDOM % 40000))
    port_in_use "$candidate" && continue
    if as_server "$PGBIN/pg_ctl" -D "$pgdir/data" -l "$pgdir/server.log" -w -t 30 \
            -o "-c listen_addresses=127.0.0.1 -p $candidate -k $pgdir/sock -c fsync=off ${DORVANE_PG_OPTIONS:-}" \
            start >/dev/null 2>&1; then
        port=$candidate
        started=1
        break
    fi
done
if [ -z "$port" ]; then
    echo "with-postgres: the server did not start" >&2
    cat "$pgdir/server.log" >&2 || true
    exit 1
fi

psql_socket() {
    local user=$1 db=$2
    shift 2
    as_server "$PGBIN/psql" -X -q -v ON_ERROR_STOP=1 -h "$pgdir/sock" -p "$port" -U "$user" -d "$db" "$@"
}
psql_socket postgres postgres \
    -c "CREATE ROLE $ROLE_NAME LOGIN PASSWORD '$password'" \
    -c "CREATE DATABASE $DB_NAME OWNER $ROLE_NAME ENCODING 'UTF8' TEMPLATE template0" >/dev/null
# The bench asks for a checkpoint before each operation it times.
psql_socket postgres postgres -c "GRANT pg_checkpoint TO $ROLE_NAME" >/dev/null 2>&1 || true
psql_socket "$ROLE_NAME" "$DB_NAME" -c "CREATE EXTENSION IF NOT EXISTS citext" >/dev/null

cat >"$work/odbc/odbcinst.ini" <<EOF
[PostgreSQL Unicode]
Description=PostgreSQL ODBC driver (Unicode)
Driver=$PSQLODBC
EOF
cat >"$work/odbc/odbc.ini" <<EOF
[$DSN_NAME]
Description=Throwaway PostgreSQL for Dorvane tests
Driver=PostgreSQL Unicode
Servername=127.0.0.1
Port=$port
Database=$DB_NAME
Username=$ROLE_NAME
Password=$password
SSLmode=disable
EOF
chmod 600 "$work/odbc/odbc.ini"

export ODBCSYSINI="$work/odbc"
export ODBCINI="$work/odbc/odbc.ini"
export DORVANE_TEST_DSN="$DSN_NAME"
# No PG* variables: psqlODBC would take them as defaults, and an empty data
# source name (which unixODBC hands to the one installed driver) would then
# connect instead of failing. The server's address is in $ODBCINI.

if ! echo "select 1" | isql -b "$DSN_NAME" >"$work/isql.log" 2>&1; then
    echo "with-postgres: the ODBC data source $DSN_NAME does not answer:" >&2
    cat "$work/isql.log" >&2
    exit 1
fi

set +e
"$@"
status=$?
set -e
exit "$status"
