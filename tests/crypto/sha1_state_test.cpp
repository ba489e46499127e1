// SHA-1 state handling: block boundaries, split updates, the bit count, the state's layout,
// cloning and argument errors. Expected digests are the published FIPS 180 examples and NIST
// vectors.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "crypto/sha1.h"
#include "nist_rsp.h"
#include "sha1_helpers.h"

namespace nivra::testing {
namespace {

using crypto::kErrInvalidHandle;
using crypto::kErrNullArgument;
using crypto::kOk;
using crypto::Sha1State;

std::vector<uint8_t> Bytes(const std::string& s) { return std::vector<uint8_t>(s.begin(), s.end()); }

// RAII owner for a state in these tests.
struct StateOwner {
  Sha1State* state = nullptr;
  ~StateOwner() { crypto::Sha1Free(state); }
};

TEST(Sha1Digests, FipsExamples) {
  EXPECT_EQ(Sha1InPieces(Bytes("abc")), ToDigest(Hex("a9993e364706816aba3e25717850c26c9cd0d89d")));
  EXPECT_EQ(Sha1InPieces({}), ToDigest(Hex("da39a3ee5e6b4b0d3255bfef95601890afd80709")));
}

// 56 bytes leave no room for the 8-byte length after the 0x80 marker: padding takes two blocks.
TEST(Sha1Digests, FiftySixByteMessageNeedsTwoFinalBlocks) {
  const auto message = Bytes("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq");
  ASSERT_EQ(message.size(), 56u);
  const Digest expected = ToDigest(Hex("84983e441c3bd26ebaae4aa1f95129e5e54670f1"));
  EXPECT_EQ(Sha1InPieces(message), expected);
  EXPECT_EQ(Sha1InPieces(message, {55}), expected);
  EXPECT_EQ(Sha1InPieces(message, {1, 1, 1}), expected);
}

TEST(Sha1Digests, MillionTimesAInUnevenPieces) {
  const std::vector<uint8_t> message(1000000, 'a');
  const Digest expected = ToDigest(Hex("34aa973cd4c4daa4f61eeb2bdbad27316534016f"));
  EXPECT_EQ(Sha1InPieces(message), expected);
  std::vector<size_t> pieces;
  for (size_t total = 0, step = 1; total < message.size(); total += step, step = step * 7 % 1021 + 1)
    pieces.push_back(step);
  EXPECT_EQ(Sha1InPieces(message, pieces), expected);
}

// 63 + 1 + 64 bytes: the partial block is completed exactly, then a whole block comes straight
// from the caller's buffer. Checked against the first NIST long message (163 bytes).
TEST(Sha1Digests, SplitUpdatesAcrossBlockBoundaries) {
  const auto records = ReadRsp(std::string(NIVRA_VECTORS_DIR) + "/hashes/SHA1/SHA1LongMsg.rsp");
  ASSERT_FALSE(records.empty());
  const auto message = Hex(records[0].at("Msg"));
  ASSERT_EQ(message.size(), 163u);
  const Digest expected = ToDigest(Hex(records[0].at("MD")));
  EXPECT_EQ(Sha1InPieces(message, {63, 1, 64}), expected);
  EXPECT_EQ(Sha1InPieces(message, {64, 64}), expected);
  EXPECT_EQ(Sha1InPieces(message, {0, 128, 0}), expected);
  for (size_t first = 1; first < message.size(); ++first)
    EXPECT_EQ(Sha1InPieces(message, {first}), expected) << "first piece " << first;

  const std::vector<uint8_t> first128(message.begin(), message.begin() + 128);
  EXPECT_EQ(Sha1InPieces(first128, {63, 1, 64}), Sha1InPieces(first128));
}

TEST(Sha1StateLayout, InitialValuesAndBuffering) {
  StateOwner s;
  ASSERT_EQ(crypto::Sha1Init(&s.state), kOk);
  ASSERT_NE(s.state, nullptr);
  const uint32_t iv[5] = {0x67452301, 0xEFCDAB89, 0x98BADCFE, 0x10325476, 0xC3D2E1F0};
  for (int i = 0; i < 5; ++i) EXPECT_EQ(s.state->h[i], iv[i]);
  EXPECT_EQ(s.state->bitCountLow, 0u);
  EXPECT_EQ(s.state->bitCountHigh, 0u);
  EXPECT_EQ(s.state->blockFill, 0u);

  std::vector<uint8_t> data(70);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i + 1);
  ASSERT_EQ(crypto::Sha1Update(s.state, data.data(), data.size()), kOk);
  EXPECT_EQ(s.state->bitCountLow, 70u * 8);
  EXPECT_EQ(s.state->bitCountHigh, 0u);
  EXPECT_EQ(s.state->blockFill, 6u);
  EXPECT_EQ(std::memcmp(s.state->block, data.data() + 64, 6), 0);
  EXPECT_NE(s.state->h[0], iv[0]);  // the first block was compressed

  ASSERT_EQ(crypto::Sha1Update(s.state, nullptr, 0), kOk);
  EXPECT_EQ(s.state->blockFill, 6u);
  EXPECT_EQ(s.state->bitCountLow, 70u * 8);
}

TEST(Sha1StateLayout, FinalClearsTheHeldBlock) {
  StateOwner s;
  ASSERT_EQ(crypto::Sha1Init(&s.state), kOk);
  const auto data = Bytes("some message tail");
  ASSERT_EQ(crypto::Sha1Update(s.state, data.data(), data.size()), kOk);
  Digest out{};
  ASSERT_EQ(crypto::Sha1Final(s.state, out.data()), kOk);
  EXPECT_EQ(s.state->blockFill, 0u);
  for (uint8_t b : s.state->block) ASSERT_EQ(b, 0);
  // The digest is h[0..4] big-endian.
  for (int i = 0; i < 5; ++i) {
    const uint32_t word = uint32_t{out[4 * i]} << 24 | uint32_t{out[4 * i + 1]} << 16 |
                          uint32_t{out[4 * i + 2]} << 8 | out[4 * i + 3];
    EXPECT_EQ(word, s.state->h[i]);
  }
  EXPECT_EQ(out, Sha1InPieces(data));
}

// The 64-bit bit count: a low half about to wrap carries into the high half.
TEST(Sha1StateLayout, BitCountCarriesIntoHighHalf) {
  StateOwner s;
  ASSERT_EQ(crypto::Sha1Init(&s.state), kOk);
  s.state->bitCountLow = 0xFFFFFFF8u;
  s.state->bitCountHigh = 6;
  const uint8_t byte = 0x41;
  ASSERT_EQ(crypto::Sha1Update(s.state, &byte, 1), kOk);
  EXPECT_EQ(s.state->bitCountLow, 0u);
  EXPECT_EQ(s.state->bitCountHigh, 7u);
  const uint8_t more[3] = {1, 2, 3};
  ASSERT_EQ(crypto::Sha1Update(s.state, more, 3), kOk);
  EXPECT_EQ(s.state->bitCountLow, 24u);
  EXPECT_EQ(s.state->bitCountHigh, 7u);
}

TEST(Sha1Clone, CopyContinuesIndependently) {
  const auto prefix = Bytes("a common prefix that is longer than one SHA-1 block of sixty-four bytes");
  const auto tailA = Bytes("first continuation");
  const auto tailB = Bytes("second, different continuation");
  StateOwner original, copy;
  ASSERT_EQ(crypto::Sha1Init(&original.state), kOk);
  ASSERT_EQ(crypto::Sha1Update(original.state, prefix.data(), prefix.size()), kOk);
  ASSERT_EQ(crypto::Sha1Clone(original.state, &copy.state), kOk);
  ASSERT_NE(copy.state, original.state);
  EXPECT_EQ(std::memcmp(copy.state, original.state, sizeof(Sha1State)), 0);

  ASSERT_EQ(crypto::Sha1Update(original.state, tailA.data(), tailA.size()), kOk);
  ASSERT_EQ(crypto::Sha1Update(copy.state, tailB.data(), tailB.size()), kOk);
  Digest a{}, b{};
  ASSERT_EQ(crypto::Sha1Final(original.state, a.data()), kOk);
  ASSERT_EQ(crypto::Sha1Final(copy.state, b.data()), kOk);

  auto messageA = prefix, messageB = prefix;
  messageA.insert(messageA.end(), tailA.begin(), tailA.end());
  messageB.insert(messageB.end(), tailB.begin(), tailB.end());
  EXPECT_EQ(a, Sha1InPieces(messageA));
  EXPECT_EQ(b, Sha1InPieces(messageB));
}

TEST(Sha1Arguments, NullsAreRejected) {
  EXPECT_EQ(crypto::Sha1Init(nullptr), kErrNullArgument);
  StateOwner s;
  ASSERT_EQ(crypto::Sha1Init(&s.state), kOk);
  EXPECT_EQ(crypto::Sha1Update(nullptr, reinterpret_cast<const uint8_t*>("x"), 1), kErrNullArgument);
  EXPECT_EQ(crypto::Sha1Update(s.state, nullptr, 1), kErrNullArgument);
  EXPECT_EQ(s.state->bitCountLow, 0u);  // a rejected update counts nothing
  Digest out{};
  EXPECT_EQ(crypto::Sha1Final(nullptr, out.data()), kErrNullArgument);
  EXPECT_EQ(crypto::Sha1Final(s.state, nullptr), kErrNullArgument);
  EXPECT_EQ(s.state->blockFill, 0u);
  Sha1State* copy = nullptr;
  EXPECT_EQ(crypto::Sha1Clone(nullptr, &copy), kErrInvalidHandle);
  EXPECT_EQ(crypto::Sha1Clone(s.state, nullptr), kErrNullArgument);
  EXPECT_EQ(crypto::Sha1Free(nullptr), kOk);
}

}  // namespace
}  // namespace nivra::testing
