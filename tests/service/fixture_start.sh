#!/bin/sh
# Starts what the published-slot tests need: the forwarding helper on a fresh SoftHSM2 token, then
# the card service serving that same token store.
# Usage: fixture_start.sh <top> <nivra-p11-helper> <helper dir> <nivra-card-service> <service dir>
set -eu
top=$1
sh "$top/tests/p11fwd/helper_fixture_start.sh" "$2" "$3"
sh "$top/tests/cardservice/service_fixture_start.sh" "$4" "$5" "$3/softhsm2.conf"
