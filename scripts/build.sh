#!/usr/bin/env bash
# Builds both sides: the native tree (crypto library, native tests and test peers) in build/native
# and the Windows tree (nivracsp.dll, Windows tests and tools) in build/win64.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/setup.sh"
jobs=${NIVRA_JOBS:-$(nproc)}
configure() {  # configure <dir> [cmake args...]; reconfigures only when needed
  local dir=$1; shift
  [ -f "$dir/build.ninja" ] || cmake -S "$top" -B "$dir" -G Ninja "$@" >/dev/null
}
build=${NIVRA_BUILD_DIR:-$top/build}
configure "$build/native"
configure "$build/win64" -DCMAKE_TOOLCHAIN_FILE="$top/cmake/mingw-w64-x86_64.cmake"
cmake --build "$build/native" -j "$jobs"
cmake --build "$build/win64" -j "$jobs"
"$top/scripts/wine-prefix.sh" "$build/win64/wineprefix"
