// Key generation: exact modulus size, prime order and distance, the exponent rule for the primes,
// a working key pair by both private paths, the give-up path, and generation through a handle.
// Generated keys are also checked by OpenSSL in rsa_openssl_test.cpp.
#include <gtest/gtest.h>

#include "crypto/pkcs1.h"
#include "crypto/rsa_interface.h"
#include "crypto/rsa_key.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

TEST(RsaKeyGeneration, SizesPrimeOrderDistanceAndTheExponentRule) {
  const struct {
    uint32_t bits, e;
  } cases[] = {{512, 65537}, {513, 65537}, {1023, 17}, {1024, 3}, {1024, 65537}};
  for (const auto& c : cases) {
    const KeyPtr key = GenerateKey(c.bits, c.e);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->n.BitLength(), c.bits);
    EXPECT_EQ(key->p.BitLength(), (c.bits + 1) / 2);
    EXPECT_EQ(key->q.BitLength(), c.bits / 2);
    EXPECT_EQ(key->hasCrt + key->hasPrivate + key->hasPublic, 3);
    EXPECT_TRUE(key->e.IsWord(c.e));
    EXPECT_GT(key->p.Compare(key->q), 0) << "p is the larger prime";
    CBigNumber distance, e, r;
    ASSERT_EQ(distance.CopyFrom(key->p), 0);
    ASSERT_EQ(distance.Sub(key->q), 0);
    EXPECT_GE(distance.BitLength(), c.bits / 2 - 5);
    e.SetWord(c.e);
    for (const CBigNumber* prime : {&key->p, &key->q}) {
      EXPECT_EQ(prime->IsProbablePrime(), 0);
      ASSERT_EQ(r.Mod(*prime, e), 0);
      EXPECT_FALSE(r.IsWord(1)) << "a prime is 1 modulo e";
    }
  }
}

TEST(RsaKeyGeneration, GeneratedPairWorksByBothPrivatePaths) {
  const KeyPtr key = GenerateKey(1024, 65537);
  ASSERT_NE(key, nullptr);
  const KeyPtr shortKey = ImportKey(kRsaFormShortPrivate, ExportKey(key.get(), kRsaFormShortPrivate));
  const size_t k = key->ModulusBytes();
  const Bytes secret = {1, 2, 3, 4, 5, 6, 7, 8};
  Bytes block(k), cipher(k), plain(k);
  ASSERT_EQ(OaepEncode(block.data(), k, secret.data(), secret.size()), kOk);
  ASSERT_EQ(RsaPublic(key.get(), block.data(), k, cipher.data(), nullptr), kOk);
  for (const CRSA* privateKey : {key.get(), shortKey.get()}) {
    ASSERT_EQ(RsaPrivate(privateKey, cipher.data(), k, plain.data(), nullptr), kOk);
    EXPECT_EQ(plain, block);
  }
}

TEST(RsaKeyGeneration, ExponentsThatCannotWorkGiveUpAndAHandleWorks) {
  CRSA* key = reinterpret_cast<CRSA*>(0x1);
  EXPECT_EQ(RsaGenerateKey(&key, 256, 2), kErrKeyGenFailed);  // no odd prime avoids 1 mod 2
  EXPECT_EQ(RsaGenerateKey(&key, 256, 0), kErrKeyGenFailed);  // 0 has no inverse
  EXPECT_EQ(key, reinterpret_cast<CRSA*>(0x1)) << "no key is handed out";
  EXPECT_EQ(RsaGenerateKey(nullptr, 256, 3), kErrNullArgument);
  RsaHandle handle = 0;
  ASSERT_EQ(RsaGenerateNewKey(&handle, 768, 65537), kOk);
  uint32_t bits = 0;
  EXPECT_EQ(RsaHandleKeyBits(handle, &bits), kOk);
  EXPECT_EQ(bits, 768u);
  EXPECT_EQ(RsaFreeKey(handle), kOk);
}

}  // namespace
}  // namespace nivra::testing
