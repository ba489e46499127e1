#!/bin/sh
# Starts the card service with the Bluetooth devices and service cards of a cards configuration,
# on a SoftHSM2 token store of their own that holds the tokens labelled after the configuration
# (each token is published as a slot as well). The service cards' port is a free one, written to
# <dir>/card-port.
# Usage: devices_fixture_start.sh <top> <nivra-card-service> <dir> <cards.conf> <token label>...
set -eu
top=$1
service=$2
dir=$3
cards=$4
shift 4
store="$dir.tokens"  # beside <dir>, which the service's own fixture script empties
rm -rf "$store"
sh "$top/tests/scratch_tokens.sh" "$store" "$@"
card_port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.2", 0)); print(s.getsockname()[1])')
NIVRA_CARD_PORT=$card_port sh "$top/tests/cardservice/service_fixture_start.sh" "$service" "$dir" \
  "$store/softhsm2.conf" "$cards"
echo "$card_port" > "$dir/card-port"
