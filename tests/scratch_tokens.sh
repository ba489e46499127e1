#!/bin/sh
# A SoftHSM2 token store of the tests' own (never the machine's): <dir>/softhsm2.conf naming
# <dir>/tokens, and one fresh token per label in it (user PIN 1234, officer PIN 5678).
# Callers then export SOFTHSM2_CONF=<dir>/softhsm2.conf.
# Usage: scratch_tokens.sh <dir> <label>...
set -eu
dir=$1
shift
mkdir -p "$dir/tokens"
cat > "$dir/softhsm2.conf" <<CONF
directories.tokendir = $dir/tokens
objectstore.backend = file
log.level = ERROR
slots.removable = false
CONF
for label in "$@"; do
  SOFTHSM2_CONF="$dir/softhsm2.conf" softhsm2-util --init-token --free --label "$label" --pin 1234 \
    --so-pin 5678 >/dev/null
done
