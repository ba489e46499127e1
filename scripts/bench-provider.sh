#!/usr/bin/env bash
# Measures the provider itself on a SoftHSM2 token under Wine (tools/bench/provider_bench.cpp):
# CryptSignHash beside the same signature made through the same PKCS#11 module and forwarding
# link directly, acquire + sign + release through the loader, and CryptVerifySignature beside
# Wine's own provider. The token, helper and Wine prefix are prepared as for the command-line
# tests, in a directory of their own under the build tree.
#   scripts/bench-provider.sh [signatures]   (default 200)
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
jobs=${NIVRA_JOBS:-$(nproc)}
build=${NIVRA_BUILD_DIR:-$top/build}
[ -f "$build/win64/build.ninja" ] || "$top/scripts/build.sh"
cmake --build "$build/native" -j "$jobs" --target nivra-p11-helper
cmake --build "$build/win64" -j "$jobs" --target provider_bench nivracsp nivrap11fwd
dir="$build/win64/bench-provider"
sh "$top/tests/nivracli/cli_fixture_start.sh" "$top" "$build/native" "$build/win64" "$dir"
trap 'sh "$top/tests/nivracli/cli_fixture_stop.sh" "$top" "$dir"' EXIT
export WINEPREFIX="$dir/wineprefix" WINEDEBUG=-all NIVRA_P11_HELPER="127.0.0.1:$(cat "$dir/helper/port")"
slot=$(SOFTHSM2_CONF="$dir/helper/softhsm2.conf" pkcs11-tool --module /usr/lib/softhsm/libsofthsm2.so -L |
  sed -n 's/^Slot [0-9]* (0x[0-9a-f]*): *//p' | head -1 | sed 's/ *$//')
echo "Machine: $(grep -m1 'model name' /proc/cpuinfo | cut -d: -f2- | sed 's/^ //'), $(nproc) cores"
echo "Load average before the run: $(cut -d' ' -f1-3 /proc/loadavg)"
echo "Date: $(date -u '+%Y-%m-%d %H:%M UTC')"
echo
wine "$build/win64/provider_bench.exe" "$slot" 1234 "${1:-200}" | tr -d '\r'
echo
echo "Load average after the run: $(cut -d' ' -f1-3 /proc/loadavg)"
