// The RSA key object: component loading and flags, export rules, completion from the primes, the
// raw operations' argument rules, and the biased handles of the key interface (layout, garbage
// and stale handles, use from several threads).
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

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
  // e = 65537, then 03 written over its low byte: 65539. On an empty e the same load is 3.
  EXPECT_EQ(ExportKey(KeyOf({{kRsaComponentN, {0x0C, 0xA1}}, {kRsaComponentE, {1, 0, 1}}, {kRsaComponentE, {3}}}).get(),
                      kRsaComponentE),
            Hex("010003"));
  EXPECT_EQ(ExportKey(KeyOf({{kRsaComponentE, {3}}, {kRsaComponentN, {0x0C, 0xA1}}}).get(), kRsaComponentE), Hex("03"));
  const KeyPtr key = KeyOf({});
  const struct {
    uint32_t id;
    uint8_t hasPublic, hasPrivate, hasCrt;
  } steps[] = {{kRsaComponentN, 0, 0, 0},  {kRsaComponentE, 1, 0, 0},  {kRsaComponentD, 1, 1, 0},
               {kRsaComponentP, 1, 1, 0},  {kRsaComponentQ, 1, 1, 0},  {kRsaComponentDP, 1, 1, 0},
               {kRsaComponentDQ, 1, 1, 0}, {kRsaComponentQInv, 1, 1, 1}};
  for (const auto& s : steps) {
    const uint8_t value = 0x35;
    ASSERT_EQ(RsaSetKey(key.get(), s.id, &value, 1), kOk);
    EXPECT_TRUE(key->hasPublic == s.hasPublic && key->hasPrivate == s.hasPrivate && key->hasCrt == s.hasCrt)
        << "after " << s.id;
  }
  const uint8_t zero = 0;
  ASSERT_EQ(RsaSetKey(key.get(), kRsaComponentE, &zero, 1), kOk);
  EXPECT_EQ(key->hasPublic, 1) << "flags are never lowered by a component load";
  EXPECT_EQ(RsaSetKey(key.get(), 127, nullptr, 0), kErrUnknownForm);
  EXPECT_EQ(RsaSetKey(key.get(), 136, nullptr, 0), kErrUnknownForm);
  EXPECT_EQ(RsaSetKey(nullptr, kRsaComponentE, nullptr, 0), kErrNullArgument);
}

TEST(RsaKeyComponents, ExportNeedsTheMatchingFlagAndNeverWritesPartly) {
  const KeyPtr shortKey = ImportKey(kRsaFormShortPrivate, kTinyShortPrivateDer);
  const KeyPtr publicOnly = KeyOf({{kRsaComponentN, {0x0C, 0xA1}}, {kRsaComponentE, {0x11}}});
  EXPECT_EQ(ExportKey(shortKey.get(), kRsaComponentD), Hex("0ac1"));
  EXPECT_EQ(ExportKey(publicOnly.get(), kRsaComponentN), Hex("0ca1"));
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
  len = out.size();
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, out.data(), &len), kOk);
  EXPECT_EQ(Bytes(out.begin(), out.begin() + len), kTinyPrivateDer);
  EXPECT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, out.data(), nullptr), kErrNullArgument);
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

// Both ways, by both private paths, in place, and by the CRT alone when n is absent.
TEST(RsaRawOperation, TextbookValues) {
  const KeyPtr crt = ImportKey(kRsaFormPrivate, kTinyPrivateDer);
  const KeyPtr plain = ImportKey(kRsaFormShortPrivate, kTinyShortPrivateDer);
  const KeyPtr noModulus = KeyOf({{kRsaComponentP, {0x3D}}, {kRsaComponentQ, {0x35}}, {kRsaComponentDP, {0x35}},
                                  {kRsaComponentDQ, {0x31}}, {kRsaComponentQInv, {0x26}}});
  Bytes out(2);
  size_t outLen = 0;
  ASSERT_EQ(RsaPublic(crt.get(), kTinyPlain.data(), 2, out.data(), &outLen), kOk);
  EXPECT_EQ(out, kTinyCipher);
  EXPECT_EQ(outLen, 2u);
  for (const CRSA* key : {crt.get(), plain.get(), noModulus.get()}) {
    out = kTinyCipher;
    ASSERT_EQ(RsaPrivate(key, out.data(), 2, out.data(), nullptr), kOk);
    EXPECT_EQ(out, kTinyPlain);
  }
}

TEST(RsaRawOperation, InputLengthAndRangeRules) {
  const KeyPtr key = ImportKey(kRsaFormPrivate, kTinyPrivateDer);
  const KeyPtr empty = KeyOf({});
  Bytes out(3);
  const Bytes modulus = Hex("0ca1");
  EXPECT_EQ(RsaPrivate(key.get(), Hex("41").data(), 1, out.data(), nullptr), kErrInputLength);
  EXPECT_EQ(RsaPublic(key.get(), Hex("000041").data(), 3, out.data(), nullptr), kErrInputLength);
  EXPECT_EQ(RsaPrivate(key.get(), modulus.data(), 2, out.data(), nullptr), kErrInputNotBelowModulus);
  EXPECT_EQ(RsaPublic(key.get(), modulus.data(), 2, out.data(), nullptr), kErrInputNotBelowModulus);
  EXPECT_EQ(RsaPrivate(empty.get(), modulus.data(), 2, out.data(), nullptr), kErrMissingComponent);
  EXPECT_EQ(RsaPublic(empty.get(), modulus.data(), 2, out.data(), nullptr), kErrMissingComponent);
  EXPECT_EQ(RsaPublic(key.get(), nullptr, 2, out.data(), nullptr), kErrNullArgument);
}

TEST(RsaHandles, HandleIsTheRecordAddressPlusTheBiasAndReachesTheKey) {
  RsaHandle handle = 0, copy = 0;
  ASSERT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPrivate, kTinyPrivateDer.data(), kTinyPrivateDer.size()), kOk);
  RsaKeyInterface* record = nullptr;
  ASSERT_EQ(RsaLookupKey(handle, &record), kOk);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(record) + 253236u, handle);
  EXPECT_EQ(record->self, record);
  EXPECT_EQ(record->algorithm, 65u);
  uint32_t bits = 0;
  ASSERT_NE(record->key, nullptr);
  EXPECT_EQ(record->opKeyBits(record->key, &bits), kOk);
  EXPECT_EQ(bits, 12u);
  Bytes out(2);
  ASSERT_EQ(RsaHandlePrivate(handle, kTinyCipher.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, kTinyPlain);
  ASSERT_EQ(RsaHandleDuplicate(handle, &copy), kOk);  // a deep copy: it outlives its source
  EXPECT_NE(copy, handle);
  ASSERT_EQ(RsaFreeKey(handle), kOk);
  ASSERT_EQ(RsaHandlePublic(copy, out.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, kTinyCipher);
  size_t len = 0;
  EXPECT_EQ(RsaHandleExportKey(copy, kRsaFormPublic, nullptr, &len), kOk);
  EXPECT_EQ(len, kTinyPublicDer.size());
  EXPECT_EQ(RsaFreeKey(copy), kOk);
}

TEST(RsaHandles, GarbageStaleAndFailedHandles) {
  RsaHandle handle = 0;
  ASSERT_EQ(RsaNewKey(&handle), kOk);
  ASSERT_EQ(RsaHandleSetKey(handle, kRsaFormPublic, kTinyPublicDer.data(), kTinyPublicDer.size()), kOk);
  uint32_t bits = 0;
  for (RsaHandle bad : {RsaHandle{0}, kRsaHandleBias, handle + 8, handle - kRsaHandleBias, RsaHandle{0x1234}}) {
    EXPECT_EQ(RsaHandleKeyBits(bad, &bits), kErrInvalidHandle) << bad;
    EXPECT_EQ(RsaFreeKey(bad), kErrInvalidHandle) << bad;
  }
  EXPECT_EQ(RsaHandleKeyBits(handle, &bits), kOk) << "the live handle was not disturbed";
  EXPECT_EQ(bits, 12u);
  ASSERT_EQ(RsaFreeKey(handle), kOk);
  EXPECT_EQ(RsaHandleKeyBits(handle, &bits), kErrInvalidHandle);
  EXPECT_EQ(RsaFreeKey(handle), kErrInvalidHandle);
  handle = 77;
  EXPECT_EQ(RsaLoadKey(nullptr, nullptr, kRsaFormPublic, kTinyPrivateDer.data(), 3), kErrNullArgument);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPublic, nullptr, 3), kErrNullArgument);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, 9, kTinyPrivateDer.data(), kTinyPrivateDer.size()), kErrUnknownForm);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPublic, kTinyPrivateDer.data(), 5), kErrMalformedDer);
  EXPECT_EQ(handle, 77u) << "no handle is handed out on failure";
  EXPECT_EQ(RsaNewKey(nullptr), kErrNullArgument);
}

// A freed handle is not checked again here: another thread may already hold a new key at the
// same address, which makes the old number valid again (the single-threaded tests cover it).
TEST(RsaHandles, ConcurrentCreationUseAndDestruction) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&failures] {
      for (int i = 0; i < 200; ++i) {
        RsaHandle handle = 0;
        Bytes out(2);
        if (RsaLoadKey(&handle, nullptr, kRsaFormPrivate, kTinyPrivateDer.data(), kTinyPrivateDer.size()) != kOk ||
            RsaHandlePrivate(handle, kTinyCipher.data(), 2, out.data(), nullptr) != kOk || out != kTinyPlain ||
            RsaFreeKey(handle) != kOk) {
          ++failures;
        }
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace nivra::testing
