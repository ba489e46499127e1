#!/usr/bin/env bash
# Builds the crypto benchmark on both sides and runs it: natively against OpenSSL, then the
# Windows build under Wine against Wine's software provider. Prints the machine and both tables.
#   scripts/bench.sh [generations]   RSA key generations per side (default 7)
# Benchmarks are never part of the test suite; run this on a machine as quiet as you can get.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
jobs=${NIVRA_JOBS:-$(nproc)}
build=${NIVRA_BUILD_DIR:-$top/build}
generations=${1:-7}

configure() {  # configure <dir> [cmake args...]; reconfigures only when needed
  local dir=$1; shift
  [ -f "$dir/build.ninja" ] || cmake -S "$top" -B "$dir" -G Ninja "$@" >/dev/null
}
configure "$build/native"
configure "$build/win64" -DCMAKE_TOOLCHAIN_FILE="$top/cmake/mingw-w64-x86_64.cmake"
cmake --build "$build/native" -j "$jobs" --target crypto_bench
cmake --build "$build/win64" -j "$jobs" --target crypto_bench
"$top/scripts/wine-prefix.sh" "$build/win64/wineprefix"

echo
echo "Machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //'), $(nproc) cores"
echo "Load average before the run: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "Date: $(date -u '+%Y-%m-%d %H:%M UTC')"
echo
echo "## Native build against OpenSSL"
echo
"$build/native/tools/bench/crypto_bench" "$generations"
echo
echo "## Windows build under Wine against the Windows software provider"
echo
WINEPREFIX="$build/win64/wineprefix" WINEDEBUG=-all wine "$build/win64/crypto_bench.exe" "$generations"
