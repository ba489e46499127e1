// DES and its modes against OpenSSL: ECB, CBC and CTR on random keys (DES, two-key and three-key
// TDEA), random IVs and random lengths, with PKCS#7 and without padding, in both directions and
// in random pieces; the two-key TDEA shortcut; and the optional key checks' verdicts.
#define OPENSSL_SUPPRESS_DEPRECATED  // DES_check_key_parity and DES_is_weak_key
#include <gtest/gtest.h>
#include <openssl/des.h>

#include "cipher_openssl_support.h"
#include "crypto/cipher.h"
#include "crypto/des.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

TEST(CipherOpenSsl, EcbAndCbcMatchOpenSslOnRandomInputs) {
  std::mt19937 rng(0x5EED);
  for (int i = 0; i < 300; ++i) {
    const Bytes key = RandomBytes(rng, 8 * (1 + rng() % 3)), iv = RandomBytes(rng, 8);
    const bool cbc = rng() % 2 == 0, pkcs7 = rng() % 2 == 0;
    const size_t len = rng() % (i < 299 ? 200 : 1 << 20);  // the last message about a megabyte
    const Bytes plain = RandomBytes(rng, pkcs7 ? len : len / 8 * 8);
    const uint16_t padding = pkcs7 ? kCipherPadPkcs7 : kCipherPadNone;
    ScopedCipher c(key, CipherModeWord(cbc ? kCipherModeCbc : kCipherModeEcb, padding), iv);
    ASSERT_EQ(c.status(), kOk);
    const Bytes expected = EvpMessage(key, cbc, iv, plain, true, pkcs7);
    const MessageRun enc = RunMessage(c.get(), plain, true, {rng() % 20, 4095, 7});
    EXPECT_EQ(enc.final, kOk);
    EXPECT_EQ(enc.out, expected) << "trial " << i << " keyLen " << key.size() << " cbc " << cbc << " pkcs7 " << pkcs7
                                 << " len " << plain.size();
    const MessageRun dec = RunMessage(c.get(), expected, false, {rng() % 20});
    EXPECT_EQ(dec.final, kOk);
    EXPECT_EQ(dec.out, plain) << "trial " << i;
  }
}

TEST(CipherOpenSsl, CreateTdes2MatchesDesEdeCbcWithZeroIvAndPkcs7) {
  std::mt19937 rng(77);
  for (int i = 0; i < 20; ++i) {
    const Bytes key = RandomBytes(rng, 16), plain = RandomBytes(rng, rng() % 100);
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
    Bytes stream;
    for (size_t off = 0; off < plain.size(); off += 8) {
      stream = Concat(stream, EvpBlock(key, counter));
      for (size_t b = 8; b-- > 0 && ++counter[b] == 0;) continue;  // big-endian increment
    }
    EXPECT_EQ(RunMessage(c.get(), plain, true).out, XorBytes(plain, stream)) << "trial " << i;
  }
}

TEST(DesKeyChecksOpenSsl, ParityVerdictMatchesForEveryByteValue) {
  for (unsigned v = 0; v < 256; ++v) {
    DES_cblock key = {0x01, 0x23, 0x45, 0x67, 0x89, 0xab, 0xcd, 0xef};
    key[3] = static_cast<uint8_t>(v);
    EXPECT_EQ(DesCheckKey(key) != kErrKeyParity, DES_check_key_parity(&key) == 1) << v;
  }
}

// The weak-key verdict for every key made of the bytes that weak and semi-weak keys use, so our
// table neither misses nor adds a key.
TEST(DesKeyChecksOpenSsl, WeakVerdictMatchesOverEveryKeyOfWeakKeyBytes) {
  const uint8_t kBytes[] = {0x01, 0xFE, 0x1F, 0xE0, 0x0E, 0xF1};  // each of odd parity
  int weak = 0, mismatches = 0;
  for (uint32_t index = 0; index < 6 * 6 * 6 * 6 * 6 * 6 * 6 * 6; ++index) {
    DES_cblock key;
    for (uint32_t i = 0, rest = index; i < 8; ++i, rest /= 6) key[i] = kBytes[rest % 6];
    const bool opensslWeak = DES_is_weak_key(&key) == 1;
    weak += opensslWeak;
    if ((DesCheckKey(key) == kErrWeakKey) != opensslWeak && ++mismatches <= 5) {
      ADD_FAILURE() << "verdicts differ for " << ::testing::PrintToString(Bytes(key, key + 8));
    }
  }
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(weak, 16) << "4 weak and 12 semi-weak keys";
}

}  // namespace
}  // namespace nivra::testing
