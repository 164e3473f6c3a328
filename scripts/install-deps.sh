#!/usr/bin/env bash
# Installs the Debian packages listed in packages.txt that are not installed yet.
# A second run with everything present does nothing and takes a fraction of a second.
set -euo pipefail
list="${1:-$(dirname "$0")/packages.txt}"
missing=()
while read -r pkg; do
  [ -z "$pkg" ] && continue
  dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q "install ok installed" || missing+=("$pkg")
done < "$list"
[ ${#missing[@]} -eq 0 ] && exit 0
echo "installing: ${missing[*]}"
sudo=""
[ "$(id -u)" -ne 0 ] && sudo="sudo"
$sudo apt-get update -qq
DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq --no-install-recommends "${missing[@]}"
