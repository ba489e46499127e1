#!/bin/sh
# OpenSSL's side of the Windows token tests, on a public key (all values hex, big-endian):
#   token_openssl.sh verify-sha1 <modulus> <exponent> <message> <signature>  prints verified or rejected
#   token_openssl.sh encrypt <pkcs1|oaep> <modulus> <exponent> <message>     prints the ciphertext
set -eu
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
key() {
  printf 'asn1=SEQUENCE:k\n[k]\nn=INTEGER:0x%s\ne=INTEGER:0x%s\n' "$1" "$2" > "$dir/key.cnf"
  openssl asn1parse -genconf "$dir/key.cnf" -noout -out "$dir/key.der"
  openssl rsa -RSAPublicKey_in -inform DER -in "$dir/key.der" -pubout -out "$dir/key.pem" 2>/dev/null
}
case $1 in
  verify-sha1)
    key "$2" "$3"
    echo "$4" | xxd -r -p > "$dir/message"
    echo "$5" | xxd -r -p > "$dir/signature"
    openssl dgst -sha1 -verify "$dir/key.pem" -signature "$dir/signature" "$dir/message" \
      >/dev/null 2>&1 && echo verified || echo rejected ;;
  encrypt)
    key "$3" "$4"
    echo "$5" | xxd -r -p > "$dir/message"
    openssl pkeyutl -encrypt -pubin -inkey "$dir/key.pem" -pkeyopt "rsa_padding_mode:$2" \
      -in "$dir/message" | xxd -p | tr -d '\n'
    echo ;;
esac
