#pragma once
// OpenSSL as the independent peer of the service's RSA results (native only).
#include <cstdint>
#include <vector>

namespace nivra::cardtest {

using ByteString = std::vector<uint8_t>;

// PKCS#1 v1.5 SHA-256 signature check under the public key (big-endian modulus and exponent).
bool OpenSslVerifiesSha256(const ByteString& modulus, uint32_t exponent, const ByteString& message,
                           const ByteString& signature);
// The DigestInfo of SHA-256(message).
ByteString Sha256DigestInfo(const ByteString& message);

}  // namespace nivra::cardtest
