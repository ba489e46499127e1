#!/usr/bin/env bash
# Saves screenshots of the PIN dialog and the card selection dialog in English, Simplified Chinese
# and Traditional Chinese to docs/screenshots/{pin,select-card}-dialog-{en,zh-CN,zh-TW}.png. Each
# language is the system language of its run (LANG and LC_ALL), so the pictures show what the
# provider picks by itself.
#
# Needs a built Windows tree (scripts/build.sh, or NIVRA_BUILD_DIR for another build directory).
# Runs in a Wine prefix of its own next to the test prefix, on a private X server sized to the
# dialog, so it never disturbs tests or a desktop. Without a window manager Wine draws the title
# bar itself once windows are unmanaged; that prefix also serves Wine's Chinese font names from
# WenQuanYi Micro Hei (fonts-wqy-microhei) and installs Wine's Marlett for the close box.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
build=${NIVRA_BUILD_DIR:-$top/build}/win64
tool="$build/pin-dialog-shot.exe"
out="$top/docs/screenshots"
[ -f "$tool" ] || { echo "ui-screenshots: $tool is missing; build first" >&2; exit 1; }
for program in Xvfb import wine; do
  command -v "$program" >/dev/null ||
    { echo "ui-screenshots: $program is missing (scripts/setup.sh)" >&2; exit 1; }
done

export WINEPREFIX="$build/wineprefix-screenshots"
export WINEDEBUG=-all
export WINEDLLOVERRIDES="mscoree,mshtml="
"$top/scripts/wine-prefix.sh" "$WINEPREFIX"

if [ ! -f "$WINEPREFIX/.nivra-screenshot-settings" ]; then
  wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null
  # Under Chinese locales Wine maps the shell dialog font to SimSun or PMingLiU; the Western faces
  # link to the same names for Chinese glyphs. Serve all of them from WenQuanYi Micro Hei.
  for face in SimSun PMingLiU "Microsoft YaHei UI" "Microsoft JhengHei UI"; do
    wine reg add 'HKCU\Software\Wine\Fonts\Replacements' /v "$face" /d "WenQuanYi Micro Hei" \
      /f >/dev/null
  done
  fonts="$WINEPREFIX/drive_c/windows/Fonts"
  mkdir -p "$fonts"
  cp /usr/share/wine/fonts/marlett.ttf "$fonts/"  # fonts-wine; without it the close box shows "r"
  wineserver -w
  touch "$WINEPREFIX/.nivra-screenshot-settings"
fi

# Xvfb picks a free display itself and reports its number on descriptor 3.
log=$(mktemp)
display_file=$(mktemp)
Xvfb -displayfd 3 -screen 0 800x480x24 -nolisten tcp 3>"$display_file" >/dev/null 2>&1 &
xvfb_pid=$!
cleanup() {
  wineserver -k >/dev/null 2>&1 || true
  kill "$xvfb_pid" 2>/dev/null || true
  rm -f "$log" "$display_file"
}
trap cleanup EXIT
for _ in $(seq 100); do [ -s "$display_file" ] && break; sleep 0.1; done
[ -s "$display_file" ] || { echo "ui-screenshots: Xvfb did not start" >&2; exit 1; }
export DISPLAY=":$(head -n1 "$display_file")"

mkdir -p "$out"
status=0
for dialog in pin select-card; do
  for run in "en en_US.UTF-8" "zh-CN zh_CN.UTF-8" "zh-TW zh_TW.UTF-8"; do
    set -- $run
    name=$1 locale=$2
    shot="$out/$dialog-dialog-$name.png"
    : >"$log"
    LANG=$locale LC_ALL=$locale wine "$tool" --dialog="${dialog%-card}" --retries=3 \
      --hold-ms=4000 >"$log" 2>&1 &
    tool_pid=$!
    for _ in $(seq 300); do grep -q ready "$log" && break; sleep 0.1; done
    if grep -q ready "$log"; then
      sleep 1  # let the dialog finish painting
      geometry=$(sed -n 's/^ready \([0-9x+]*\).*/\1/p' "$log")
      import -window root ${geometry:+-crop "$geometry"} +repage "$shot"
      echo "ui-screenshots: $shot"
    else
      echo "ui-screenshots: the $dialog dialog did not appear under $locale" >&2
      status=1
    fi
    wait "$tool_pid" || status=1
  done
done
exit $status
