#!/bin/bash
# make-cluster.sh FILE INITDB SCHEMA: a PostgreSQL cluster for tests as a tar file, to be unpacked by each test
# that wants one. Two roles: tessaly, which owns the database "seed" with the tables, and locked, which has the
# password "right". The database "latin1" has that encoding. The cluster is never started here, and initdb refuses root.
set -euo pipefail

file=$1 initdb=$2 schema=$3
postgres=$(dirname "$(readlink -f "$initdb")")/postgres

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
as_owner=()
if [[ $(id -u) == 0 ]]; then
    chown nobody "$folder"
    as_owner=(setpriv --reuid=nobody --regid=nogroup --clear-groups)
fi
data=$folder/data

"${as_owner[@]}" "$initdb" --pgdata="$data" --username=postgres --auth=trust --encoding=UTF8 --locale=C.UTF-8 \
    --no-sync --wal-segsize=1 >"$folder.log" 2>&1 || { cat "$folder.log" >&2; exit 1; }
rm -f "$folder.log"

"${as_owner[@]}" tee -a "$data/postgresql.conf" >/dev/null <<'END'
listen_addresses = ''
fsync = off
full_page_writes = off
wal_level = minimal
max_wal_senders = 0
max_wal_size = 16MB
min_wal_size = 2MB
shared_buffers = 16MB
max_connections = 60
autovacuum = off
dynamic_shared_memory_type = mmap
END
"${as_owner[@]}" tee "$data/pg_hba.conf" >/dev/null <<'END'
local all locked scram-sha-256
local all all    trust
host  all all    127.0.0.1/32 scram-sha-256
host  all all    ::1/128      scram-sha-256
END

# Commands end with a semicolon and an empty line.
single() {  # DATABASE
    "${as_owner[@]}" "$postgres" --single -j -D "$data" -c exit_on_error=on -c log_checkpoints=off "$1" >/dev/null
}
single template1 <<'END'
CREATE ROLE tessaly LOGIN;

CREATE ROLE locked LOGIN PASSWORD 'right';

DROP DATABASE postgres;

CREATE DATABASE seed OWNER tessaly;

CREATE DATABASE latin1 OWNER tessaly ENCODING LATIN1 LOCALE 'C' TEMPLATE template0;

END
(printf 'SET SESSION AUTHORIZATION tessaly;\n\n' && cat "$schema" && printf '\n\n') | single seed
tar -C "$folder" --create --file="$file" data
