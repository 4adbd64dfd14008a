#!/usr/bin/env bash
# Installs what a fresh machine lacks: the Redis server and the hiredis, GoogleTest,
# build and fuzzing tools from Debian, and the npm dev dependencies. Safe to run again.
#   bash scripts/install-deps.sh          everything the tests and benchmarks use
#   bash scripts/install-deps.sh --demo   only what the demo and examples use: a
#                                         server, the build tools and hiredis
set -euo pipefail
cd "$(dirname "$0")/.."
demo_only=false
[ "${1:-}" = "--demo" ] && demo_only=true

missing=()
command -v redis-server >/dev/null 2>&1 || missing+=(redis-server)
[ -f /usr/include/hiredis/hiredis.h ] || missing+=(libhiredis-dev)
command -v cmake >/dev/null 2>&1 || missing+=(cmake)
command -v g++ >/dev/null 2>&1 || missing+=(g++)
if ! $demo_only; then
  command -v redis-cli >/dev/null 2>&1 || missing+=(redis-tools)
  [ -f /usr/include/gtest/gtest.h ] || missing+=(libgtest-dev)
  # OpenSSL for the C++ tests of TLS, and its command to make their certificates.
  [ -f /usr/include/openssl/ssl.h ] || missing+=(libssl-dev)
  command -v openssl >/dev/null 2>&1 || missing+=(openssl)
  # clang and its libFuzzer runtime, for the library's fuzz targets.
  command -v clang++ >/dev/null 2>&1 || missing+=(clang)
  compgen -G '/usr/lib/llvm-*/lib/clang/*/lib/linux/libclang_rt.fuzzer-x86_64.a' >/dev/null ||
    missing+=(libclang-rt-dev)
fi
if [ ${#missing[@]} -gt 0 ]; then
  echo "install-deps: installing ${missing[*]}"
  sudo=""
  [ "$(id -u)" -eq 0 ] || sudo="sudo"
  $sudo apt-get update -qq
  DEBIAN_FRONTEND=noninteractive $sudo apt-get install -y -qq "${missing[@]}" >/dev/null
fi

$demo_only && exit 0

# npm dev dependencies (test clients, benchmark peers, type checker).
if [ ! -f node_modules/.package-lock.json ] || [ package.json -nt node_modules/.package-lock.json ]; then
  echo "install-deps: npm install"
  npm install --ignore-scripts --no-audit --no-fund --loglevel=error
fi
