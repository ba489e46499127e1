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
xvfb_pid=
if [ -z "${DISPLAY:-}" ]; then
  for n in $(seq 90 120); do
    [ -e "/tmp/.X11-unix/X$n" ] || [ -e "/tmp/.X$n-lock" ] && continue
    Xvfb ":$n" -screen 0 1024x768x24 -nolisten tcp >/dev/null 2>&1 &
    xvfb_pid=$!
    export DISPLAY=":$n"
    break
  done
  for _ in $(seq 50); do [ -e "/tmp/.X11-unix/X${DISPLAY#:}" ] && break; sleep 0.1; done
fi
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  [ -n "$xvfb_pid" ] && kill "$xvfb_pid" 2>/dev/null || true
}
trap cleanup EXIT
# One wineserver for the whole run: between two short test programs an idle wineserver may be
# exiting just as the next program connects ("recvmsg: Connection reset by peer").
"$top/scripts/wine-prefix.sh" "$WINEPREFIX"
wineserver -p
ctest --test-dir "$build/win64" -j "$jobs" --output-on-failure || status=1
exit $status
