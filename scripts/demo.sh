#!/usr/bin/env bash
# The main job: a real CryptoAPI application using the provider on a real token.
#   1. build everything and register nivracsp.dll with the CryptoAPI loader (regsvr32) in the
#      build's own Wine prefix;
#   2. give it a card: a fresh SoftHSM2 token (in build/demo, never the machine's token store),
#      reached through the PKCS#11 forwarding module, named in HKLM\SOFTWARE\NivraCSP "LibPkcs11";
#   3. run nivracli through CryptoAPI: create a container on the token, generate a key pair on
#      it, sign a message, check the signature with Wine's own software provider; store a
#      certificate for the key on the card, which puts it into the user's "MY" store (propagation),
#      make a detached CMS signature with it through crypt32 and verify that with OpenSSL;
#   4. start the local card service (nivra-card-service on 127.0.0.1:45451) on the same token:
#      the provider now reaches the card through the slot that the service publishes; sign and
#      check once more, delete the container through the service, stop the service, and
#      propagate again to take the container's certificate out of the store.
# Any arguments are passed to one nivracli run instead of the scripted steps.
set -euo pipefail
top=$(cd "$(dirname "$0")/.." && pwd)
"$top/scripts/build.sh"
build=${NIVRA_BUILD_DIR:-$top/build}
win="$build/win64"
run="$win/wine-run.sh"
export WINEPREFIX="$win/wineprefix" WINEDEBUG=-all
demo="$build/demo"
helper_pid=
service_pid=
. "$top/scripts/display.sh"
cleanup() {
  [ -n "$helper_pid" ] && kill "$helper_pid" 2>/dev/null || true
  [ -n "$service_pid" ] && kill "$service_pid" 2>/dev/null || true
  wineserver -k >/dev/null 2>&1 || true
  stop_private_display
}
trap cleanup EXIT
wineserver -k >/dev/null 2>&1 || true  # a Wine session left on another display cannot show dialogs
start_private_display

echo "== registering the provider: regsvr32 $(winepath -w "$win/nivracsp.dll" 2>/dev/null)"
"$run" regsvr32 /s "$(winepath -w "$win/nivracsp.dll" 2>/dev/null)"
wine reg query 'HKLM\SOFTWARE\Microsoft\Cryptography\Defaults\Provider\Nivra pkcs11 CSP' | tr -d '\r' | sed '/^$/d'

echo "== a SoftHSM2 token for the card (label nivra-demo, user PIN 1234)"
rm -rf "$demo" && mkdir -p "$demo/tokens"
printf 'directories.tokendir = %s/tokens\nobjectstore.backend = file\nlog.level = ERROR\n' "$demo" > "$demo/softhsm2.conf"
export SOFTHSM2_CONF="$demo/softhsm2.conf"
softhsm2-util --init-token --free --label nivra-demo --pin 1234 --so-pin 5678 | sed 's/^/   /'
"$build/native/tools/p11helper/nivra-p11-helper" --listen 127.0.0.1:0 --port-file "$demo/port" >"$demo/helper.log" 2>&1 &
helper_pid=$!
for _ in $(seq 100); do [ -s "$demo/port" ] && break; sleep 0.1; done
export NIVRA_P11_HELPER="127.0.0.1:$(cat "$demo/port")"
wine reg add 'HKLM\SOFTWARE\NivraCSP' /v LibPkcs11 /d "$(winepath -w "$win/nivrap11fwd.dll")" /f >/dev/null
echo "   LibPkcs11 = $(winepath -w "$win/nivrap11fwd.dll"), helper at $NIVRA_P11_HELPER"

cli() {
  echo "== nivracli $*"
  "$run" "$win/nivracli.exe" "$@" | tr -d '\r'
}

if [ $# -gt 0 ]; then
  cli "$@"
  exit
fi
# The slot name is the token's slot description as the module reports it.
slot=$(pkcs11-tool --module /usr/lib/softhsm/libsofthsm2.so -L 2>/dev/null | sed -n 's/^Slot [0-9]* (0x[0-9a-f]*): *//p' | head -1 | sed 's/ *$//')
card=(--card "$slot" --pin 1234)
win() { winepath -w "$1" 2>/dev/null; }
cli create demo "${card[@]}"
cli genkey demo --key-spec signature --bits 2048 "${card[@]}"
echo "Hello from a CryptoAPI application" > "$demo/message.txt"
cli sign demo --in "$(win "$demo/message.txt")" --out "$(win "$demo/message.sig")" "${card[@]}"
cli export-key demo --key-spec signature --format blob --out "$(win "$demo/demo.blob")" "${card[@]}"
echo "== Wine's own Microsoft Strong Cryptographic Provider checks the signature with the exported key"
"$run" "$win/nivracli_store_probe.exe" verify-blob "$(win "$demo/demo.blob")" "$(win "$demo/message.txt")" \
  "$(win "$demo/message.sig")" | tr -d '\r' | sed 's/^/   /'

echo "== a certificate for the card's key, issued by a demonstration CA (OpenSSL)"
cli export-key demo --key-spec signature --format pem --out "$(win "$demo/demo.pem")" "${card[@]}"
openssl req -x509 -newkey rsa:2048 -nodes -keyout "$demo/ca.key" -out "$demo/ca.pem" -subj "/CN=Nivra demo CA" \
  -days 30 2>/dev/null
openssl req -new -key "$demo/ca.key" -subj "/CN=Nivra demo user" 2>/dev/null |
  openssl x509 -req -CA "$demo/ca.pem" -CAkey "$demo/ca.key" -set_serial 1 -force_pubkey "$demo/demo.pem" \
    -days 30 -out "$demo/user.pem" 2>/dev/null
# Storing it on the card puts it into the user's "MY" store at once, linked to the card's key.
cli import-cert demo --key-spec signature --in "$(win "$demo/user.pem")" "${card[@]}"
cli propagate
cli list
echo "== a detached CMS signature made by crypt32 (CryptSignMessage) with the certificate from MY"
cli sign demo --cms --in "$(win "$demo/message.txt")" --out "$(win "$demo/message.p7s")" "${card[@]}"
echo "== openssl cms -verify"
openssl cms -verify -binary -inform DER -in "$demo/message.p7s" -content "$demo/message.txt" \
  -CAfile "$demo/ca.pem" -purpose any -out /dev/null 2>&1 | sed 's/^/   /'

echo "== the local card service on the same token: nivra-card-service on 127.0.0.1:45451"
"$build/native/cardservice/nivra-card-service" >"$demo/service.log" 2>&1 &
service_pid=$!
for _ in $(seq 100); do grep -q serving "$demo/service.log" && break; sleep 0.1; done
sed 's/^/   /' "$demo/service.log"
echo "Hello through the local card service" > "$demo/service-message.txt"
cli sign demo --in "$(win "$demo/service-message.txt")" --out "$(win "$demo/service-message.sig")" "${card[@]}"
echo "== Wine's own Microsoft Strong Cryptographic Provider checks the published slot's signature"
"$run" "$win/nivracli_store_probe.exe" verify-blob "$(win "$demo/demo.blob")" "$(win "$demo/service-message.txt")" \
  "$(win "$demo/service-message.sig")" | tr -d '\r' | sed 's/^/   /'
cli delete demo "${card[@]}"
echo "   the service served $(grep -c 'card command' "$demo/service.log") card commands on encrypted channels (log: $demo/service.log)"
kill "$service_pid" && wait "$service_pid" 2>/dev/null || true
service_pid=
echo "== the container is gone: propagation takes its certificate out of MY"
cli propagate
