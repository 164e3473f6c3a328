#!/usr/bin/env bash
# Runs the console examples of a Markdown file (default docs/protocol.md) or of a .t file, in
# order, against one freshly started daemon in a sandbox, and compares their output exactly.
#   doc_examples.sh BUILD_DIR [FILE]
# Every fenced block tagged "console" is run. In it a line "$ COMMAND" is a shell command
# (zorvikctl is the build's); the lines up to the next "$ " line or the end of the block are its
# expected standard output and error, followed by "[exit N]" when its exit status N is not 0.
# A block tagged "console offline" runs each command in a new network namespace of its own with
# only loopback up, where nothing listens. Exit status: 0 all match, 1 a mismatch (the diff is
# printed), 77 this machine cannot build the sandbox (not root, no unshare, nsenter or ip).
set -u
here=$(cd "$(dirname "$0")" && pwd)
build=$(cd "${1:?usage: doc_examples.sh BUILD_DIR [FILE]}" && pwd) || exit 1
file=${2:-$here/../../docs/protocol.md}
for p in zorvik zorvikctl; do [ -x "$build/$p" ] || { echo "not built: $build/$p"; exit 1; }; done
skip() { echo "doc_examples.sh: skipped: $*"; exit 77; }
[ "$(id -u)" -eq 0 ] || skip "the sandbox needs root"
for tool in unshare nsenter ip; do command -v $tool >/dev/null || skip "no $tool"; done
unshare --mount --net --pid --fork true 2>/dev/null || skip "this machine refuses new namespaces"

state=$(mktemp -d "${TMPDIR:-/tmp}/zorvik-examples.XXXXXX") sandbox=
cleanup() {
  [ -z "$sandbox" ] || { kill -KILL "$sandbox" && wait "$sandbox"; } 2>/dev/null
  rm -rf "$state"
}
trap cleanup EXIT
# The daemon's log goes nowhere: a plain file stands in for /dev/log inside the sandbox.
: >"$state/no-log"
unshare --mount --net --pid --kill-child --mount-proc --propagation private -- /bin/sh \
  "$here/sandbox.sh" --state "$state" --daemon "$build/zorvik" --log-socket "$state/no-log" \
  --private-net >"$state/sandbox.log" 2>&1 &
sandbox=$!
for _ in $(seq 200); do [ -e "$state/ready" ] && break; sleep 0.1; done
[ -e "$state/ready" ] || { echo "the sandbox did not come up:"; cat "$state/sandbox.log"; exit 1; }
echo "start examples" >"$state/control"
export PATH="$build:$PATH"
online() { nsenter -t "$sandbox" -n sh -c "$1"; }
# shellcheck disable=SC2016 # the inner shell expands its own $1
offline() { unshare --net sh -c 'ip link set lo up && exec sh -c "$1"' - "$1"; }
for _ in $(seq 200); do online 'zorvikctl count' >/dev/null 2>&1 && break; sleep 0.1; done

awk '/^```console( offline)?$/ { inside = 1; print; next }
     /^```/ { inside = 0 }
     inside' "$file" >"$state/expected"
grep -q '^\$ ' "$state/expected" || { echo "no console examples in $file"; exit 1; }
mode=online
while IFS= read -r line; do
  case $line in
    '```console offline') mode=offline; echo "$line" ;;
    '```console') mode=online; echo "$line" ;;
    '$ '*)
      echo "$line"
      "$mode" "${line#\$ }" </dev/null >"$state/output" 2>&1
      status=$?
      cat "$state/output"
      [ "$status" -eq 0 ] || echo "[exit $status]" ;;
  esac
done <"$state/expected" >"$state/actual"
diff -u --label "expected: $file" --label "actual" "$state/expected" "$state/actual" || exit 1
echo "doc_examples.sh: all $(grep -c '^\$ ' "$state/expected") examples of $file match"
