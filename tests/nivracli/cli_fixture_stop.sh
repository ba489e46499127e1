#!/bin/sh
# Ends what cli_fixture_start.sh started in <dir>: the helper (its token removed) and the Wine
# prefix's wineserver. The prefix itself is kept for the next run.
# Usage: cli_fixture_stop.sh <source dir> <dir>
set -u
sh "$1/tests/p11fwd/helper_fixture_stop.sh" "$2/helper"
WINEPREFIX="$2/wineprefix" wineserver -k 2>/dev/null
exit 0
