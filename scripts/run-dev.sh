#!/usr/bin/env bash
# Runs the daemon built in the given build folder (default: build).
#
# On a router (its programs, such as /usr/sbin/vantpost, are installed) the daemon simply runs.
# On a development machine it runs, unmodified, in the end-to-end tests' sandbox
# (tests/e2e/sandbox.sh): a private mount and pid namespace whose stub router programs record each
# command the daemon runs instead of running it; this script prints them as "zorvik ran: ...",
# with the daemon's own output and its log lines. The sandbox shares the machine's network, so
# zorvikctl reaches the daemon on 127.0.0.1:9096 from another terminal. Its /etc/zorvik is
# run/etc-zorvik of the working tree and survives between runs. Ctrl-C stops it.
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
for tool in unshare perl; do
  if ! command -v $tool >/dev/null; then
    echo "The development sandbox needs $tool." >&2
    exit 1
  fi
done

data=$repo/run/etc-zorvik
mkdir -p "$data"
state=$(mktemp -d "${TMPDIR:-/tmp}/zorvik-run.XXXXXX")
ln -s "$data" "$state/etc-zorvik"
unshare --mount --pid --fork --kill-child --mount-proc --propagation private -- \
  sh "$repo/tests/e2e/sandbox.sh" "$state" "$build/zorvik" &
sandbox=$!
watchers=()
# unshare ignores SIGINT and SIGTERM while the sandbox runs: SIGKILL ends it and everything in it.
cleanup() {
  { kill -KILL "$sandbox" "${watchers[@]}"; wait; } 2>/dev/null || true
  rm -rf "$state"
}
trap cleanup EXIT
trap 'exit 130' INT TERM

while [ ! -e "$state/ready" ]; do
  kill -0 "$sandbox" 2>/dev/null || exit 1
  sleep 0.1
done
echo "start zorvik" >"$state/control"
tail -q -n +1 -F "$state/daemon/zorvik.stdout" "$state/daemon/zorvik.stderr" "$state/syslog" \
  2>/dev/null &
watchers+=($!)
tail -n +1 -F "$state/calls.log" > >(sed -u 's/^/zorvik ran: /' >&2) 2>/dev/null &
watchers+=($!)
echo "zorvik: data in $data; try: $build/zorvikctl count" >&2
while [ ! -e "$state/daemon/zorvik.status" ]; do sleep 0.5; done
sleep 0.2
echo "zorvik ended with status $(cat "$state/daemon/zorvik.status")" >&2
