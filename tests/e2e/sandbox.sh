#!/bin/sh
# A private router for the unmodified daemon, run by root as the first process of new namespaces
# (SIGKILL to unshare ends it and everything inside):
#   unshare --mount --net --pid --kill-child --mount-proc --propagation private -- \
#     sh sandbox.sh STATE DAEMON_BINARY [--private-net]
# Overlays on /usr and /etc add stub router programs (stub.sh) and an empty factory scene file;
# STATE/etc-zorvik is /etc/zorvik, STATE/tmp is /tmp (its ntp.status trusts the clock), STATE is
# /usr/lib/zorvik-sandbox, and messages sent to /dev/log go to STATE/syslog, one a line.
# --private-net brings up loopback and a bridge br-lan, 192.168.31.1/24, whose one neighbour is
# 192.168.31.23 at aa:bb:cc:dd:ee:ff. Then the FIFO STATE/control (STATE/ready tells it is there)
# takes "start NAME [NOFILE]" (a daemon, with that descriptor limit) and "stop NAME" (SIGKILL). An
# instance leaves STATE/daemon/NAME.pid (its pid inside), .stdout, .stderr and, at its end, .status.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
state=$1
inside=/usr/lib/zorvik-sandbox

# Writes under $1 land in $state/$2-upper, never on the host.
overlay() {
  mkdir -p "$state/$2-upper" "$state/$2-work"
  mount -t overlay "zorvik-$2" -o "lowerdir=$1,upperdir=$state/$2-upper,workdir=$state/$2-work" "$1"
}

overlay /usr usr
overlay /etc etc
[ -L /sbin ] || overlay /sbin sbin
for program in /usr/sbin/vantpost /usr/sbin/teldra /usr/sbin/qumbe /usr/sbin/pellway \
  /usr/sbin/nvram /usr/sbin/reboot_safe.sh /sbin/wifi /usr/bin/curl /usr/bin/logger; do
  install -m 755 "$here/stub.sh" "$program"
done
mkdir -p /usr/share/zorvik /etc/zorvik "$inside" "$state/etc-zorvik" "$state/stub" \
  "$state/daemon" "$state/tmp"
: >/usr/share/zorvik/zorvik.conf
echo "ntp status OK" >"$state/tmp/ntp.status"
: >>"$state/calls.log"
mount --bind "$state/etc-zorvik" /etc/zorvik
touch /usr/sbin/zorvik
mount --bind "$2" /usr/sbin/zorvik
mount --bind "$state" "$inside"
# syslog() blocks once a few datagrams lie unread: a drain reads /dev/log while the sandbox lives.
mount -t tmpfs -o mode=755,nosuid zorvik-dev /dev
mknod -m 666 /dev/null c 1 3
mknod -m 666 /dev/urandom c 1 9
perl -MSocket -e 'socket(S, PF_UNIX, SOCK_DGRAM, 0) && bind(S, pack_sockaddr_un("/dev/log"))
  or die "/dev/log: $!\n"; $| = 1; while (defined recv(S, $m, 65536, 0)) {
  $m =~ s/^<\d+>.*?\]: //; print $m }' >>"$inside/syslog" 2>&1 &
while [ ! -S /dev/log ]; do sleep 0.05; done
if [ "${3-}" = --private-net ]; then
  ip link set lo up
  ip link add br-lan type bridge
  ip addr add 192.168.31.1/24 dev br-lan
  ip link set br-lan up
  ip neigh replace 192.168.31.23 lladdr aa:bb:cc:dd:ee:ff dev br-lan nud permanent
fi
# Last: this hides whatever the host keeps under /tmp, $state included.
mount --rbind "$state/tmp" /tmp
export PATH=/usr/sbin:/usr/bin:/sbin:/bin
cd /

mkfifo "$inside/control"
# Open for reading and writing, so that writers may come and go without an end of file.
exec 3<>"$inside/control"
: >"$inside/ready"
while read -r verb name limit <&3; do
  out=$inside/daemon/$name
  case $verb in
    start) (
      set +e
      [ -z "$limit" ] || ulimit -n "$limit"
      sh -c 'echo $$ >"$1.pid"; exec /usr/sbin/zorvik' - "$out" >"$out.stdout" 2>"$out.stderr"
      echo $? >"$out.new" && mv "$out.new" "$out.status"
    ) 3<&- & ;;
    stop) kill -9 "$(cat "$out.pid")" 2>/dev/null || true ;;
    *) echo "sandbox.sh: unknown command $verb" >&2 ;;
  esac
done
