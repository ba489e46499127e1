// PKCS#1 encodings: v1.5 block layouts and their limits, OAEP length limits and decoding errors,
// and the EMSA-PSS layout for moduli around a byte boundary. (MGF1 and the PSS contents are checked
// against published vectors and OpenSSL elsewhere.)
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "crypto/pkcs1.h"
#include "crypto/pkcs1_hash.h"

namespace nivra::crypto {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes Sequence(size_t len, uint8_t start) {
  Bytes out(len);
  for (size_t i = 0; i < len; ++i) out[i] = static_cast<uint8_t>(start + i);
  return out;
}

TEST(Pkcs1BlockType1, LayoutAtTheLongestMessage) {
  const Bytes data = Sequence(117, 1);
  Bytes block(128, 0xEE);
  ASSERT_EQ(Pkcs1PadType1(block.data(), 128, data.data(), data.size()), kOk);
  Bytes expect = {0x00, 0x01};
  expect.insert(expect.end(), 8, 0xFF);
  expect.push_back(0x00);
  expect.insert(expect.end(), data.begin(), data.end());
  EXPECT_EQ(block, expect);
  EXPECT_EQ(Pkcs1PadType1(block.data(), 128, data.data(), 118), kErrMessageTooLong);
  EXPECT_EQ(Pkcs1PadType1(block.data(), 10, data.data(), 0), kErrMessageTooLong);
  EXPECT_EQ(Pkcs1PadType1(nullptr, 128, data.data(), 1), kErrNullArgument);
}

TEST(Pkcs1BlockType1, DataMayAlreadyLieInTheOutputBuffer) {
  Bytes block(64, 0);
  const Bytes data = Sequence(20, 0x30);
  std::copy(data.begin(), data.end(), block.begin());  // in-place use: data at the front
  ASSERT_EQ(Pkcs1PadType1(block.data(), 64, block.data(), 20), kOk);
  EXPECT_EQ(Bytes(block.end() - 20, block.end()), data);
  EXPECT_EQ(block[2], 0xFF);
  EXPECT_EQ(block[64 - 21], 0x00);
}

TEST(Pkcs1BlockType2, PaddingStringIsRandomAndNeverZero) {
  const Bytes data = Sequence(5, 0xA0);
  Bytes first(128), second(128);
  for (int round = 0; round < 200; ++round) {
    ASSERT_EQ(Pkcs1PadType2(first.data(), 128, data.data(), data.size()), kOk);
    EXPECT_EQ(first[0], 0x00);
    EXPECT_EQ(first[1], 0x02);
    for (size_t i = 2; i < 128 - 6; ++i) ASSERT_NE(first[i], 0x00) << "padding byte " << i;
    EXPECT_EQ(first[128 - 6], 0x00);
    EXPECT_EQ(Bytes(first.end() - 5, first.end()), data);
  }
  ASSERT_EQ(Pkcs1PadType2(second.data(), 128, data.data(), data.size()), kOk);
  EXPECT_NE(first, second);
  EXPECT_EQ(Pkcs1PadType2(first.data(), 128, data.data(), 118), kErrMessageTooLong);
}

TEST(Pkcs1Unpad, BlocksOfBothTypesRoundTrip) {
  const Bytes data = Sequence(30, 7);
  Bytes block(96);
  const uint8_t* out = nullptr;
  size_t outLen = 0;
  ASSERT_EQ(Pkcs1PadType1(block.data(), 96, data.data(), data.size()), kOk);
  ASSERT_EQ(Pkcs1UnpadType1(block.data(), 96, &out, &outLen), kOk);
  EXPECT_EQ(Bytes(out, out + outLen), data);
  EXPECT_EQ(Pkcs1UnpadType2(block.data(), 96, &out, &outLen), kErrBlockPadding);
  ASSERT_EQ(Pkcs1PadType2(block.data(), 96, data.data(), 0), kOk);
  ASSERT_EQ(Pkcs1UnpadType2(block.data(), 96, &out, &outLen), kOk);
  EXPECT_EQ(outLen, 0u);
}

TEST(Pkcs1Unpad, MalformedBlocksAreRefused) {
  Bytes good(64, 0xFF);
  good[0] = 0x00;
  good[1] = 0x01;
  good[10] = 0x00;  // exactly 8 padding bytes
  const uint8_t* out = nullptr;
  size_t outLen = 0;
  ASSERT_EQ(Pkcs1UnpadType1(good.data(), 64, &out, &outLen), kOk);
  EXPECT_EQ(outLen, 53u);
  Bytes shortPad = good;
  shortPad[10] = 0xFF;
  shortPad[9] = 0x00;  // 7 padding bytes
  EXPECT_EQ(Pkcs1UnpadType1(shortPad.data(), 64, &out, &outLen), kErrBlockPadding);
  Bytes notFf = good;
  notFf[5] = 0xFE;
  EXPECT_EQ(Pkcs1UnpadType1(notFf.data(), 64, &out, &outLen), kErrBlockPadding);
  Bytes firstByte = good;
  firstByte[0] = 0x01;
  EXPECT_EQ(Pkcs1UnpadType1(firstByte.data(), 64, &out, &outLen), kErrBlockPadding);
  Bytes noSeparator(64, 0xFF);
  noSeparator[0] = 0x00;
  noSeparator[1] = 0x01;
  EXPECT_EQ(Pkcs1UnpadType1(noSeparator.data(), 64, &out, &outLen), kErrBlockPadding);
  EXPECT_EQ(Pkcs1UnpadType1(good.data(), 10, &out, &outLen), kErrBlockPadding);
  EXPECT_EQ(Pkcs1UnpadType1(good.data(), 64, nullptr, &outLen), kErrNullArgument);
}

TEST(OaepEncoding, LengthLimitsComeBeforeEverythingElse) {
  Bytes block(128);
  const Bytes msg = Sequence(87, 1);
  EXPECT_EQ(OaepEncode(block.data(), 128, msg.data(), 86), kOk);
  EXPECT_EQ(OaepEncode(block.data(), 128, msg.data(), 87), kErrMessageTooLong);
  EXPECT_EQ(OaepEncode(block.data(), 41, msg.data(), 0), kErrMessageTooLong);
  EXPECT_EQ(OaepEncode(block.data(), 42, msg.data(), 0), kOk);
  EXPECT_EQ(OaepEncode(nullptr, 128, msg.data(), 1), kErrNullArgument);
}

TEST(OaepEncoding, EncodeDecodeRoundTripAtEveryMessageLength) {
  const size_t k = 64;
  const Bytes msg = Sequence(k - 42, 0x40);
  for (size_t len = 0; len <= msg.size(); ++len) {
    Bytes em(k);
    ASSERT_EQ(OaepEncode(em.data(), k, msg.data(), len), kOk);
    EXPECT_EQ(em[0], 0x00);
    Bytes out(k);
    size_t outLen = out.size();
    ASSERT_EQ(OaepDecode(out.data(), &outLen, em.data(), k), kOk) << len;
    EXPECT_EQ(Bytes(out.begin(), out.begin() + outLen), Bytes(msg.begin(), msg.begin() + len));
  }
}

TEST(OaepEncoding, SeedsDifferBetweenEncodings) {
  const Bytes msg = Sequence(10, 1);
  Bytes a(128), b(128);
  ASSERT_EQ(OaepEncode(a.data(), 128, msg.data(), msg.size()), kOk);
  ASSERT_EQ(OaepEncode(b.data(), 128, msg.data(), msg.size()), kOk);
  EXPECT_NE(a, b);
}

class OaepDecoding : public ::testing::Test {
 protected:
  void SetUp() override {
    msg_ = Sequence(16, 0x61);
    em_.resize(kLen);
    ASSERT_EQ(OaepEncode(em_.data(), kLen, msg_.data(), msg_.size()), kOk);
  }
  // Re-masks a data block chosen by the test under the seed the encoding used.
  Bytes Remask(const Bytes& db) {
    Bytes seedMask(20), seed(20), em(kLen);
    EXPECT_EQ(Mgf1Sha1(seedMask.data(), 20, em_.data() + 21, kLen - 21), kOk);
    for (size_t i = 0; i < 20; ++i) seed[i] = em_[1 + i] ^ seedMask[i];
    Bytes dbMask(kLen - 21);
    EXPECT_EQ(Mgf1Sha1(dbMask.data(), dbMask.size(), seed.data(), 20), kOk);
    for (size_t i = 0; i < dbMask.size(); ++i) em[21 + i] = db[i] ^ dbMask[i];
    EXPECT_EQ(Mgf1Sha1(seedMask.data(), 20, em.data() + 21, kLen - 21), kOk);
    for (size_t i = 0; i < 20; ++i) em[1 + i] = seed[i] ^ seedMask[i];
    return em;
  }
  Bytes DataBlock() {
    Bytes db(kLen - 21, 0);
    EXPECT_EQ(Pkcs1Sha1(db.data(), nullptr, 0, nullptr, 0), kOk);
    db[db.size() - msg_.size() - 1] = 0x01;
    std::copy(msg_.begin(), msg_.end(), db.end() - msg_.size());
    return db;
  }
  static constexpr size_t kLen = 96;
  Bytes msg_, em_;
};

TEST_F(OaepDecoding, RemaskedBlockDecodesLikeTheOriginal) {
  const Bytes em = Remask(DataBlock());
  Bytes out(32);
  size_t outLen = out.size();
  ASSERT_EQ(OaepDecode(out.data(), &outLen, em.data(), kLen), kOk);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + outLen), msg_);
}

TEST_F(OaepDecoding, EachDecodingErrorHasItsCode) {
  Bytes out(32);
  size_t outLen = out.size();
  Bytes badFirst = em_;
  badFirst[0] = 0x01;
  EXPECT_EQ(OaepDecode(out.data(), &outLen, badFirst.data(), kLen), kErrOaepDecoding);
  Bytes db = DataBlock();
  db[3] ^= 0x40;  // corrupted label hash
  EXPECT_EQ(OaepDecode(out.data(), &outLen, Remask(db).data(), kLen), kErrOaepLabel);
  db = DataBlock();
  db[db.size() - msg_.size() - 1] = 0x02;  // separator that is not 01
  EXPECT_EQ(OaepDecode(out.data(), &outLen, Remask(db).data(), kLen), kErrOaepDecoding);
  db = DataBlock();
  std::fill(db.begin() + 20, db.end(), 0x00);  // no separator at all
  EXPECT_EQ(OaepDecode(out.data(), &outLen, Remask(db).data(), kLen), kErrOaepDecoding);
  Bytes tiny(41, 0);
  EXPECT_EQ(OaepDecode(out.data(), &outLen, tiny.data(), 41), kErrGeneric);
  EXPECT_EQ(OaepDecode(out.data(), nullptr, em_.data(), kLen), kErrNullArgument);
}

TEST_F(OaepDecoding, ShortOutputReportsTheLengthAndCopiesNothing) {
  Bytes out(15, 0xEE);
  size_t outLen = out.size();
  EXPECT_EQ(OaepDecode(out.data(), &outLen, em_.data(), kLen), kErrBufferTooSmall);
  EXPECT_EQ(outLen, 16u);
  EXPECT_EQ(out, Bytes(15, 0xEE));
  outLen = 0;
  EXPECT_EQ(OaepDecode(nullptr, &outLen, em_.data(), kLen), kOk);
  EXPECT_EQ(outLen, 16u);
}

TEST(PssEncoding, ModulusOneBitPastAByteGetsALeadingZeroByte) {
  const Bytes mHash = Sequence(20, 0x10);
  Bytes out(129, 0xEE);
  ASSERT_EQ(PssEncode(1025, out.data(), mHash.data(), mHash.size()), kOk);
  EXPECT_EQ(out[0], 0x00);
  EXPECT_EQ(out[128], 0xBC);
  // The 128-byte encoding proper equals what a 1024-bit modulus gets, minus the top-bit mask.
  Bytes at1024(128);
  ASSERT_EQ(PssEncode(1024, at1024.data(), mHash.data(), mHash.size()), kOk);
  EXPECT_EQ(at1024[0] & 0x80, 0);
  EXPECT_EQ(Bytes(out.begin() + 2, out.end()), Bytes(at1024.begin() + 1, at1024.end()));
  EXPECT_EQ(out[1] & 0x7F, at1024[0]);
}

TEST(PssEncoding, TopBitsAboveTheModulusAreCleared) {
  const Bytes mHash = Sequence(20, 3);
  for (uint32_t bits = 1026; bits <= 1032; ++bits) {
    Bytes em((bits + 7) / 8);
    ASSERT_EQ(PssEncode(bits, em.data(), mHash.data(), mHash.size()), kOk);
    const uint32_t topBits = (bits - 1) % 8;  // bits of the first byte that may be set
    EXPECT_EQ(em[0] >> topBits, 0) << bits;
  }
  // The shortest encodings: 22 bytes, with or without the leading zero byte.
  Bytes small(23);
  EXPECT_EQ(PssEncode(170, small.data(), mHash.data(), 20), kOk);
  EXPECT_EQ(PssEncode(177, small.data(), mHash.data(), 20), kOk);
  EXPECT_EQ(small[0], 0x00);
  EXPECT_EQ(PssEncode(169, small.data(), mHash.data(), 20), kErrModulusTooShort);
  EXPECT_EQ(PssEncode(168, small.data(), mHash.data(), 20), kErrModulusTooShort);
}

}  // namespace
}  // namespace nivra::crypto
