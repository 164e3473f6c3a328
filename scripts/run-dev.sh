#!/usr/bin/env bash
# Starts the daemon built in the given build folder.
set -euo pipefail
build="${1:-build}"
if [ ! -x "$build/zorvik" ]; then
  echo "zorvik is not built yet: there is no daemon to run."
  exit 1
fi
exec "$build/zorvik"
