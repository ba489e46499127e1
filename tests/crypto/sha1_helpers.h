// Test helpers that drive the library's SHA-1 state functions and compare digests.
#pragma once
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <vector>

#include "crypto/sha1.h"

namespace nivra::testing {

using Digest = std::array<uint8_t, crypto::kSha1DigestLength>;

// Digest of message fed in pieces of the given sizes (the last piece takes whatever is left;
// an empty list feeds the whole message in one call).
inline Digest Sha1InPieces(const std::vector<uint8_t>& message, const std::vector<size_t>& pieces = {}) {
  Digest out{};
  crypto::Sha1State* state = nullptr;
  EXPECT_EQ(crypto::Sha1Init(&state), crypto::kOk);
  if (state == nullptr) return out;
  size_t offset = 0;
  for (size_t piece : pieces) {
    if (piece > message.size() - offset) piece = message.size() - offset;
    EXPECT_EQ(crypto::Sha1Update(state, message.data() + offset, piece), crypto::kOk);
    offset += piece;
  }
  EXPECT_EQ(crypto::Sha1Update(state, message.data() + offset, message.size() - offset), crypto::kOk);
  EXPECT_EQ(crypto::Sha1Final(state, out.data()), crypto::kOk);
  EXPECT_EQ(crypto::Sha1Free(state), crypto::kOk);
  return out;
}

inline Digest ToDigest(const std::vector<uint8_t>& bytes) {
  Digest d{};
  EXPECT_EQ(bytes.size(), d.size());
  for (size_t i = 0; i < d.size() && i < bytes.size(); ++i) d[i] = bytes[i];
  return d;
}

}  // namespace nivra::testing
