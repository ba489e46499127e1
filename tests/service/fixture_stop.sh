#!/bin/sh
# Stops the card service, then the helper (fixture_start.sh).
# Usage: fixture_stop.sh <top> <helper dir> <service dir>
set -u
status=0
sh "$1/tests/cardservice/service_fixture_stop.sh" "$3" || status=1
sh "$1/tests/p11fwd/helper_fixture_stop.sh" "$2" || status=1
exit $status
