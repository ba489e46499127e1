#!/bin/sh
# Starts the card service for the Bluetooth-device and service-card tests, on tokens of their own:
# tok-a behind device phone-a and card desk-a (the roads' own tests) and phone-s (the search
# without a reader prefix; each device is unlocked on its own), and one token for each
# device whose confirmation a test refuses (phone-r), leaves unanswered (phone-n) or replaces by a
# mode token (phone-m), so that no test finds a device that another one unlocked. The service
# cards' port is a free one, written to <dir>/card-port.
# Usage: devices_fixture_start.sh <top> <nivra-card-service> <dir>
set -eu
top=$1
service=$2
dir=$3
store="$dir.tokens"  # beside <dir>, which the service's own fixture script empties
rm -rf "$store"
sh "$top/tests/scratch_tokens.sh" "$store" tok-a tok-r tok-n tok-m
export SOFTHSM2_CONF="$store/softhsm2.conf"
cat > "$store/cards.conf" <<CONF
device phone-a token=tok-a pin=1234 display="Phone A" max-key=16384
device phone-s token=tok-a pin=1234
card   desk-a  token=tok-a pin=1234 display="Desk A" address=127.0.0.2
device phone-r token=tok-r pin=1234
device phone-n token=tok-n pin=1234
device phone-m token=tok-m pin=1234
CONF
card_port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.2", 0)); print(s.getsockname()[1])')
NIVRA_CARD_PORT=$card_port sh "$top/tests/cardservice/service_fixture_start.sh" "$service" "$dir" \
  "$store/softhsm2.conf" "$store/cards.conf"
echo "$card_port" > "$dir/card-port"
