// The RSA key object on the textbook key: component loading and flags, export rules, completion
// from the primes, the raw operations' argument rules, the key handles (deep duplicates, garbage,
// stale and failed handles) and key generation's own rules (sizes, prime order and distance, the
// give-up path). Real-sized keys are cross-checked against OpenSSL in rsa_openssl_test.cpp.
#include <gtest/gtest.h>

#include "crypto/rsa_interface.h"
#include "crypto/rsa_key.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// A key with the given components set, in order, each a big-endian value.
KeyPtr KeyOf(std::initializer_list<std::pair<uint32_t, Bytes>> components) {
  CRSA* raw = nullptr;
  EXPECT_EQ(RsaCreateKey(&raw), kOk);
  KeyPtr key(raw);
  for (const auto& [id, value] : components) EXPECT_EQ(RsaSetKey(key.get(), id, value.data(), value.size()), kOk) << id;
  return key;
}

TEST(RsaKeyComponents, ShortValuesReplaceLowBytesAndFlagsNeverFall) {
  // e = 65537, then 03 written over its low byte: 65539.
  EXPECT_EQ(ExportKey(KeyOf({{kRsaComponentN, {0x0C, 0xA1}}, {kRsaComponentE, {1, 0, 1}}, {kRsaComponentE, {3}}}).get(),
                      kRsaComponentE),
            Hex("010003"));
  const KeyPtr key = KeyOf({});
  // The flags (public, private, CRT) after each component, loaded in this order.
  const std::pair<uint32_t, int> steps[] = {{kRsaComponentN, 0},   {kRsaComponentE, 100},  {kRsaComponentD, 110},
                                            {kRsaComponentP, 110}, {kRsaComponentQ, 110},  {kRsaComponentDP, 110},
                                            {kRsaComponentDQ, 110}, {kRsaComponentQInv, 111}};
  for (const auto& [id, flags] : steps) {
    const uint8_t value = 0x35;
    ASSERT_EQ(RsaSetKey(key.get(), id, &value, 1), kOk);
    EXPECT_EQ(key->hasPublic * 100 + key->hasPrivate * 10 + key->hasCrt, flags) << "after " << id;
  }
  const uint8_t zero = 0;
  ASSERT_EQ(RsaSetKey(key.get(), kRsaComponentE, &zero, 1), kOk);
  EXPECT_EQ(key->hasPublic, 1) << "flags are never lowered by a component load";
  EXPECT_EQ(RsaSetKey(key.get(), 127, nullptr, 0), kErrUnknownForm);
  EXPECT_EQ(RsaSetKey(key.get(), 136, nullptr, 0), kErrUnknownForm);
  EXPECT_EQ(RsaSetKey(nullptr, kRsaComponentE, nullptr, 0), kErrNullArgument);
}

// Each export needs its flag and non-zero components, and never writes part of its output.
TEST(RsaKeyComponents, ExportRules) {
  const KeyPtr shortKey = ImportKey(kRsaFormShortPrivate, kTinyShortPrivateDer);
  const KeyPtr publicOnly = KeyOf({{kRsaComponentN, {0x0C, 0xA1}}, {kRsaComponentE, {0x11}}});
  EXPECT_EQ(ExportKey(shortKey.get(), kRsaComponentD), Hex("0ac1"));
  EXPECT_EQ(ExportKey(shortKey.get(), kRsaFormShortPrivate), kTinyShortPrivateDer);
  Bytes out(40, 0xEE);
  size_t len = 16;
  EXPECT_EQ(RsaExportKey(shortKey.get(), kRsaComponentP, out.data(), &len), kErrMissingComponent);
  EXPECT_EQ(RsaExportKey(shortKey.get(), kRsaFormPrivate, out.data(), &len), kErrMissingComponent);
  EXPECT_EQ(RsaExportKey(publicOnly.get(), kRsaComponentD, out.data(), &len), kErrMissingComponent);
  EXPECT_EQ(RsaExportKey(publicOnly.get(), 4, out.data(), &len), kErrUnknownForm);
  const KeyPtr key = ImportKey(kRsaFormPrivate, kTinyPrivateDer);
  len = kTinyPrivateDer.size() - 1;
  EXPECT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, out.data(), &len), kErrBufferTooSmall);
  EXPECT_EQ(len, kTinyPrivateDer.size());
  EXPECT_EQ(out, Bytes(40, 0xEE));
  EXPECT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, out.data(), nullptr), kErrNullArgument);
  const uint8_t zero = 0;
  ASSERT_EQ(RsaSetKey(shortKey.get(), kRsaComponentE, &zero, 1), kOk);  // 17 -> 0, the flags stay up
  EXPECT_EQ(RsaExportKey(shortKey.get(), kRsaFormPublic, nullptr, &len), kErrMissingComponent);
  EXPECT_EQ(RsaExportKey(shortKey.get(), kRsaFormShortPrivate, nullptr, &len), kErrMissingComponent);
}

TEST(RsaKeyCompletion, PrimesAndExponentGiveTheWholeKeyWithTheLargerPrimeFirst) {
  const KeyPtr key = KeyOf({{kRsaComponentP, {0x35}}, {kRsaComponentQ, {0x3D}}, {kRsaComponentE, {0x11}}});
  uint32_t bits = 0;
  ASSERT_EQ(RsaKeyBits(key.get(), &bits), kOk);  // n computed from the primes
  EXPECT_EQ(bits, 12u);
  EXPECT_EQ(RsaKeyBits(key.get(), nullptr), kErrNullArgument);
  bits = 0;
  ASSERT_EQ(RsaCompleteKey(key.get(), &bits), kOk);
  EXPECT_EQ(bits, 12u);
  EXPECT_EQ(ExportKey(key.get(), kRsaFormPrivate), kTinyPrivateDer);
  const KeyPtr partial = KeyOf({{kRsaComponentP, {0x3D}}, {kRsaComponentE, {0x11}}});
  EXPECT_EQ(RsaCompleteKey(partial.get(), nullptr), kErrMissingComponent);
  const KeyPtr equalPrimes = KeyOf({{kRsaComponentP, {0x3D}}, {kRsaComponentQ, {0x3D}}, {kRsaComponentE, {0x11}}});
  EXPECT_EQ(RsaCompleteKey(equalPrimes.get(), nullptr), kErrGeneric) << "no inverse of q mod p";
  const KeyPtr noD = KeyOf({{kRsaComponentP, {0x3D}}, {kRsaComponentQ, {0x35}}, {kRsaComponentE, {0x03}}});
  EXPECT_EQ(RsaCompleteKey(noD.get(), nullptr), kErrGeneric) << "3 divides (61 - 1)(53 - 1)";
}

// Both ways, in place, by the CRT alone when n is absent; then the input length and range rules.
TEST(RsaRawOperation, TextbookValuesAndInputRules) {
  const KeyPtr key = ImportKey(kRsaFormPrivate, kTinyPrivateDer);
  const KeyPtr noModulus = KeyOf({{kRsaComponentP, {0x3D}}, {kRsaComponentQ, {0x35}}, {kRsaComponentDP, {0x35}},
                                  {kRsaComponentDQ, {0x31}}, {kRsaComponentQInv, {0x26}}});
  Bytes out(3);
  size_t outLen = 0;
  ASSERT_EQ(RsaPublic(key.get(), kTinyPlain.data(), 2, out.data(), &outLen), kOk);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + 2), kTinyCipher);
  EXPECT_EQ(outLen, 2u);
  out = kTinyCipher;
  ASSERT_EQ(RsaPrivate(noModulus.get(), out.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, kTinyPlain);
  const KeyPtr empty = KeyOf({});
  const Bytes modulus = Hex("0ca1");
  EXPECT_EQ(RsaPrivate(key.get(), Hex("41").data(), 1, out.data(), nullptr), kErrInputLength);
  EXPECT_EQ(RsaPublic(key.get(), Hex("000041").data(), 3, out.data(), nullptr), kErrInputLength);
  EXPECT_EQ(RsaPrivate(key.get(), modulus.data(), 2, out.data(), nullptr), kErrInputNotBelowModulus);
  EXPECT_EQ(RsaPublic(key.get(), modulus.data(), 2, out.data(), nullptr), kErrInputNotBelowModulus);
  EXPECT_EQ(RsaPrivate(empty.get(), modulus.data(), 2, out.data(), nullptr), kErrMissingComponent);
  EXPECT_EQ(RsaPublic(empty.get(), modulus.data(), 2, out.data(), nullptr), kErrMissingComponent);
  EXPECT_EQ(RsaPublic(key.get(), nullptr, 2, out.data(), nullptr), kErrNullArgument);
}

// A duplicate is a deep copy that outlives its source; handles that name no live key, and loads
// that fail, hand out and disturb nothing.
TEST(RsaHandles, DuplicatesGarbageStaleAndFailedHandles) {
  RsaHandle handle = 0, copy = 0;
  ASSERT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPrivate, kTinyPrivateDer.data(), kTinyPrivateDer.size()), kOk);
  Bytes out(2);
  ASSERT_EQ(RsaHandlePrivate(handle, kTinyCipher.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, kTinyPlain);
  ASSERT_EQ(RsaHandleDuplicate(handle, &copy), kOk);
  uint32_t bits = 0;
  for (RsaHandle bad : {RsaHandle{0}, kRsaHandleBias, handle + 8, handle - kRsaHandleBias, RsaHandle{0x1234}}) {
    EXPECT_EQ(RsaHandleKeyBits(bad, &bits), kErrInvalidHandle) << bad;
    EXPECT_EQ(RsaFreeKey(bad), kErrInvalidHandle) << bad;
  }
  ASSERT_EQ(RsaFreeKey(handle), kOk);
  EXPECT_EQ(RsaHandleKeyBits(handle, &bits), kErrInvalidHandle);
  EXPECT_EQ(RsaFreeKey(handle), kErrInvalidHandle);
  ASSERT_EQ(RsaHandlePublic(copy, out.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, kTinyCipher);
  size_t len = 0;
  EXPECT_EQ(RsaHandleExportKey(copy, kRsaFormPublic, nullptr, &len), kOk);
  EXPECT_EQ(len, kTinyPublicDer.size());
  EXPECT_EQ(RsaFreeKey(copy), kOk);
  handle = 77;
  EXPECT_EQ(RsaLoadKey(nullptr, nullptr, kRsaFormPublic, kTinyPrivateDer.data(), 3), kErrNullArgument);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPublic, nullptr, 3), kErrNullArgument);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, 9, kTinyPrivateDer.data(), kTinyPrivateDer.size()), kErrUnknownForm);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPublic, kTinyPrivateDer.data(), 5), kErrMalformedDer);
  EXPECT_EQ(handle, 77u) << "no handle is handed out on failure";
  EXPECT_EQ(RsaNewKey(nullptr), kErrNullArgument);
}

// Exact sizes with the larger prime first and the primes far apart; exponents that cannot work
// give up without handing out a key. (OpenSSL checks the generated keys themselves.)
TEST(RsaKeyGeneration, SizesPrimeOrderDistanceAndGivingUp) {
  for (const auto& [bits, e] : {std::pair{513u, 65537u}, {1023u, 17u}}) {
    const KeyPtr key = GenerateKey(bits, e);
    ASSERT_NE(key, nullptr);
    EXPECT_EQ(key->n.BitLength(), bits);
    EXPECT_EQ(key->p.BitLength(), (bits + 1) / 2);
    EXPECT_EQ(key->q.BitLength(), bits / 2);
    EXPECT_GT(key->p.Compare(key->q), 0) << "p is the larger prime";
    CBigNumber distance;
    ASSERT_EQ(distance.CopyFrom(key->p), 0);
    ASSERT_EQ(distance.Sub(key->q), 0);
    EXPECT_GE(distance.BitLength(), bits / 2 - 5);
  }
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
