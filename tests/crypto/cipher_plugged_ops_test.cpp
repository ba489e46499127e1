// The framework with other ciphers plugged into its operation table: a stream cipher (whole
// buffers, no blocks) and a 16-byte block cipher (padding, and the two-half tag of ISO 9797-1
// algorithm 3). Both toy ciphers are defined here, so expected values are computed independently.
#include <gtest/gtest.h>

#include <cstring>

#include "cipher_test_support.h"
#include "crypto/cipher.h"
#include "crypto/cipher_context.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

constexpr size_t kWide = 16;

// Schedules of both toys: the key bytes themselves.
Status ToySetup(const uint8_t* key, size_t keyLen, void** schedule) {
  if (keyLen != kWide) return kErrInvalidHandle;
  auto* copy = new uint8_t[kWide];
  std::memcpy(copy, key, kWide);
  *schedule = copy;
  return kOk;
}
Status ToyFree(void* schedule) {
  delete[] static_cast<uint8_t*>(schedule);
  return kOk;
}
Status ToyClone(const void*, void**) { return kErrNoMemory; }

// Stream toy: out[i] = in[i] ^ key[i % 16].
Status ToyStream(void* schedule, const uint8_t* in, size_t len, uint8_t* out) {
  const auto* key = static_cast<const uint8_t*>(schedule);
  for (size_t i = 0; i < len; ++i) out[i] = in[i] ^ key[i % kWide];
  return kOk;
}

// Block toy: out[i] = in[(i + 1) % 16] ^ key[i]; decryption undoes it.
void WideEncrypt(const uint8_t* key, const uint8_t* in, uint8_t* out) {
  uint8_t t[kWide];
  for (size_t i = 0; i < kWide; ++i) t[i] = in[(i + 1) % kWide] ^ key[i];
  std::memcpy(out, t, kWide);
}
Status ToyEncryptBlock(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t) {
  WideEncrypt(static_cast<const uint8_t*>(schedule), in, out);
  return kOk;
}
Status ToyDecryptBlock(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t) {
  const auto* key = static_cast<const uint8_t*>(schedule);
  uint8_t t[kWide];
  for (size_t i = 0; i < kWide; ++i) t[(i + 1) % kWide] = in[i] ^ key[i];
  std::memcpy(out, t, kWide);
  return kOk;
}

const CipherOps kStreamOps = {ToySetup, nullptr, nullptr, ToyFree, ToyStream, ToyStream, ToyClone};
const CipherOps kWideOps = {ToySetup, ToyEncryptBlock, ToyDecryptBlock, ToyFree, nullptr, nullptr, ToyClone};

const Bytes kKey = {0x10, 0x21, 0x32, 0x43, 0x54, 0x65, 0x76, 0x87, 0x98, 0xa9, 0xba, 0xcb, 0xdc, 0xed, 0xfe, 0x0f};

TEST(CipherPluggedOps, StreamCipherTakesWholeBuffers) {
  CipherHandle h = 0;
  ASSERT_EQ(CipherCreateWithOps(&h, kStreamOps, 2, true, 1, kKey.data(), kKey.size()), kOk);
  const Bytes msg = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  Bytes out(11);
  size_t len = 0;
  ASSERT_EQ(CipherUpdate(h, msg.data(), 11, nullptr, &len, true), kOk);
  EXPECT_EQ(len, 11u);
  len = 10;
  EXPECT_EQ(CipherUpdate(h, msg.data(), 11, out.data(), &len, true), kErrBufferTooSmall);
  EXPECT_EQ(len, 11u);
  len = 11;
  ASSERT_EQ(CipherUpdate(h, msg.data(), 11, out.data(), &len, true), kOk);
  EXPECT_EQ(len, 11u);
  Bytes expected(11);
  for (size_t i = 0; i < 11; ++i) expected[i] = msg[i] ^ kKey[i];
  EXPECT_EQ(out, expected);
  len = 11;
  EXPECT_EQ(CipherUpdate(h, msg.data(), 11, out.data(), &len, false), kErrWrongDirection);
  len = 5;
  ASSERT_EQ(CipherFinal(h, nullptr, &len), kOk);
  EXPECT_EQ(len, 0u);
  len = 5;
  ASSERT_EQ(CipherFinal(h, out.data(), &len), kOk);
  EXPECT_EQ(len, 0u);
  len = 11;
  EXPECT_EQ(CipherUpdate(h, msg.data(), 11, out.data(), &len, false), kOk);
  EXPECT_EQ(CipherDestroy(h), kOk);
}

TEST(CipherPluggedOps, KeySetupFailureFreesTheContextAndClearsTheHandle) {
  CipherHandle h = 77;
  EXPECT_EQ(CipherCreateWithOps(&h, kWideOps, 2, false, kWide, kKey.data(), 8), kErrInvalidHandle);
  EXPECT_EQ(h, 0u);
}

TEST(CipherPluggedOps, SixteenBytePaddingAndChaining) {
  CipherHandle h = 0;
  ASSERT_EQ(CipherCreateWithOps(&h, kWideOps, 2, false, kWide, kKey.data(), kKey.size()), kOk);
  ASSERT_EQ(CipherReset(h), kOk);  // CBC, PKCS#7, zero IV over 16 bytes
  const Bytes msg(17, 0xAB);
  const MessageRun enc = RunMessage(h, msg, true);
  ASSERT_EQ(enc.final, kOk);
  ASSERT_EQ(enc.out.size(), 32u);
  // Independent CBC over the toy: block 1 = E(m1), block 2 = E(E(m1) ^ (ab 0f*15)).
  Bytes c1(kWide), c2(kWide);
  WideEncrypt(kKey.data(), msg.data(), c1.data());
  Bytes last(kWide, 15);
  last[0] = 0xAB;
  WideEncrypt(kKey.data(), XorBytes(last, c1).data(), c2.data());
  EXPECT_EQ(enc.out, Concat(c1, c2));
  EXPECT_EQ(RunMessage(h, enc.out, false).out, msg);
  EXPECT_EQ(CipherDestroy(h), kOk);
}

TEST(CipherPluggedOps, IsoMac3TagOfSixteenByteBlocksFoldsTheHalves) {
  CipherHandle h = 0;
  ASSERT_EQ(CipherCreateWithOps(&h, kWideOps, 2, false, kWide, kKey.data(), kKey.size()), kOk);
  ASSERT_EQ(CipherSetMode(h, CipherModeWord(kCipherModeIsoMac3, kCipherPadNone)), kOk);
  const Bytes msg = {0x01, 0x02, 0x03};
  const MessageRun run = RunMessage(h, msg, true);
  ASSERT_EQ(run.final, kOk);
  Bytes padded(kWide, 0);
  std::memcpy(padded.data(), msg.data(), 3);
  padded[3] = 0x80;
  Bytes t(kWide);
  WideEncrypt(kKey.data(), padded.data(), t.data());
  Bytes expected(8);
  for (size_t i = 0; i < 8; ++i) expected[i] = t[i] ^ t[i + 8];
  EXPECT_EQ(run.out, expected);
  EXPECT_EQ(CipherDestroy(h), kOk);
}

}  // namespace
}  // namespace nivra::testing
