// The framework with other ciphers plugged into its operation table: a stream cipher (whole
// buffers, no blocks) and a 16-byte block cipher (padding, chaining, and the two-half tag of
// ISO 9797-1 algorithm 3). Both toy ciphers are defined here, so expected values are independent.
#include <gtest/gtest.h>

#include <cstring>

#include "crypto/cipher.h"
#include "crypto/cipher_context.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

constexpr size_t kWide = 16;

// Schedules of both toys: the key bytes themselves.
Status ToySetup(const uint8_t* key, size_t keyLen, void** schedule) {
  if (keyLen != kWide) return kErrInvalidHandle;
  *schedule = new uint8_t[kWide];
  std::memcpy(*schedule, key, kWide);
  return kOk;
}
Status ToyFree(void* schedule) {
  delete[] static_cast<uint8_t*>(schedule);
  return kOk;
}
Status ToyClone(const void*, void**) { return kErrNoMemory; }

// Stream toy: out[i] = in[i] ^ key[i % 16].
Status ToyStream(void* schedule, const uint8_t* in, size_t len, uint8_t* out) {
  for (size_t i = 0; i < len; ++i) out[i] = in[i] ^ static_cast<const uint8_t*>(schedule)[i % kWide];
  return kOk;
}

// Block toy, its own inverse: out[i] = in[15 - i] ^ key[i] ^ key[15 - i].
Bytes WideBlock(const uint8_t* key, const uint8_t* in) {
  Bytes t(kWide);
  for (size_t i = 0; i < kWide; ++i) t[i] = in[kWide - 1 - i] ^ key[i] ^ key[kWide - 1 - i];
  return t;
}
Status ToyBlock(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t) {
  std::memcpy(out, WideBlock(static_cast<const uint8_t*>(schedule), in).data(), kWide);
  return kOk;
}

const CipherOps kStreamOps = {ToySetup, nullptr, nullptr, ToyFree, ToyStream, ToyStream, ToyClone};
const CipherOps kWideOps = {ToySetup, ToyBlock, ToyBlock, ToyFree, nullptr, nullptr, ToyClone};
const Bytes kKey = Hex("102132435465768798a9bacbdcedfe0f");

TEST(CipherPluggedOps, StreamCipherTakesWholeBuffers) {
  CipherHandle h = 0;
  ASSERT_EQ(CipherCreateWithOps(&h, kStreamOps, 2, true, 1, kKey.data(), kKey.size()), kOk);
  const Bytes msg = Hex("0102030405060708090a0b");
  Bytes out(11);
  size_t len = 0;
  ASSERT_EQ(CipherUpdate(h, msg.data(), 11, nullptr, &len, true), kOk);
  EXPECT_EQ(len, 11u);
  len = 10;
  EXPECT_EQ(CipherUpdate(h, msg.data(), 11, out.data(), &len, true), kErrBufferTooSmall);
  EXPECT_EQ(len, 11u);
  ASSERT_EQ(CipherUpdate(h, msg.data(), 11, out.data(), &len, true), kOk);
  EXPECT_EQ(len, 11u);
  EXPECT_EQ(out, XorBytes(msg, kKey));
  EXPECT_EQ(CipherUpdate(h, msg.data(), 11, out.data(), &len, false), kErrWrongDirection);
  for (uint8_t* finalOut : {static_cast<uint8_t*>(nullptr), out.data()}) {
    len = 5;
    ASSERT_EQ(CipherFinal(h, finalOut, &len), kOk);
    EXPECT_EQ(len, 0u);
  }
  len = 11;
  EXPECT_EQ(CipherUpdate(h, msg.data(), 11, out.data(), &len, false), kOk);
  EXPECT_EQ(CipherDestroy(h), kOk);
  h = 77;
  EXPECT_EQ(CipherCreateWithOps(&h, kWideOps, 2, false, kWide, kKey.data(), 8), kErrInvalidHandle);
  EXPECT_EQ(h, 0u) << "a failed key setup leaves no context";
}

TEST(CipherPluggedOps, SixteenByteBlocksPadChainAndFoldTheIsoMac3Tag) {
  CipherHandle h = 0;
  ASSERT_EQ(CipherCreateWithOps(&h, kWideOps, 2, false, kWide, kKey.data(), kKey.size()), kOk);
  ASSERT_EQ(CipherReset(h), kOk);  // CBC, PKCS#7, zero IV over 16 bytes
  const Bytes msg(17, 0xAB);
  const MessageRun enc = RunMessage(h, msg, true);
  ASSERT_EQ(enc.final, kOk);
  // Block 1 = E(m1), block 2 = E(E(m1) ^ (ab 0f*15)).
  const Bytes c1 = WideBlock(kKey.data(), msg.data());
  const Bytes c2 = WideBlock(kKey.data(), XorBytes(Concat({0xAB}, Bytes(15, 15)), c1).data());
  EXPECT_EQ(enc.out, Concat(c1, c2));
  EXPECT_EQ(RunMessage(h, enc.out, false).out, msg);
  // The tag of 16-byte blocks is the xor of the last block's halves.
  ASSERT_EQ(CipherSetMode(h, CipherModeWord(kCipherModeIsoMac3, kCipherPadNone)), kOk);
  const MessageRun mac = RunMessage(h, Hex("010203"), true);
  ASSERT_EQ(mac.final, kOk);
  const Bytes t = WideBlock(kKey.data(), Concat(Hex("01020380"), Bytes(12, 0)).data());
  EXPECT_EQ(mac.out, XorBytes(Bytes(t.begin(), t.begin() + 8), Bytes(t.begin() + 8, t.end())));
  EXPECT_EQ(CipherDestroy(h), kOk);
}

}  // namespace
}  // namespace nivra::testing
