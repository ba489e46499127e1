// The SHA-1 compression function, kept apart from the state handling so that it can be read (and
// tuned) on its own.
#pragma once
#include <cstddef>
#include <cstdint>

namespace nivra::crypto {

// Runs the SHA-1 compression function over blockCount consecutive 64-byte blocks starting at
// blocks, updating the five chaining values h in place. blocks needs no alignment and is read
// only; blockCount 0 leaves h unchanged. No allocation.
void Sha1Compress(uint32_t h[5], const uint8_t* blocks, size_t blockCount);

}  // namespace nivra::crypto
