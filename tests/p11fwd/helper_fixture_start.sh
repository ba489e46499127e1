#!/bin/sh
# Starts nivra-p11-helper for the Windows tests: a fresh SoftHSM2 token in <dir>/tokens (its own
# configuration, never the machine's token store), the helper on a free loopback port written to
# <dir>/port, its process id in <dir>/helper.pid and its output in <dir>/helper.log.
# Further arguments are the labels of more tokens, initialised the same way in the next free
# slots.
# Usage: helper_fixture_start.sh <nivra-p11-helper> <dir> [label...]
set -eu
helper=$1
dir=$2
shift 2
if [ ! -x "$helper" ]; then
  echo "helper program not built: $helper (build the native tree first)" >&2
  exit 1
fi
if [ -f "$dir/helper.pid" ]; then
  kill "$(cat "$dir/helper.pid")" 2>/dev/null || true
fi
rm -rf "$dir"
sh "$(dirname "$0")/../scratch_tokens.sh" "$dir" nivra-fwd "$@"
export SOFTHSM2_CONF="$dir/softhsm2.conf"
# Detached from CTest's output pipes, or CTest would wait for the helper to end.
setsid "$helper" --listen 127.0.0.1:0 --port-file "$dir/port" </dev/null >"$dir/helper.log" 2>&1 &
echo $! > "$dir/helper.pid"
for _ in $(seq 100); do
  [ -s "$dir/port" ] && exit 0
  kill -0 "$(cat "$dir/helper.pid")" 2>/dev/null || break
  sleep 0.1
done
echo "helper did not start:" >&2
cat "$dir/helper.log" >&2
exit 1
