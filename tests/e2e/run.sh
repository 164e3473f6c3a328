#!/usr/bin/env bash
# run.sh CASE BIN_DIR...: plays an end-to-end case against the unmodified daemon (zorvik, with
# zorvikctl, in the BIN_DIRs) in a sandbox of its own; exits 0 when it passed, 1 when it failed,
# 77 when no sandbox can run here. A case is a transcript, played once instance "zorvik" answers:
#   $ COMMAND   bash in the sandbox's network, BIN_DIRs on PATH; "> MORE" lines continue it
#   OUTPUT      the command's standard output and error, line by line, exactly, then
#               "[exit N]" when its exit status N is not 0
#   ran: CALL   the next call of a stub program or sibling service, exactly; if a case has ran:
#               lines, no call may be left unchecked at its end
#   # TEXT      a comment (as are blank lines)
# Commands see $STATE (the sandbox's folder; its syslog holds the daemon's log), $PROC (/proc of
# the instance started last) and: start NAME [NOFILE] (an instance, answering), stop NAME
# (SIGKILL), ended NAME (prints its exit status and standard error), within CODE (runs CODE until
# it succeeds, for up to 10 s), frame METHOD TEXT (a framed call), pad SIZE (a get_scene_count
# request whose call is SIZE bytes) and ask [N] (sends standard input on a connection of its
# own and prints, N times, the reply's kind, name and fields, "silent" or "closed").
here=$(cd "$(dirname "$0")" && pwd)
case=$1
shift
if [ -z "$ZORVIK_SANDBOX" ]; then
  skip() { echo "skipped: $*" && exit 77; }
  [ "$(id -u)" = 0 ] || skip "the sandbox needs root"
  for tool in unshare nsenter ip perl; do command -v $tool >/dev/null || skip "no $tool here"; done
  unshare -m -n -p -f true 2>/dev/null || skip "this machine refuses new namespaces"
  for dir; do [ ! -x "$dir/zorvik" ] || daemon=$dir/zorvik; done
  STATE=$(mktemp -d "${TMPDIR:-/tmp}/zorvik-e2e.XXXXXX")
  if [[ $case == *.md ]]; then
    awk '/^```/ { on = /^```console/; next } on' "$case" >"$STATE/examples.t" && case=$STATE/examples.t
  fi
  unshare --mount --net --pid --kill-child --mount-proc --propagation private -- \
    sh "$here/sandbox.sh" "$STATE" "${daemon:?no zorvik in $*}" --private-net \
    >"$STATE/sandbox.log" 2>&1 &
  sandbox=$!
  export ZORVIK_SANDBOX=$sandbox STATE
  trap '{ kill -9 $sandbox; wait $sandbox; } 2>/dev/null; sleep 0.2; rm -rf "$STATE"' EXIT
  trap 'exit 1' INT TERM
  for _ in $(seq 100); do [ ! -e "$STATE/ready" ] && kill -0 $sandbox && sleep 0.1; done
  [ -e "$STATE/ready" ] || { echo "no sandbox:" && cat "$STATE/sandbox.log" && exit 1; }
  nsenter -t $sandbox -n -- bash "$0" "$case" "$@"
  exit
fi

export LC_ALL=C PATH=$(IFS=:; echo "$*"):$PATH
trap 'kill -9 $(jobs -p) 2>/dev/null; [ "$at" = end ] || echo "$case:$at: the case ended here"' EXIT
failed=0 calls=0 command= line=0 at=0 expected=()

ended() {
  within "[ -e '$STATE/daemon/$1.status' ]"
  echo "$1 ended: $(cat "$STATE/daemon/$1.status")" && cat "$STATE/daemon/$1.stderr"
}
stop() { echo "stop $1" >"$STATE/control" && ended "$1" >/dev/null; }
serving() { [ "$(frame ping '' | ask | head -1)" = "exception ping" ]; }
start() {
  rm -f "$STATE/daemon/$1.status" && echo "start $*" >"$STATE/control"
  within "[ -e '$STATE/daemon/$1.status' ] || serving" || { echo "$1 does not answer" && return 1; }
  [ ! -e "$STATE/daemon/$1.status" ] || { ended "$1" && return 1; }
  PROC=/proc/$ZORVIK_SANDBOX/root/proc/$(cat "$STATE/daemon/$1.pid")
}
be32() { printf "$(printf %08x "$1" | sed 's/../\\x&/g')"; }
frame() {
  be32 $((20 + ${#1} + ${#2})) && printf '\x80\x01\x00\x01' && be32 ${#1}
  printf '%s\0\0\0\0\x0b\0\x01' "$1" && be32 ${#2} && printf '%s\0' "$2"
}
pad() { printf '{"command":"get_scene_count","pad":"%*s"}' $(($1 - 65)) "" | tr ' ' x; }
ask() {
  perl -MIO::Socket::INET -MTime::HiRes=alarm -e '$SIG{PIPE} = "IGNORE"; local $/;
    my $c = IO::Socket::INET->new("127.0.0.1:9096") or print("refused\n"), exit;
    print $c <STDIN>;
    $SIG{ALRM} = sub { print "silent\n"; exit };
    for (1 .. shift) {
      alarm 1.5;
      read($c, my $size, 4) == 4 or print("closed\n"), exit;
      read($c, my $message, unpack("N", $size));
      alarm 0;
      my ($kind, $name, $fields) = unpack("x3 C N/a x4 a*", $message);
      print((qw(call reply exception))[$kind - 1], " $name\n");
      while (ord($fields) != 0) {
        ((my $value), $fields) = unpack(ord($fields) == 11 ? "x3 N/a a*" : "x3 N a*", $fields);
        print "$value\n";
      }
    }' "${1:-1}"
}

fail() { echo "$case:$at: $*" && failed=1; }
run_command() {
  [ -n "$command" ] || return 0
  if [ ${#expected[@]} -gt 0 ]; then printf '%s\n' "${expected[@]}"; fi >"$STATE/expected"
  eval "$command" </dev/null >"$STATE/output" 2>&1 || echo "[exit $?]" >>"$STATE/output"
  diff "$STATE/expected" "$STATE/output" >"$STATE/diff" || fail "\$ $command"$'\n'"$(cat "$STATE/diff")"
  command= expected=()
}
within() { for _ in $(seq 100); do eval "$1" && return; sleep 0.1; done; false; }  # 10 s

start zorvik || fail "no daemon"
while IFS= read -r text || [ -n "$text" ]; do
  line=$((line + 1))
  case $text in
    '> '*) command+=$'\n'${text#> } && continue ;;
    '$ '* | 'ran: '* | '#'* | '') run_command && at=$line ;;
  esac
  case $text in
    '$ '*) command=${text#\$ } ;;
    'ran: '*) within 'got=$(sed -n "$((calls + 1))p" "$STATE/calls.log") && [ -n "$got" ]'
      calls=$((calls + 1))
      [ "$got" = "${text#ran: }" ] || fail "ran: ${got:-nothing}"$'\n'"expected: ${text#ran: }" ;;
    '#'* | '') ;;
    *) expected+=("$text") ;;
  esac
done <"$case"
run_command
at=end
unchecked=$(tail -n +$((calls + 1)) "$STATE/calls.log")
[ -z "$unchecked" ] || [ $calls = 0 ] || fail "also ran:"$'\n'"$unchecked"
[ $failed = 0 ] && echo "$case: passed"
