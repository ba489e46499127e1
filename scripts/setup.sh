#!/usr/bin/env bash
# Installs every Debian package the build, the tests and the demonstration need.
# Idempotent: when everything is present it only checks and returns within a second.
set -euo pipefail

packages=(
  build-essential cmake ninja-build pkg-config git
  mingw-w64 wine wine64 fonts-wine xvfb xauth x11-apps imagemagick fonts-wqy-microhei
  libgtest-dev googletest libbenchmark-dev libssl-dev openssl
  softhsm2 opensc libp11-kit-dev python3 python3-cryptography-vectors
  clang libclang-rt-14-dev
)

missing=()
for p in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done

if [ ${#missing[@]} -gt 0 ]; then
  echo "setup: installing ${missing[*]}"
  sudo_cmd=()
  [ "$(id -u)" -eq 0 ] || sudo_cmd=(sudo)
  "${sudo_cmd[@]}" apt-get update -qq
  DEBIAN_FRONTEND=noninteractive "${sudo_cmd[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
fi
