#!/bin/bash
# Stops or starts again the card service of a fixture folder (service_fixture_start.sh) on the
# port it had, serving the same token store, for the provider's tests of a service that goes away
# and comes back. Writes <dir>/<action>.done when finished.
# Usage: service_restart.sh stop|start <nivra-card-service> <dir> <softhsm2.conf>
set -u
# Started from a Windows program under Wine: close every descriptor that Wine handed down (its
# server connection among them), so the service started here holds none of them.
for fd in /proc/$$/fd/*; do
  n=${fd##*/}
  [ "$n" -gt 2 ] 2>/dev/null && eval "exec $n>&-" 2>/dev/null
done
action=$1
service=$2
dir=$3
export SOFTHSM2_CONF=$4
rm -f "$dir/$action.done"
if [ "$action" = stop ]; then
  pid=$(cat "$dir/service.pid")
  kill "$pid" 2>/dev/null
  while kill -0 "$pid" 2>/dev/null; do sleep 0.05; done
else
  port=$(cat "$dir/port")
  setsid "$service" --listen "127.0.0.1:$port" --trace </dev/null >>"$dir/service.log" 2>&1 &
  echo $! > "$dir/service.pid"
  # Listening once a connect succeeds.
  for _ in $(seq 100); do
    (exec 3<>"/dev/tcp/127.0.0.1/$port") 2>/dev/null && break
    sleep 0.05
  done
fi
touch "$dir/$action.done"
