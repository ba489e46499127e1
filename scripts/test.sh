#!/usr/bin/env bash
# Builds everything and runs every test: native unit tests first (fast), then the Windows tests
# under Wine with one private X server for the whole run.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/build.sh"
jobs=${NIVRA_JOBS:-$(nproc)}
build=${NIVRA_BUILD_DIR:-$top/build}
status=0
ctest --test-dir "$build/native" -j "$jobs" --output-on-failure || status=1

export WINEPREFIX="$build/win64/wineprefix"
# Wine's own error lines stay in the output, so a program or DLL that fails to start says why.
export WINEDEBUG="${WINEDEBUG:-fixme-all}"
. "$top/scripts/display.sh"
start_private_display
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  stop_private_display
}
trap cleanup EXIT
# One wineserver for the whole run: between two short test programs an idle wineserver may be
# exiting just as the next program connects ("recvmsg: Connection reset by peer").
"$top/scripts/wine-prefix.sh" "$WINEPREFIX"
wineserver -k >/dev/null 2>&1 || true  # a session left on another display cannot show windows
wineserver -w
wineserver -p
# Start the session's own processes (services, device drivers) now, with no terminal: started by
# the first test instead, they would keep that test's output pipe open for the whole run.
wine cmd /c exit </dev/null >/dev/null 2>&1 || true
ctest --test-dir "$build/win64" -j "$jobs" --output-on-failure || status=1
exit $status
