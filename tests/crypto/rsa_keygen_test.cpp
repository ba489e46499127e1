// Key generation: exact modulus size, prime order and distance, the exponent rule for the primes,
// a working key pair, and the give-up path.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "crypto/pkcs1.h"
#include "crypto/rsa_interface.h"
#include "crypto/rsa_key.h"

namespace nivra::crypto {
namespace {

using Bytes = std::vector<uint8_t>;

struct KeyDeleter {
  void operator()(CRSA* key) const { RsaDestroyKey(key); }
};
using KeyPtr = std::unique_ptr<CRSA, KeyDeleter>;

KeyPtr Generate(uint32_t bits, uint32_t e) {
  CRSA* key = nullptr;
  EXPECT_EQ(RsaGenerateKey(&key, bits, e), kOk);
  return KeyPtr(key);
}

uint32_t ModWord(const CBigNumber& a, uint32_t w) {
  CBigNumber m, r;
  m.SetWord(w);
  EXPECT_EQ(r.Mod(a, m), 0);
  return r.IsZero() ? 0 : r.words[0];
}

TEST(RsaKeyGeneration, ModulusHasExactlyTheRequestedBits) {
  for (uint32_t bits : {512u, 513u, 768u, 1023u, 1024u}) {
    KeyPtr key = Generate(bits, 65537);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->n.BitLength(), bits);
    EXPECT_EQ(key->p.BitLength(), (bits + 1) / 2);
    EXPECT_EQ(key->q.BitLength(), bits / 2);
    EXPECT_EQ(key->hasCrt + key->hasPrivate + key->hasPublic, 3);
  }
}

TEST(RsaKeyGeneration, PrimesAreOrderedFarApartAndNotOneModuloE) {
  for (uint32_t e : {3u, 17u, 65537u}) {
    KeyPtr key = Generate(1024, e);
    ASSERT_NE(key, nullptr);
    EXPECT_GT(key->p.Compare(key->q), 0) << "p is the larger prime";
    CBigNumber distance;
    ASSERT_EQ(distance.CopyFrom(key->p), 0);
    ASSERT_EQ(distance.Sub(key->q), 0);
    EXPECT_GE(distance.BitLength(), 1024u / 2 - 5);
    EXPECT_NE(ModWord(key->p, e), 1u);
    EXPECT_NE(ModWord(key->q, e), 1u);
    EXPECT_TRUE(key->e.IsWord(e));
    EXPECT_EQ(key->p.IsProbablePrime(), 0);
    EXPECT_EQ(key->q.IsProbablePrime(), 0);
  }
}

TEST(RsaKeyGeneration, GeneratedPairEncryptsAndSigns) {
  KeyPtr key = Generate(1024, 65537);
  ASSERT_NE(key, nullptr);
  const size_t k = key->ModulusBytes();
  const Bytes secret = {1, 2, 3, 4, 5, 6, 7, 8};
  Bytes block(k), cipher(k), plain(k);
  ASSERT_EQ(OaepEncode(block.data(), k, secret.data(), secret.size()), kOk);
  ASSERT_EQ(RsaPublic(key.get(), block.data(), k, cipher.data(), nullptr), kOk);
  ASSERT_EQ(RsaPrivate(key.get(), cipher.data(), k, plain.data(), nullptr), kOk);
  EXPECT_EQ(plain, block);
  // The same pair through the private exponent alone, as a short private key.
  size_t len = 0;
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormShortPrivate, nullptr, &len), kOk);
  Bytes der(len);
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormShortPrivate, der.data(), &len), kOk);
  CRSA* shortKey = nullptr;
  ASSERT_EQ(RsaImportKey(&shortKey, nullptr, kRsaFormShortPrivate, der.data(), der.size()), kOk);
  KeyPtr owned(shortKey);
  ASSERT_EQ(RsaPrivate(owned.get(), cipher.data(), k, plain.data(), nullptr), kOk);
  EXPECT_EQ(plain, block);
}

TEST(RsaKeyGeneration, ExponentsThatCannotWorkGiveUpAfterElevenAttempts) {
  CRSA* key = reinterpret_cast<CRSA*>(0x1);
  EXPECT_EQ(RsaGenerateKey(&key, 256, 2), kErrKeyGenFailed);  // no odd prime avoids 1 mod 2
  EXPECT_EQ(RsaGenerateKey(&key, 256, 0), kErrKeyGenFailed);  // 0 has no inverse
  EXPECT_EQ(key, reinterpret_cast<CRSA*>(0x1)) << "no key is handed out";
  EXPECT_EQ(RsaGenerateKey(nullptr, 256, 3), kErrNullArgument);
}

TEST(RsaKeyGeneration, ThroughAHandle) {
  RsaHandle handle = 0;
  ASSERT_EQ(RsaGenerateNewKey(&handle, 768, 65537), kOk);
  uint32_t bits = 0;
  EXPECT_EQ(RsaHandleKeyBits(handle, &bits), kOk);
  EXPECT_EQ(bits, 768u);
  EXPECT_EQ(RsaFreeKey(handle), kOk);
}

}  // namespace
}  // namespace nivra::crypto
