// PKCS#1 encodings: v1.5 block layouts and what unpadding refuses, OAEP length limits and each
// decoding error, the EMSA-PSS layout for moduli around a byte boundary, and the DigestInfo
// prefixes against the DER bytes printed in PKCS#1 (RFC 8017, section 9.2, note 1). (MGF1 and
// the contents of OAEP and PSS are checked against published vectors and OpenSSL elsewhere.)
#include <gtest/gtest.h>

#include <algorithm>

#include "crypto/digest_info.h"
#include "crypto/pkcs1.h"
#include "crypto/pkcs1_hash.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

Bytes Sequence(size_t len, uint8_t start) {
  Bytes out(len);
  for (size_t i = 0; i < len; ++i) out[i] = static_cast<uint8_t>(start + i);
  return out;
}

TEST(Pkcs1V15, BlockType1LayoutAtTheLongestMessageAndInPlace) {
  const Bytes data = Sequence(117, 1);
  Bytes block(128, 0xEE);
  ASSERT_EQ(Pkcs1PadType1(block.data(), 128, data.data(), data.size()), kOk);
  EXPECT_EQ(block, Concat(Concat(Hex("0001"), Bytes(8, 0xFF)), Concat({0x00}, data)));
  EXPECT_EQ(Pkcs1PadType1(block.data(), 128, data.data(), 118), kErrMessageTooLong);
  EXPECT_EQ(Pkcs1PadType1(block.data(), 10, data.data(), 0), kErrMessageTooLong);
  EXPECT_EQ(Pkcs1PadType1(nullptr, 128, data.data(), 1), kErrNullArgument);
  std::copy(data.begin(), data.begin() + 20, block.begin());  // data at the front of the output
  ASSERT_EQ(Pkcs1PadType1(block.data(), 64, block.data(), 20), kOk);
  block.resize(64);
  EXPECT_EQ(block, Concat(Concat(Hex("0001"), Bytes(41, 0xFF)), Concat({0x00}, Sequence(20, 1))));
}

TEST(Pkcs1V15, BlockType2PaddingIsRandomAndNeverZero) {
  const Bytes data = Sequence(5, 0xA0);
  Bytes first(128), second(128);
  for (int round = 0; round < 200; ++round) {
    ASSERT_EQ(Pkcs1PadType2(first.data(), 128, data.data(), data.size()), kOk);
    EXPECT_EQ(Bytes(first.begin(), first.begin() + 2), Hex("0002"));
    ASSERT_EQ(std::count(first.begin() + 2, first.end() - 6, 0), 0) << "zero byte in the padding";
    EXPECT_EQ(Bytes(first.end() - 6, first.end()), Concat({0x00}, data));
  }
  ASSERT_EQ(Pkcs1PadType2(second.data(), 128, data.data(), data.size()), kOk);
  EXPECT_NE(first, second);
  EXPECT_EQ(Pkcs1PadType2(first.data(), 128, data.data(), 118), kErrMessageTooLong);
  const uint8_t* out = nullptr;
  size_t outLen = 0;
  ASSERT_EQ(Pkcs1UnpadType2(second.data(), 128, &out, &outLen), kOk);
  EXPECT_EQ(Bytes(out, out + outLen), data);
  EXPECT_EQ(Pkcs1UnpadType1(second.data(), 128, &out, &outLen), kErrBlockPadding) << "wrong type";
}

TEST(Pkcs1V15, MalformedType1BlocksAreRefused) {
  Bytes good(64, 0xFF);
  good[0] = 0x00;
  good[1] = 0x01;
  good[10] = 0x00;  // exactly 8 padding bytes
  const uint8_t* out = nullptr;
  size_t outLen = 0;
  ASSERT_EQ(Pkcs1UnpadType1(good.data(), 64, &out, &outLen), kOk);
  EXPECT_EQ(outLen, 53u);
  const struct {
    const char* what;
    size_t index;
    uint8_t value;
  } damages[] = {{"7 padding bytes", 9, 0x00}, {"padding byte not FF", 5, 0xFE}, {"first byte", 0, 0x01},
                 {"no separator", 10, 0xFF}, {"type 2", 1, 0x02}};
  for (const auto& d : damages) {
    Bytes block = good;
    block[d.index] = d.value;
    EXPECT_EQ(Pkcs1UnpadType1(block.data(), 64, &out, &outLen), kErrBlockPadding) << d.what;
  }
  EXPECT_EQ(Pkcs1UnpadType1(good.data(), 10, &out, &outLen), kErrBlockPadding);
  EXPECT_EQ(Pkcs1UnpadType1(good.data(), 64, nullptr, &outLen), kErrNullArgument);
}

// Round trips are checked against the published vectors and OpenSSL.
TEST(Oaep, LengthLimitsAndFreshSeeds) {
  const Bytes msg = Sequence(87, 1);
  Bytes block(128), again(128);
  EXPECT_EQ(OaepEncode(block.data(), 128, msg.data(), 87), kErrMessageTooLong);
  EXPECT_EQ(OaepEncode(block.data(), 41, msg.data(), 0), kErrMessageTooLong);
  EXPECT_EQ(OaepEncode(block.data(), 42, msg.data(), 0), kOk);
  EXPECT_EQ(OaepEncode(nullptr, 128, msg.data(), 1), kErrNullArgument);
  ASSERT_EQ(OaepEncode(block.data(), 128, msg.data(), 86), kOk);
  ASSERT_EQ(OaepEncode(again.data(), 128, msg.data(), 86), kOk);
  EXPECT_EQ(block[0], 0x00);
  EXPECT_NE(block, again) << "a fresh seed each time";
}

// 00 || maskedSeed || maskedDB for a data block and seed chosen by the test (MGF1 itself is
// checked by the published vectors).
Bytes Mask(const Bytes& db, const Bytes& seed) {
  Bytes dbMask(db.size()), seedMask(20);
  EXPECT_EQ(Mgf1Sha1(dbMask.data(), db.size(), seed.data(), 20), kOk);
  const Bytes maskedDb = XorBytes(db, dbMask);
  EXPECT_EQ(Mgf1Sha1(seedMask.data(), 20, maskedDb.data(), maskedDb.size()), kOk);
  return Concat(Concat({0x00}, XorBytes(seed, seedMask)), maskedDb);
}

// The data block of a 96-byte encoding: SHA-1("") || zero bytes || 01 || a 16-byte message.
const Bytes kMessage = Sequence(16, 0x61);
Bytes DataBlock() {
  Bytes db(96 - 21, 0);
  EXPECT_EQ(Pkcs1Sha1(db.data(), nullptr, 0, nullptr, 0), kOk);
  db[db.size() - 17] = 0x01;
  return Concat(Bytes(db.begin(), db.end() - 16), kMessage);
}

TEST(OaepDecoding, EachDecodingErrorHasItsCode) {
  const Bytes seed = Sequence(20, 0x90);
  Bytes out(32);
  size_t outLen = out.size();
  ASSERT_EQ(OaepDecode(out.data(), &outLen, Mask(DataBlock(), seed).data(), 96), kOk);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + outLen), kMessage);
  const struct {
    const char* what;
    size_t from, to;
    uint8_t value;
    Status status;
  } damages[] = {{"label hash", 3, 4, 0x40, kErrOaepLabel},
                 {"separator not 01", 58, 59, 0x02, kErrOaepDecoding},
                 {"no separator: zeros to the end", 20, 75, 0x00, kErrOaepDecoding}};
  for (const auto& d : damages) {
    Bytes db = DataBlock();
    std::fill(db.begin() + d.from, db.begin() + d.to, d.value);
    outLen = out.size();
    EXPECT_EQ(OaepDecode(out.data(), &outLen, Mask(db, seed).data(), 96), d.status) << d.what;
  }
  Bytes em = Mask(DataBlock(), seed);
  EXPECT_EQ(OaepDecode(out.data(), &outLen, em.data(), 41), kErrGeneric) << "shorter than 42 bytes";
  EXPECT_EQ(OaepDecode(out.data(), nullptr, em.data(), 96), kErrNullArgument);
  em[0] = 0x01;
  EXPECT_EQ(OaepDecode(out.data(), &outLen, em.data(), 96), kErrOaepDecoding) << "first byte";
  // A short output reports the length and copies nothing; no output only reports it.
  em[0] = 0x00;
  out.assign(15, 0xEE);
  outLen = out.size();
  EXPECT_EQ(OaepDecode(out.data(), &outLen, em.data(), 96), kErrBufferTooSmall);
  EXPECT_EQ(outLen, 16u);
  EXPECT_EQ(out, Bytes(15, 0xEE));
  outLen = 0;
  EXPECT_EQ(OaepDecode(nullptr, &outLen, em.data(), 96), kOk);
  EXPECT_EQ(outLen, 16u);
}

// The first byte keeps only the bits below the modulus's top bit: a whole zero byte one bit past
// a byte boundary. The shortest encoding is 22 bytes.
TEST(Pss, TopBitsAboveTheModulusAreClearedAndShortModuliRefused) {
  const Bytes mHash = Sequence(20, 0x10);
  for (uint32_t bits = 1024; bits <= 1032; ++bits) {
    Bytes em((bits + 7) / 8, 0xEE);
    ASSERT_EQ(PssEncode(bits, em.data(), mHash.data(), mHash.size()), kOk);
    EXPECT_EQ(em[0] >> ((bits - 1) % 8), 0) << bits;
    EXPECT_EQ(em.back(), 0xBC) << bits;
  }
  Bytes small(23);
  EXPECT_EQ(PssEncode(170, small.data(), mHash.data(), 20), kOk);
  EXPECT_EQ(PssEncode(177, small.data(), mHash.data(), 20), kOk);
  EXPECT_EQ(small[0], 0x00);
  EXPECT_EQ(PssEncode(169, small.data(), mHash.data(), 20), kErrModulusTooShort);
  EXPECT_EQ(PssEncode(168, small.data(), mHash.data(), 20), kErrModulusTooShort);
}

TEST(DigestInfo, PrefixesMatchPkcs1AndPrecedeTheDigest) {
  const struct {
    DigestAlgorithm algorithm;
    const char* prefix;
    size_t digestLength;
  } cases[] = {{DigestAlgorithm::kMd2, "3020300c06082a864886f70d020205000410", 16},
               {DigestAlgorithm::kMd5, "3020300c06082a864886f70d020505000410", 16},
               {DigestAlgorithm::kSha1, "3021300906052b0e03021a05000414", 20}};
  for (const auto& c : cases) {
    const DigestInfoPrefix* prefix = DigestInfoPrefixOf(c.algorithm);
    ASSERT_NE(prefix, nullptr);
    EXPECT_EQ(Bytes(prefix->bytes, prefix->bytes + prefix->length), Hex(c.prefix));
    EXPECT_EQ(prefix->digestLength, c.digestLength);
    std::mt19937 rng(c.digestLength);
    const Bytes digest = RandomBytes(rng, c.digestLength);
    Bytes out(64, 0xEE);
    size_t written = 0;
    const size_t length = prefix->length + c.digestLength;  // the exact capacity
    ASSERT_EQ(DigestInfoEncode(c.algorithm, digest.data(), digest.size(), out.data(), length, &written), kOk);
    ASSERT_EQ(written, prefix->length + c.digestLength);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + written), Concat(Hex(c.prefix), digest));
    EXPECT_EQ(out[written], 0xEE) << "nothing past the encoding";
  }
  EXPECT_EQ(DigestInfoPrefixOf(static_cast<DigestAlgorithm>(3)), nullptr);
}

TEST(DigestInfo, BadLengthsShortBuffersAndNulls) {
  const Bytes digest(20, 1);
  Bytes out(64, 0);
  size_t written = 99;
  EXPECT_EQ(DigestInfoEncode(DigestAlgorithm::kSha1, digest.data(), 19, out.data(), 64, &written), kErrInputLength);
  EXPECT_EQ(DigestInfoEncode(DigestAlgorithm::kMd5, digest.data(), 20, out.data(), 64, &written), kErrInputLength);
  const auto unknown = static_cast<DigestAlgorithm>(9);
  EXPECT_EQ(DigestInfoEncode(unknown, digest.data(), 20, out.data(), 64, &written), kErrInputLength);
  EXPECT_EQ(DigestInfoEncode(DigestAlgorithm::kMd5, digest.data(), 16, out.data(), 33, &written), kErrBufferTooSmall);
  EXPECT_EQ(written, 34u);  // the needed length is reported
  EXPECT_EQ(out, Bytes(64, 0)) << "and nothing was written";
  EXPECT_EQ(DigestInfoEncode(DigestAlgorithm::kMd5, nullptr, 16, out.data(), 64, &written), kErrNullArgument);
  EXPECT_EQ(DigestInfoEncode(DigestAlgorithm::kMd5, digest.data(), 16, nullptr, 64, &written), kErrNullArgument);
  EXPECT_EQ(DigestInfoEncode(DigestAlgorithm::kMd5, digest.data(), 16, out.data(), 64, nullptr), kErrNullArgument);
}

}  // namespace
}  // namespace nivra::testing
