#!/usr/bin/env bash
# Runs the daemon built in the given build folder (default: build).
#
# On a router (its programs, such as /usr/sbin/vantpost, are installed) the daemon simply runs.
# On a development machine it runs, unmodified, in a development sandbox (tests/e2e/sandbox.sh):
# a private mount and pid namespace whose stub router programs print each command the daemon
# runs instead of running it. The sandbox shares the machine's network, so zorvikctl reaches the
# daemon on 127.0.0.1:9096 from another terminal. Its /etc/zorvik is run/etc-zorvik of the
# working tree and survives between runs. The daemon's log lines are printed here too.
# Ctrl-C stops it.
set -euo pipefail

repo=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-build}" 2>/dev/null && pwd) || build=
if [ -z "$build" ] || [ ! -x "$build/zorvik" ]; then
  echo "zorvik is not built yet: there is no daemon to run (make build)." >&2
  exit 1
fi

if [ -x /usr/sbin/vantpost ]; then
  exec "$build/zorvik"
fi

if [ "$(id -u)" -ne 0 ]; then
  echo "The development sandbox needs root (mount and pid namespaces): sudo make run" >&2
  exit 1
fi
if ! command -v unshare >/dev/null; then
  echo "The development sandbox needs unshare (util-linux)." >&2
  exit 1
fi

data=$repo/run/etc-zorvik
mkdir -p "$data"
state=$(mktemp -d "${TMPDIR:-/tmp}/zorvik-run.XXXXXX")
syslog_pid=
cleanup() {
  [ -z "$syslog_pid" ] || kill "$syslog_pid" 2>/dev/null || true
  rm -rf "$state"
}
trap cleanup EXIT

log_option=()
if [ -x "$build/tests/e2e/zorvik-syslog" ]; then
  "$build/tests/e2e/zorvik-syslog" "$state/log.sock" &
  syslog_pid=$!
  for _ in $(seq 50); do
    [ -S "$state/log.sock" ] && break
    sleep 0.1
  done
  log_option=(--log-socket "$state/log.sock")
else
  echo "(zorvik-syslog is not built: the daemon's log lines go to this machine's system log)" >&2
fi

echo "zorvik: data in $data; try: $build/zorvikctl count" >&2
unshare --mount --pid --fork --kill-child --mount-proc --propagation private -- \
  /bin/sh "$repo/tests/e2e/sandbox.sh" --state "$state" --daemon "$build/zorvik" \
  --data "$data" "${log_option[@]}" --foreground &
sandbox_pid=$!
# unshare ignores SIGINT and SIGTERM while the sandbox runs: SIGKILL ends it and everything in it.
trap 'kill -KILL "$sandbox_pid" 2>/dev/null || true' INT TERM
wait "$sandbox_pid" || true
wait "$sandbox_pid" 2>/dev/null || true
