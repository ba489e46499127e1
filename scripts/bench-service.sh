#!/usr/bin/env bash
# Measures the card service road: starts the forwarding helper and nivra-card-service on one
# scratch SoftHSM2 token, registers the provider's test build (service port from the
# environment) and the forwarding module in a Wine prefix of the benchmark's own, and runs
# service_bench, which prints one table (see docs/performance.md).
#   scripts/bench-service.sh [signatures]   (default 30 per road)
# Benchmarks are never part of the test suite; run this on a machine as quiet as you can get.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
jobs=${NIVRA_JOBS:-$(nproc)}
build=${NIVRA_BUILD_DIR:-$top/build}
signatures=${1:-30}
configure() {  # configure <dir> [cmake args...]; reconfigures only when needed
  local dir=$1; shift
  [ -f "$dir/build.ninja" ] || cmake -S "$top" -B "$dir" -G Ninja "$@" >/dev/null
}
configure "$build/native"
configure "$build/win64" -DCMAKE_TOOLCHAIN_FILE="$top/cmake/mingw-w64-x86_64.cmake"
cmake --build "$build/native" -j "$jobs" --target nivra-card-service nivra-p11-helper
cmake --build "$build/win64" -j "$jobs" --target service_bench nivracsp_svctest nivrap11fwd

work=$(mktemp -d)
export WINEPREFIX="$build/bench-prefix" WINEDEBUG=-all
cleanup() {
  sh "$top/tests/service/fixture_stop.sh" "$top" "$work/helper" "$work/service" || true
  wineserver -k >/dev/null 2>&1 || true
  rm -rf "$work"
}
trap cleanup EXIT
sh "$top/tests/service/fixture_start.sh" "$top" "$build/native/tools/p11helper/nivra-p11-helper" \
  "$work/helper" "$build/native/cardservice/nivra-card-service" "$work/service"
"$top/scripts/wine-prefix.sh" "$WINEPREFIX"
windir=$(winepath -w "$build/win64")
wine reg add 'HKLM\SOFTWARE\NivraCSP' /v LibPkcs11 /d "$windir\\nivrap11fwd.dll" /f >/dev/null
wine regsvr32 /s "$windir\\nivracsp_svctest.dll"
export NIVRA_P11_HELPER="127.0.0.1:$(cat "$work/helper/port")"
export NIVRA_TEST_SERVICE_PORT="$(cat "$work/service/port")"
# The token's slot as both roads name it: its SoftHSM2 slot description.
slot=$(SOFTHSM2_CONF="$work/helper/softhsm2.conf" softhsm2-util --show-slots |
  awk '/Description:/ { sub(/^[^:]*: */, ""); sub(/ *$/, ""); d = $0 } /Label: *nivra-fwd/ { print d; exit }')

echo
echo "Machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //'), $(nproc) cores"
echo "Load average before the run: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "Date: $(date -u '+%Y-%m-%d %H:%M UTC')"
echo
wine "$build/win64/service_bench.exe" "$slot" 1234 "$signatures"
