#!/bin/sh
# Stops the helper that helper_fixture_start.sh started in <dir> and removes its token.
# Usage: helper_fixture_stop.sh <dir>
set -u
dir=$1
if [ -f "$dir/helper.pid" ]; then
  pid=$(cat "$dir/helper.pid")
  kill "$pid" 2>/dev/null
  for _ in $(seq 50); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  kill -9 "$pid" 2>/dev/null
fi
rm -rf "$dir"
exit 0
