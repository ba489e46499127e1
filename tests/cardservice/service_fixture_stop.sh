#!/bin/sh
# Stops the service that service_fixture_start.sh started in <dir> (SIGTERM, as a user would) and
# removes the directory; fails when the service does not end cleanly within 5 seconds.
# Usage: service_fixture_stop.sh <dir>
set -u
dir=$1
status=0
if [ -f "$dir/service.pid" ]; then
  pid=$(cat "$dir/service.pid")
  kill "$pid" 2>/dev/null
  for _ in $(seq 50); do
    kill -0 "$pid" 2>/dev/null || break
    sleep 0.1
  done
  if kill -0 "$pid" 2>/dev/null; then
    echo "card service did not stop on SIGTERM" >&2
    kill -9 "$pid" 2>/dev/null
    status=1
  fi
fi
rm -rf "$dir"
exit $status
