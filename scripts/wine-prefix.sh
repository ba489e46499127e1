#!/bin/sh
# Creates the Wine prefix given as $1 once; later calls return at once. Safe to call concurrently.
prefix="$1"
[ -f "$prefix/system.reg" ] && exit 0
mkdir -p "$(dirname "$prefix")"
(
  flock 9
  if [ ! -f "$prefix/system.reg" ]; then
    WINEPREFIX="$prefix" WINEDEBUG=-all WINEDLLOVERRIDES="mscoree,mshtml=" wineboot -i >/dev/null 2>&1
    # Without a window manager Wine waits for one each time a dialog closes; unmanaged windows
    # close at once.
    WINEPREFIX="$prefix" WINEDEBUG=-all wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1
    WINEPREFIX="$prefix" wineserver -w
  fi
) 9>"$prefix.lock"
[ -f "$prefix/system.reg" ]
