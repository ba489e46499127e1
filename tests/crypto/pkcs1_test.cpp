// PKCS#1 encodings where a cross-check cannot reach: in-place v1.5 padding and its length limits,
// never-zero random type 2 padding, what v1.5 unpadding refuses, OAEP length limits and each
// decoding error, the shortest PSS moduli, and the DigestInfo prefixes against the DER bytes
// printed in PKCS#1 (RFC 8017, section 9.2, note 1). The contents of v1.5, OAEP and PSS
// encodings are checked against OpenSSL in rsa_openssl_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <tuple>

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

// The longest message each encoding takes into k bytes, and one byte more.
TEST(Pkcs1Encodings, LengthLimits) {
  using Encode = Status (*)(uint8_t*, size_t, const uint8_t*, size_t);
  const std::tuple<Encode, size_t, size_t> longest[] = {
      {Pkcs1PadType1, 128, 117}, {Pkcs1PadType2, 128, 117}, {Pkcs1PadType1, 11, 0},
      {OaepEncode, 128, 86},     {OaepEncode, 42, 0}};
  const Bytes data = Sequence(118, 1);
  Bytes block(128);
  for (const auto& [encode, k, len] : longest) {
    EXPECT_EQ(encode(block.data(), k, data.data(), len), kOk) << k << " " << len;
    EXPECT_EQ(encode(block.data(), k - 1 + (len > 0), data.data(), len + (len > 0)),
              kErrMessageTooLong) << k << " " << len;
  }
}

TEST(Pkcs1V15, PaddingInPlaceType1AndNeverZeroType2) {
  const Bytes data = Sequence(117, 1);
  Bytes block(128, 0xEE), second(128);
  std::copy(data.begin(), data.begin() + 20, block.begin());  // data at the front of the output
  ASSERT_EQ(Pkcs1PadType1(block.data(), 64, block.data(), 20), kOk);
  EXPECT_EQ(Bytes(block.begin(), block.begin() + 64),
            Concat(Concat(Hex("0001"), Bytes(41, 0xFF)), Concat({0x00}, Sequence(20, 1))));
  for (int round = 0; round < 200; ++round) {
    ASSERT_EQ(Pkcs1PadType2(block.data(), 128, data.data(), 5), kOk);
    ASSERT_EQ(std::count(block.begin() + 2, block.end() - 6, 0), 0) << "zero byte in the padding";
  }
  ASSERT_EQ(Pkcs1PadType2(second.data(), 128, data.data(), 5), kOk);
  EXPECT_NE(block, second) << "fresh padding each time";
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
}

// Round trips are checked against OpenSSL.
TEST(Oaep, FreshSeeds) {
  const Bytes msg = Sequence(86, 1);
  Bytes block(128), again(128);
  ASSERT_EQ(OaepEncode(block.data(), 128, msg.data(), 86), kOk);
  ASSERT_EQ(OaepEncode(again.data(), 128, msg.data(), 86), kOk);
  EXPECT_NE(block, again) << "a fresh seed each time";
}

// 00 || maskedSeed || maskedDB for a data block and seed chosen by the test (MGF1 itself is
// checked by OpenSSL decrypting our OAEP).
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

// The shortest encoding is 22 bytes; one bit past a byte boundary it leads with a zero byte.
// (The masking of the top bits at other sizes is checked by OpenSSL's verification.)
TEST(Pss, ShortModuliAreRefused) {
  const Bytes mHash = Sequence(20, 0x10);
  Bytes small(23);
  EXPECT_EQ(PssEncode(170, small.data(), mHash.data(), 20), kOk);
  EXPECT_EQ(PssEncode(177, small.data(), mHash.data(), 20), kOk);
  EXPECT_EQ(small[0], 0x00);
  EXPECT_EQ(PssEncode(169, small.data(), mHash.data(), 20), kErrModulusTooShort);
}

// Each encoding is the printed prefix then the digest, at exactly the needed capacity; a short
// buffer reports the need and writes nothing; a digest of another length is refused.
TEST(DigestInfo, PrefixesMatchPkcs1AndLengthsAreChecked) {
  const std::tuple<DigestAlgorithm, const char*, size_t> cases[] = {
      {DigestAlgorithm::kMd2, "3020300c06082a864886f70d020205000410", 16},
      {DigestAlgorithm::kMd5, "3020300c06082a864886f70d020505000410", 16},
      {DigestAlgorithm::kSha1, "3021300906052b0e03021a05000414", 20},
      {static_cast<DigestAlgorithm>(9), "", 20}};
  const Bytes digest = Sequence(21, 0x30);
  for (const auto& [algorithm, prefix, length] : cases) {
    const Bytes expected = Concat(Hex(prefix), Bytes(digest.begin(), digest.begin() + length));
    Bytes out(64, 0xEE);
    size_t written = 0;
    const auto encode = [&](size_t digestLength, size_t room) {
      return DigestInfoEncode(algorithm, digest.data(), digestLength, out.data(), room, &written);
    };
    EXPECT_EQ(encode(length + 1, 64), kErrInputLength);
    EXPECT_EQ(encode(length - 1, 64), kErrInputLength);
    if (*prefix == 0) continue;  // an unknown algorithm has no digest length
    EXPECT_EQ(encode(length, expected.size() - 1), kErrBufferTooSmall);
    EXPECT_EQ(written, expected.size());
    EXPECT_EQ(out, Bytes(64, 0xEE)) << "nothing written";
    ASSERT_EQ(encode(length, expected.size()), kOk);
    EXPECT_EQ(Bytes(out.begin(), out.begin() + written), expected);
  }
}

}  // namespace
}  // namespace nivra::testing
