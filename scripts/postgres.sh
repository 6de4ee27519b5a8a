# A throwaway PostgreSQL cluster for the tests, sourced by the test job (after common.sh):
#   pg_cluster_start   makes a cluster in a fresh folder, starts it on a free port of
#                      127.0.0.1 (and a socket in its own folder), creates the test database,
#                      and exports WQ_TEST_PG (the ODBC connection text of that database),
#                      WQ_TEST_PG_PORT and WQ_TEST_PG_CTL (a command line of pg_ctl for the
#                      cluster, which the restart tests use to stop and start it);
#   pg_cluster_stop    stops it and removes its folder.
# Host connections need the password (scram-sha-256), so wrong credentials are really refused.
# initdb refuses to run as root: as root, the cluster belongs to the user postgres.

PG_BIN="${WQ_PG_BIN:-/usr/lib/postgresql/15/bin}"
PG_PACKAGES=(postgresql unixodbc odbc-postgresql)
PG_USER_NAME="sdm"
PG_DATABASE="sdmtest"

pg_as_owner() {
  if [ "$(id -u)" -eq 0 ]; then runuser -u postgres -- "$@"; else "$@"; fi
}

pg_port_is_free() {
  ! (exec 3<>"/dev/tcp/127.0.0.1/$1") 2>/dev/null
}

pg_cluster_start() {
  ensure_packages "${PG_PACKAGES[@]}"
  PG_DIR="$(mktemp -d /tmp/wq-pg.XXXXXX)"
  local password
  password="$(head -c 18 /dev/urandom | od -An -tx1 | tr -d ' \n')"
  printf '%s\n' "$password" >"$PG_DIR/pwfile"
  [ "$(id -u)" -eq 0 ] && chown -R postgres:postgres "$PG_DIR"
  chmod 700 "$PG_DIR"
  pg_as_owner "$PG_BIN/initdb" -D "$PG_DIR/data" -U "$PG_USER_NAME" -E UTF8 --locale=C \
    --auth-local=trust --auth-host=scram-sha-256 --pwfile="$PG_DIR/pwfile" >"$PG_DIR/initdb.log" 2>&1 || {
    cat "$PG_DIR/initdb.log" >&2
    return 1
  }
  local port
  for port in $(seq 54320 54420); do
    pg_port_is_free "$port" || continue
    WQ_TEST_PG_CTL="$PG_BIN/pg_ctl -D $PG_DIR/data -l $PG_DIR/log -w -t 60 -o '-p $port -k $PG_DIR -c listen_addresses=127.0.0.1'"
    if pg_ctl_run start >/dev/null 2>&1; then
      WQ_TEST_PG_PORT="$port"
      break
    fi
  done
  [ -n "${WQ_TEST_PG_PORT:-}" ] || {
    cat "$PG_DIR/log" >&2
    return 1
  }
  pg_as_owner "$PG_BIN/psql" -h "$PG_DIR" -p "$WQ_TEST_PG_PORT" -U "$PG_USER_NAME" -d postgres -q \
    -c "CREATE DATABASE $PG_DATABASE" >/dev/null
  WQ_TEST_PG="Driver={PostgreSQL Unicode};Server=127.0.0.1;Port=$WQ_TEST_PG_PORT;Database=$PG_DATABASE;Uid=$PG_USER_NAME;Pwd=$password;"
  export WQ_TEST_PG WQ_TEST_PG_PORT WQ_TEST_PG_CTL PG_DIR
  echo "PostgreSQL test cluster on 127.0.0.1:$WQ_TEST_PG_PORT ($PG_DIR)"
}

# Runs pg_ctl on the cluster: start, stop, restart (as the cluster's owner).
pg_ctl_run() {
  if [ "$(id -u)" -eq 0 ]; then
    runuser -u postgres -- bash -c "$WQ_TEST_PG_CTL $*"
  else
    bash -c "$WQ_TEST_PG_CTL $*"
  fi
}

pg_cluster_stop() {
  [ -n "${PG_DIR:-}" ] || return 0
  pg_ctl_run stop -m fast >/dev/null 2>&1 || true
  rm -rf "$PG_DIR"
  unset PG_DIR WQ_TEST_PG WQ_TEST_PG_PORT WQ_TEST_PG_CTL
}
