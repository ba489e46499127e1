#!/bin/sh
# Starts nivra-card-service on a free loopback port (<dir>/port), with its process id in
# <dir>/service.pid and its traced log in <dir>/service.log, on a fresh SoftHSM2 token in <dir> or
# on the token store of a given SoftHSM2 configuration, serving NIVRA_CARD_MODULE when set. With a
# card configuration, also its devices and cards (theirs on the port NIVRA_CARD_PORT, default
# 45452) and the control interface on a loopback port (<dir>/control-port).
# Usage: service_fixture_start.sh <nivra-card-service> <dir> [softhsm2.conf to share] [cards.conf]
set -eu
service=$1
dir=$2
shared=${3:-}
cards=${4:-}
if [ ! -x "$service" ]; then
  echo "card service not built: $service (build the native tree first)" >&2
  exit 1
fi
if [ -f "$dir/service.pid" ]; then
  kill "$(cat "$dir/service.pid")" 2>/dev/null || true
fi
rm -rf "$dir"
mkdir -p "$dir"
if [ -n "$shared" ]; then
  export SOFTHSM2_CONF="$shared"
else
  sh "$(dirname "$0")/../scratch_tokens.sh" "$dir" nivra-service
  export SOFTHSM2_CONF="$dir/softhsm2.conf"
fi
set --
if [ -n "$cards" ]; then
  cp "$cards" "$dir/cards.conf"
  set -- --cards "$dir/cards.conf" --control tcp:127.0.0.1:0 --control-port-file "$dir/control-port" \
    ${NIVRA_CARD_PORT:+--card-port "$NIVRA_CARD_PORT"}
fi
# Detached from CTest's output pipes, or CTest would wait for the service to end.
setsid "$service" --listen 127.0.0.1:0 --port-file "$dir/port" --trace \
  ${NIVRA_CARD_MODULE:+--module "$NIVRA_CARD_MODULE"} "$@" </dev/null \
  >"$dir/service.log" 2>&1 &
echo $! > "$dir/service.pid"
for _ in $(seq 100); do
  [ -s "$dir/port" ] && exit 0
  kill -0 "$(cat "$dir/service.pid")" 2>/dev/null || break
  sleep 0.1
done
echo "card service did not start:" >&2
cat "$dir/service.log" >&2
exit 1
