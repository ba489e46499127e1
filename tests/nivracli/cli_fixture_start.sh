#!/bin/sh
# Prepares the command-line tests: a helper with a fresh SoftHSM2 token in <dir>/helper (label
# "nivra-fwd", PINs 1234 and 5678), and a Wine prefix of their own in <dir>/wineprefix, in which
# the provider is registered with regsvr32 and "LibPkcs11" names the forwarding module (the
# machine settings the client meets as an application does). The prefix's certificate store
# starts empty; its wineserver stays up until cli_fixture_stop.sh.
# Usage: cli_fixture_start.sh <source dir> <native build dir> <windows build dir> <dir>
set -eu
src=$1
native=$2
win=$3
dir=$4
sh "$src/tests/p11fwd/helper_fixture_start.sh" "$native/tools/p11helper/nivra-p11-helper" "$dir/helper"
export WINEPREFIX="$dir/wineprefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml="
"$src/scripts/wine-prefix.sh" "$WINEPREFIX"
wineserver -p </dev/null >/dev/null 2>&1 || true  # fails when it runs already
# The session's own processes start with the first program and keep its output open: start them
# with none, so that no later step (or CTest) waits for them.
wine cmd /c exit </dev/null >/dev/null 2>&1 || true
wine regsvr32 /s "$(winepath -w "$win/nivracsp.dll")" </dev/null >/dev/null 2>&1
wine reg add 'HKLM\SOFTWARE\NivraCSP' /v LibPkcs11 /d "$(winepath -w "$win/nivrap11fwd.dll")" /f \
  </dev/null >/dev/null 2>&1
wine reg delete 'HKCU\Software\Microsoft\SystemCertificates\My' /f </dev/null >/dev/null 2>&1 || true
# A program that Wine ends (an unimplemented function) gets no crash dialog waiting for a user.
wine reg add 'HKCU\Software\Wine\WineDbg' /v ShowCrashDialog /t REG_DWORD /d 0 /f </dev/null >/dev/null 2>&1
wine reg query 'HKLM\SOFTWARE\Microsoft\Cryptography\Defaults\Provider\Nivra pkcs11 CSP' \
  </dev/null >/dev/null 2>&1
