#!/usr/bin/env bash
# Runs one arm64 program under qemu user-mode emulation. The loader and every shared library come
# from the arm64 multiarch packages under / (libc6:arm64 arrives with the arm64 -dev packages).
# The cross tool chain's own C library under /usr/aarch64-linux-gnu is NOT used as the loader's
# root: its ld.so would load the multiarch libc.so.6 of a different build, and such a mix hangs
# in the first pthread_create.
#
# The router's C library gives a new thread 128 KiB of stack by default, far less than the 8 MiB
# of a desktop. glibc takes the default thread stack size from the stack limit, so the limit is
# lowered to 128 KiB here: a thread that needs more than a router would give it crashes in the
# arm64 test run instead of on a router. (qemu keeps its own 8 MiB for the main thread.)
set -euo pipefail
readonly ROUTER_THREAD_STACK_KIB=128
ulimit -s "$ROUTER_THREAD_STACK_KIB"
exec qemu-aarch64-static -L / "$@"
