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

// Block toy: out[i] = in[(i + 1) % 16] ^ key[i]; decryption undoes it.
Bytes WideEncrypt(const Bytes& key, const uint8_t* in) {
  Bytes t(kWide);
  for (size_t i = 0; i < kWide; ++i) t[i] = in[(i + 1) % kWide] ^ key[i];
  return t;
}
Status ToyEncryptBlock(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t) {
  const auto* key = static_cast<const uint8_t*>(schedule);
  std::memcpy(out, WideEncrypt(Bytes(key, key + kWide), in).data(), kWide);
  return kOk;
}
Status ToyDecryptBlock(const void* schedule, const uint8_t* in, uint8_t* out, uint32_t) {
  uint8_t t[kWide];
  for (size_t i = 0; i < kWide; ++i) t[(i + 1) % kWide] = in[i] ^ static_cast<const uint8_t*>(schedule)[i];
  std::memcpy(out, t, kWide);
  return kOk;
}

const CipherOps kStreamOps = {ToySetup, nullptr, nullptr, ToyFree, ToyStream, ToyStream, ToyClone};
const CipherOps kWideOps = {ToySetup, ToyEncryptBlock, ToyDecryptBlock, ToyFree, nullptr, nullptr, ToyClone};
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
  const Bytes c1 = WideEncrypt(kKey, msg.data());
  const Bytes c2 = WideEncrypt(kKey, XorBytes(Concat({0xAB}, Bytes(15, 15)), c1).data());
  EXPECT_EQ(enc.out, Concat(c1, c2));
  EXPECT_EQ(RunMessage(h, enc.out, false).out, msg);
  // The tag of 16-byte blocks is the xor of the last block's halves.
  ASSERT_EQ(CipherSetMode(h, CipherModeWord(kCipherModeIsoMac3, kCipherPadNone)), kOk);
  const MessageRun mac = RunMessage(h, Hex("010203"), true);
  ASSERT_EQ(mac.final, kOk);
  const Bytes t = WideEncrypt(kKey, Concat(Hex("01020380"), Bytes(12, 0)).data());
  EXPECT_EQ(mac.out, XorBytes(Bytes(t.begin(), t.begin() + 8), Bytes(t.begin() + 8, t.end())));
  EXPECT_EQ(CipherDestroy(h), kOk);
}

}  // namespace
}  // namespace nivra::testing
