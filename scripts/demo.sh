#!/usr/bin/env bash
# The main job: build, register nivracsp.dll with the CryptoAPI loader in the build's own Wine
# prefix (regsvr32), and run the command-line client against it through CryptoAPI.
# Extra arguments go to the client, e.g.  scripts/demo.sh --verify  or  scripts/demo.sh '\\.\slot\c1'
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/build.sh"
build=${NIVRA_BUILD_DIR:-$top/build}/win64
run="$build/wine-run.sh"
echo "== registering $build/nivracsp.dll"
"$run" regsvr32 /s "$(winepath -w "$build/nivracsp.dll" 2>/dev/null)"
WINEPREFIX="$build/wineprefix" WINEDEBUG=-all wine reg query \
  'HKLM\SOFTWARE\Microsoft\Cryptography\Defaults\Provider\Nivra pkcs11 CSP' 2>/dev/null | tr -d '\r' | sed '/^$/d'
echo "== nivracli $*"
status=0
"$run" "$build/nivracli.exe" "$@" | tr -d '\r' || status=$?
WINEPREFIX="$build/wineprefix" wineserver -k >/dev/null 2>&1 || true
exit $status
