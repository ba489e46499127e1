#pragma once
// Independent checks of RSA results with OpenSSL (native only).
#include <cstdint>
#include <vector>

namespace nivra::p11test {

// True when `signature` is a valid PKCS#1 v1.5 SHA-256 signature of `message` under the public
// key (modulus, exponent; big-endian).
bool OpenSslVerifiesSha256(const std::vector<uint8_t>& modulus, const std::vector<uint8_t>& exponent,
                           const std::vector<uint8_t>& message, const std::vector<uint8_t>& signature);

}  // namespace nivra::p11test
