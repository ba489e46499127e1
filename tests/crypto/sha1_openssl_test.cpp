// SHA-1 cross-checked against OpenSSL where the NIST vectors cannot reach: one update longer
// than 2^32 bits, and a bit count that wraps its low 32-bit half (set up identically in both).
#define OPENSSL_SUPPRESS_DEPRECATED  // SHA_CTX is the one way to preset OpenSSL's bit count
#include <gtest/gtest.h>
#include <openssl/sha.h>
#include <sys/mman.h>

#include "crypto/sha1.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// One update of 2^29 + 3 bytes: its bit count does not fit 32 bits, so len >> 29 must reach the
// high half of the count within a single call. The message is a read-only anonymous mapping
// (all zero bytes), which costs no memory of its own.
TEST(Sha1AgainstOpenSsl, SingleUpdateLongerThanFourGigabits) {
  const size_t length = (size_t{1} << 29) + 3;
  void* mapping = mmap(nullptr, length, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  ASSERT_NE(mapping, MAP_FAILED);
  const auto* message = static_cast<const uint8_t*>(mapping);
  Sha1State* state = nullptr;
  ASSERT_EQ(Sha1Init(&state), kOk);
  ASSERT_EQ(Sha1Update(state, message, length), kOk);
  Bytes ours(20), theirs(20);
  ASSERT_EQ(Sha1Final(state, ours.data()), kOk);
  Sha1Free(state);
  SHA1(message, length, theirs.data());
  munmap(mapping, length);
  EXPECT_EQ(ours, theirs);
}

// Both start from the same chaining values with a bit count 64 bytes short of 2^32 and absorb
// the same bytes: the count must carry into the high half, and the padded length block alike.
TEST(Sha1AgainstOpenSsl, BitCountWrapIsEncodedLikeOpenSsl) {
  for (uint32_t extraBytes : {1u, 63u, 200u}) {
    Sha1State* ours = nullptr;
    ASSERT_EQ(Sha1Init(&ours), kOk);
    SHA_CTX theirs;
    SHA1_Init(&theirs);
    theirs.Nl = ours->bitCountLow = 0xFFFFFE00u;
    theirs.Nh = ours->bitCountHigh = 3;
    const Bytes data(64 + extraBytes, static_cast<uint8_t>(extraBytes));
    ASSERT_EQ(Sha1Update(ours, data.data(), data.size()), kOk);
    SHA1_Update(&theirs, data.data(), data.size());
    Bytes a(20), b(20);
    ASSERT_EQ(Sha1Final(ours, a.data()), kOk);
    SHA1_Final(b.data(), &theirs);
    EXPECT_EQ(a, b) << "extra bytes " << extraBytes;
    Sha1Free(ours);
  }
}

}  // namespace
}  // namespace nivra::testing
