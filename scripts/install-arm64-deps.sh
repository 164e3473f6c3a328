#!/usr/bin/env bash
# Prepares this Debian machine for the 64-bit Arm cross build, next to the native tool chain:
#   install-arm64-deps.sh LIBEVENT_DIR
# installs the packages of packages-arm64.txt that are missing (the arm64 cross compiler, qemu,
# and the arm64 "multiarch" builds of the libraries), and unpacks libevent's arm64 development
# files into LIBEVENT_DIR. The Thrift compiler stays the native one: it only writes C++.
#
# libevent-dev cannot be installed for two architectures at once (Debian 12 keeps one of its
# headers outside the per-architecture folders), and the native build needs the amd64 one. So
# only libevent's arm64 run-time library is installed; its arm64 headers, .pc files and .so links
# are unpacked into LIBEVENT_DIR, with the .pc files pointing there and the links pointing at the
# installed run-time library. apt-get is told never to remove a package, so the native build can
# never lose one of its packages to an arm64 one.
# A second run with everything in place does nothing.
set -euo pipefail
readonly ARM64_LIB_DIR=/usr/lib/aarch64-linux-gnu
here="$(cd "$(dirname "$0")" && pwd)"
libevent_dir="${1:?usage: install-arm64-deps.sh LIBEVENT_DIR}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"

add_arm64_architecture() {
  dpkg --print-foreign-architectures | grep -qx arm64 && return 0
  echo "adding the arm64 package architecture"
  $sudo dpkg --add-architecture arm64
}

install_missing_packages() {
  local missing=() pkg
  while read -r pkg; do
    [ -z "$pkg" ] && continue
    dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" ||
      missing+=("$pkg")
  done <"$here/packages-arm64.txt"
  [ ${#missing[@]} -eq 0 ] && return 0
  echo "installing: ${missing[*]}"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends --no-remove \
    "${missing[@]}"
}

unpack_libevent_dev() {
  local version stamp deb_dir link
  version="$(dpkg-query -W -f='${Version}' libevent-2.1-7:arm64)"
  stamp="$libevent_dir/.version"
  [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$version" ] && return 0
  echo "unpacking libevent-dev:arm64 $version into $libevent_dir"
  rm -rf "$libevent_dir"
  mkdir -p "$libevent_dir"
  libevent_dir="$(cd "$libevent_dir" && pwd)"
  deb_dir="$(mktemp -d)"
  # apt downloads as its own unprivileged user where it can.
  id _apt >/dev/null 2>&1 && $sudo chown _apt "$deb_dir"
  (cd "$deb_dir" && apt-get download -qq "libevent-dev:arm64=$version")
  dpkg-deb -x "$deb_dir"/libevent-dev_*_arm64.deb "$libevent_dir"
  rm -rf "$deb_dir"
  sed -i "s|^prefix=/usr\$|prefix=$libevent_dir/usr|" "$libevent_dir$ARM64_LIB_DIR"/pkgconfig/*.pc
  for link in "$libevent_dir$ARM64_LIB_DIR"/*.so; do
    ln -sfn "$ARM64_LIB_DIR/$(readlink "$link")" "$link"
  done
  echo "$version" >"$libevent_dir/.version"
}

add_arm64_architecture
install_missing_packages
unpack_libevent_dev
