# Sourced by scripts that run Windows programs: gives them one private X server for the whole
# run when none is set. (A Wine session keeps the display it started with; a new X server per
# program would leave later programs' windows on a display that no longer exists.)
#   start_private_display   sets DISPLAY; stop_private_display ends the server it started.
nivra_xvfb_pid=
start_private_display() {
  [ -n "${DISPLAY:-}" ] && return 0
  local n
  for n in $(seq 90 140); do
    [ -e "/tmp/.X11-unix/X$n" ] || [ -e "/tmp/.X$n-lock" ] && continue
    Xvfb ":$n" -screen 0 1024x768x24 -nolisten tcp >/dev/null 2>&1 &
    nivra_xvfb_pid=$!
    export DISPLAY=":$n"
    break
  done
  for _ in $(seq 50); do [ -e "/tmp/.X11-unix/X${DISPLAY#:}" ] && break; sleep 0.1; done
}
stop_private_display() {
  [ -n "$nivra_xvfb_pid" ] && kill "$nivra_xvfb_pid" 2>/dev/null || true
  nivra_xvfb_pid=
}
