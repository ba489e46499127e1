// Wiping of memory that held key material, in a way the optimiser cannot drop.
#pragma once
#include <cstddef>

namespace nivra::crypto {

// Overwrites p[0..len) with zeros (null p or len 0 allowed).
void Wipe(void* p, size_t len);

}  // namespace nivra::crypto
