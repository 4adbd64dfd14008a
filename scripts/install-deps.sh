#!/usr/bin/env bash
# Installs what a fresh machine lacks: the Redis server and the hiredis, GoogleTest,
# build and fuzzing tools from Debian, and the npm dev dependencies. Safe to run again.
set -euo pipefail
cd "$(dirname "$0")/.."

missing=()
command -v redis-server >/dev/null 2>&1 || missing+=(redis-server)
command -v redis-cli >/dev/null 2>&1 || missing+=(redis-tools)
[ -f /usr/include/hiredis/hiredis.h ] || missing+=(libhiredis-dev)
[ -f /usr/include/gtest/gtest.h ] || missing+=(libgtest-dev)
command -v cmake >/dev/null 2>&1 || missing+=(cmake)
command -v g++ >/dev/null 2>&1 || missing+=(g++)
# clang and its libFuzzer runtime, for the library's fuzz targets.
command -v clang++ >/dev/null 2>&1 || missing+=(clang)
compgen -G '/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a' >/dev/null ||
  missing+=(libclang-rt-dev)
if [ ${#missing[@]} -gt 0 ]; then
  echo "install-deps: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi

# npm dev dependencies (test clients, benchmark peers, type checker).
if [ ! -f node_modules/.package-lock.json ] || [ package.json -nt node_modules/.package-lock.json ]; then
  echo "install-deps: npm install"
  npm install --ignore-scripts --no-audit --no-fund --loglevel=error
fi
