#pragma once
// OpenSSL as the independent peer of the service's RSA results (native only).
#include <cstdint>
#include <string>
#include <vector>

namespace nivra::cardtest {

using ByteString = std::vector<uint8_t>;

// PKCS#1 v1.5 SHA-256 signature check under the public key (big-endian modulus and exponent).
bool OpenSslVerifiesSha256(const ByteString& modulus, uint32_t exponent, const ByteString& message,
                           const ByteString& signature);
// PKCS#1 v1.5 (oaep false) or OAEP with SHA-1 (oaep true) encryption to the public key.
ByteString OpenSslEncrypt(const ByteString& modulus, uint32_t exponent, const ByteString& message,
                          bool oaep);
// The DigestInfo of SHA-256(message).
ByteString Sha256DigestInfo(const ByteString& message);
// A self-signed X.509 certificate (DER) with the given common name.
ByteString SelfSignedCertificate(const std::string& commonName);

}  // namespace nivra::cardtest
