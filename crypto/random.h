// The one source of protecting random bytes: the operating system's cryptographic generator
// (BCryptGenRandom with the system-preferred generator on Windows, getrandom natively).
// Session keys, padding strings, OAEP seeds and RSA prime candidates all come from here.
#pragma once
#include <cstddef>
#include <cstdint>

namespace nivra::crypto {

// Fills out[0..len) with random bytes. Returns false only when the operating system's
// generator fails; out is then unspecified.
bool RandomFill(uint8_t* out, size_t len);

}  // namespace nivra::crypto
