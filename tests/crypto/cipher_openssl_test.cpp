// ECB, CBC and CTR cross-checked with OpenSSL on random keys (DES, two-key and three-key TDEA),
// random IVs and random lengths, with PKCS#7 and without padding, in both directions.
#include <gtest/gtest.h>

#include "cipher_openssl_support.h"
#include "crypto/cipher.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

struct Trial {
  Bytes key, iv, plain;
  bool cbc, pkcs7;
};

Trial RandomTrial(std::mt19937& rng) {
  static const size_t kKeyLens[] = {8, 16, 24};
  Trial t;
  t.key = RandomBytes(rng, kKeyLens[rng() % 3]);
  t.iv = RandomBytes(rng, 8);
  t.cbc = rng() % 2 == 0;
  t.pkcs7 = rng() % 2 == 0;
  size_t len = rng() % 200;
  if (!t.pkcs7) len = len / 8 * 8;
  t.plain = RandomBytes(rng, len);
  return t;
}

TEST(CipherOpenSsl, EcbAndCbcMatchOpenSslOnRandomInputs) {
  std::mt19937 rng(0x5EED);
  for (int i = 0; i < 300; ++i) {
    const Trial t = RandomTrial(rng);
    const uint16_t mode = t.cbc ? kCipherModeCbc : kCipherModeEcb;
    ScopedCipher c(t.key, CipherModeWord(mode, t.pkcs7 ? kCipherPadPkcs7 : kCipherPadNone), t.iv);
    ASSERT_EQ(c.status(), kOk);
    const Bytes expected = EvpMessage(t.key, t.cbc, t.iv, t.plain, true, t.pkcs7);
    const MessageRun enc = RunMessage(c.get(), t.plain, true);
    EXPECT_EQ(enc.final, kOk);
    EXPECT_EQ(enc.out, expected) << "trial " << i << " keyLen " << t.key.size() << " cbc " << t.cbc
                                 << " pkcs7 " << t.pkcs7 << " len " << t.plain.size();
    const MessageRun dec = RunMessage(c.get(), expected, false);
    EXPECT_EQ(dec.final, kOk);
    EXPECT_EQ(dec.out, t.plain) << "trial " << i;
  }
}

TEST(CipherOpenSsl, CreateTdes2MatchesDesEdeCbcWithZeroIv) {
  std::mt19937 rng(77);
  for (int i = 0; i < 20; ++i) {
    const Bytes key = RandomBytes(rng, 16);
    const Bytes plain = RandomBytes(rng, rng() % 100);
    CipherHandle h = 0;
    ASSERT_EQ(CipherCreateTdes2(&h, key.data()), kOk);
    EXPECT_EQ(RunMessage(h, plain, true).out, EvpMessage(key, true, Bytes(8, 0), plain, true, true));
    EXPECT_EQ(CipherDestroy(h), kOk);
  }
}

TEST(CipherOpenSsl, CtrMatchesACounterEncryptedWithOpenSsl) {
  std::mt19937 rng(99);
  for (int i = 0; i < 40; ++i) {
    const Bytes key = RandomBytes(rng, 8 * (1 + rng() % 3));
    Bytes counter = RandomBytes(rng, 8);
    if (i % 4 == 0) std::fill(counter.begin() + 5, counter.end(), 0xFF);  // force carries
    const Bytes plain = RandomBytes(rng, rng() % 70);
    ScopedCipher c(key, CipherModeWord(kCipherModeCtr, kCipherPadNone), counter);
    const OpenSslDes des(key);
    Bytes expected;
    for (size_t off = 0; off < plain.size(); off += 8) {
      const Bytes stream = des.Full(counter, true);
      const Bytes chunk(plain.begin() + off, plain.begin() + std::min(off + 8, plain.size()));
      const Bytes x = XorBytes(chunk, stream);
      expected.insert(expected.end(), x.begin(), x.end());
      for (size_t b = 8; b-- > 0;) {
        if (++counter[b] != 0) break;
      }
    }
    EXPECT_EQ(RunMessage(c.get(), plain, true).out, expected) << "trial " << i;
  }
}

TEST(CipherOpenSsl, OneMegabyteTdesCbcMatches) {
  std::mt19937 rng(1);
  const Bytes key = RandomBytes(rng, 24);
  const Bytes iv = RandomBytes(rng, 8);
  const Bytes plain = RandomBytes(rng, 1 << 20);
  ScopedCipher c(key, kCipherModeWordReset, iv);
  EXPECT_EQ(RunMessage(c.get(), plain, true, {1, 4095, 65536, 7}).out, EvpMessage(key, true, iv, plain, true, true));
}

}  // namespace
}  // namespace nivra::testing
