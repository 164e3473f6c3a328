#!/bin/sh
# The inside of a Zorvik sandbox. Run as root as the first process of fresh namespaces:
#   unshare --mount --net --pid --kill-child --mount-proc --propagation private -- \
#     sh sandbox.sh --state DIR --daemon BIN [--data DIR] [--log-socket SOCK] [--private-net]
#     [--foreground]
#
# It gives the daemon a router of its own without touching the host: overlays on /usr and /etc
# (and /sbin where it is not a link into /usr) hold stub router programs and the factory scene
# file, DIR/etc-zorvik (or --data) is /etc/zorvik, DIR/tmp is /tmp, and the daemon binary appears
# as /usr/sbin/zorvik. With --log-socket, /dev is a private tmpfs whose /dev/log is that
# datagram socket (whoever bound it must keep draining it: syslog blocks otherwise). With
# --private-net, loopback comes up and a bridge br-lan (192.168.31.1/24) shows one neighbour,
# 192.168.31.23 at aa:bb:cc:dd:ee:ff, in /proc/net/arp.
#
# DIR is seen inside as /usr/lib/zorvik-sandbox: calls.log (one line per stub call), stub/
# (scripted stub answers, see stub.sh), daemon/ (per daemon instance: NAME.stdout, NAME.stderr,
# NAME.pid, and NAME.status once it ended) and DIR/zorvik.conf (copied as the factory scene
# file when present). DIR/ready appears when the sandbox is set up.
#
# With --foreground the daemon runs in the foreground and the sandbox ends with it; stub calls are
# echoed to standard error. Otherwise the script serves the control FIFO DIR/control, one line
# per command: "start NAME" starts an instance, "stop NAME" kills it (SIGKILL). Stop the whole
# sandbox by killing unshare with SIGKILL.
set -eu

here=$(cd "$(dirname "$0")" && pwd)
inside=/usr/lib/zorvik-sandbox
state= daemon= data= log_socket= private_net= foreground=
while [ $# -gt 0 ]; do
  case $1 in
    --state) state=$2; shift 2 ;;
    --daemon) daemon=$2; shift 2 ;;
    --data) data=$2; shift 2 ;;
    --log-socket) log_socket=$2; shift 2 ;;
    --private-net) private_net=1; shift ;;
    --foreground) foreground=1; shift ;;
    *) echo "sandbox.sh: unknown option $1" >&2; exit 2 ;;
  esac
done
if [ -z "$state" ] || [ -z "$daemon" ]; then
  echo "sandbox.sh: --state and --daemon are required" >&2
  exit 2
fi
[ -n "$data" ] || data=$state/etc-zorvik

# Writes under DIR land in $state/NAME-upper; the host's DIR is never written.
overlay() {
  mkdir -p "$state/$2-upper" "$state/$2-work"
  mount -t overlay "zorvik-$2" -o "lowerdir=$1,upperdir=$state/$2-upper,workdir=$state/$2-work" "$1"
}

install_stubs() {
  for program in /usr/sbin/vantpost /usr/sbin/teldra /usr/sbin/qumbe /usr/sbin/pellway \
    /usr/sbin/nvram /usr/sbin/reboot_safe.sh /sbin/wifi /usr/bin/curl /usr/bin/logger; do
    cp "$here/stub.sh" "$program"
    chmod 755 "$program"
  done
  mkdir -p "$state/stub"
  [ -f "$state/stub/nvram.out" ] || echo "ZV100" >"$state/stub/nvram.out"
}

install_factory_scenes() {
  mkdir -p /usr/share/zorvik
  if [ -f "$state/zorvik.conf" ]; then
    cp "$state/zorvik.conf" /usr/share/zorvik/zorvik.conf
  else
    : >/usr/share/zorvik/zorvik.conf
  fi
}

private_dev() {
  mount -t tmpfs -o mode=755,nosuid zorvik-dev /dev
  mknod -m 666 /dev/null c 1 3
  mknod -m 666 /dev/zero c 1 5
  mknod -m 666 /dev/full c 1 7
  mknod -m 666 /dev/random c 1 8
  mknod -m 666 /dev/urandom c 1 9
  mknod -m 666 /dev/tty c 5 0
  mkdir /dev/pts
  mount -t devpts -o newinstance,ptmxmode=0666,mode=620 zorvik-pts /dev/pts
  ln -s pts/ptmx /dev/ptmx
  ln -s /proc/self/fd /dev/fd
  : >/dev/log
  mount --bind "$log_socket" /dev/log
}

lan() {
  ip link set lo up
  ip link add br-lan type bridge
  ip addr add 192.168.31.1/24 dev br-lan
  ip link set br-lan up
  ip neigh replace 192.168.31.23 lladdr aa:bb:cc:dd:ee:ff dev br-lan nud permanent
}

# One daemon instance in the background; its exit status lands in daemon/NAME.status.
start_daemon() {
  out=$inside/daemon/$1
  (
    set +e
    sh -c 'echo $$ >"$1.pid"; exec /usr/sbin/zorvik' - "$out" >"$out.stdout" 2>"$out.stderr"
    echo $? >"$out.status.new"
    mv "$out.status.new" "$out.status"
  ) &
}

stop_daemon() {
  pid_file=$inside/daemon/$1.pid
  tries=0
  while [ ! -s "$pid_file" ] && [ $tries -lt 50 ]; do
    sleep 0.1
    tries=$((tries + 1))
  done
  [ ! -s "$pid_file" ] || kill -9 "$(cat "$pid_file")" 2>/dev/null || true
}

serve_control() {
  mkfifo "$inside/control"
  # Held open for reading and writing, so that writers may come and go without an end of file.
  exec 3<>"$inside/control"
  : >"$inside/ready"
  while read -r verb name <&3; do
    case $verb in
      start) start_daemon "$name" ;;
      stop) stop_daemon "$name" ;;
      *) echo "sandbox.sh: unknown control command $verb" >&2 ;;
    esac
  done
}

overlay /usr usr
overlay /etc etc
[ -L /sbin ] || overlay /sbin sbin
install_stubs
install_factory_scenes

mkdir -p "$data" /etc/zorvik
mount --bind "$data" /etc/zorvik
touch /usr/sbin/zorvik
mount --bind "$daemon" /usr/sbin/zorvik
mkdir -p "$inside" "$state/daemon" "$state/tmp"
mount --bind "$state" "$inside"
: >>"$state/calls.log"
[ -e "$state/tmp/ntp.status" ] || echo "ntp status OK" >"$state/tmp/ntp.status"

[ -z "$log_socket" ] || private_dev
[ -z "$private_net" ] || lan
# Last: this hides whatever the host keeps under /tmp, $state included.
mount --rbind "$state/tmp" /tmp

export PATH=/usr/sbin:/usr/bin:/sbin:/bin
cd /
if [ -n "$foreground" ]; then
  : >"$inside/echo"
  : >"$inside/ready"
  # The sandbox ends with the daemon.
  /usr/sbin/zorvik
else
  serve_control
fi
