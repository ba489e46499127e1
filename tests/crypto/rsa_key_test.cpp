// The RSA key object: component loading and flags, completion from the primes, the raw
// operations' argument rules, and the biased handles of the key interface.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "crypto/rsa_interface.h"
#include "crypto/rsa_key.h"

namespace nivra::crypto {
namespace {

using Bytes = std::vector<uint8_t>;

// The textbook key p = 61, q = 53, e = 17: n = 3233, d = 2753, dP = 53, dQ = 49, qInv = 38;
// 65^17 mod 3233 = 2790.
const Bytes kTinyPrivateDer = {0x30, 0x1D, 0x02, 0x01, 0x00, 0x02, 0x02, 0x0C, 0xA1, 0x02, 0x01,
                               0x11, 0x02, 0x02, 0x0A, 0xC1, 0x02, 0x01, 0x3D, 0x02, 0x01, 0x35,
                               0x02, 0x01, 0x35, 0x02, 0x01, 0x31, 0x02, 0x01, 0x26};
const Bytes kTinyShortPrivateDer = {0x30, 0x0B, 0x02, 0x02, 0x0C, 0xA1, 0x02,
                                    0x01, 0x11, 0x02, 0x02, 0x0A, 0xC1};

struct KeyDeleter {
  void operator()(CRSA* key) const { RsaDestroyKey(key); }
};
using KeyPtr = std::unique_ptr<CRSA, KeyDeleter>;

KeyPtr NewKey() {
  CRSA* key = nullptr;
  EXPECT_EQ(RsaCreateKey(&key), kOk);
  return KeyPtr(key);
}

KeyPtr Import(uint32_t form, const Bytes& der) {
  CRSA* key = nullptr;
  EXPECT_EQ(RsaImportKey(&key, nullptr, form, der.data(), der.size()), kOk);
  return KeyPtr(key);
}

Bytes Component(const CRSA* key, uint32_t id) {
  size_t len = 0;
  EXPECT_EQ(RsaExportKey(key, id, nullptr, &len), kOk);
  Bytes out(len);
  EXPECT_EQ(RsaExportKey(key, id, out.data(), &len), kOk);
  return out;
}

void Set(CRSA* key, uint32_t id, const Bytes& value) {
  EXPECT_EQ(RsaSetKey(key, id, value.data(), value.size()), kOk);
}

TEST(RsaKeyComponents, SettingAShortValueReplacesOnlyItsLowBytes) {
  KeyPtr key = NewKey();
  Set(key.get(), kRsaComponentN, {0x0C, 0xA1});
  Set(key.get(), kRsaComponentE, {0x01, 0x00, 0x01});
  Set(key.get(), kRsaComponentE, {0x03});
  EXPECT_EQ(Component(key.get(), kRsaComponentE), (Bytes{0x01, 0x00, 0x03}));  // 65539
  KeyPtr empty = NewKey();
  Set(empty.get(), kRsaComponentE, {0x03});
  Set(empty.get(), kRsaComponentN, {0x0C, 0xA1});
  EXPECT_EQ(Component(empty.get(), kRsaComponentE), (Bytes{0x03}));
}

TEST(RsaKeyComponents, FlagsRiseWithTheirComponentsAndNeverFall) {
  KeyPtr key = NewKey();
  Set(key.get(), kRsaComponentN, {0x0C, 0xA1});
  EXPECT_EQ(key->hasPublic, 0);
  Set(key.get(), kRsaComponentE, {0x11});
  EXPECT_EQ(key->hasPublic, 1);
  EXPECT_EQ(key->hasPrivate, 0);
  Set(key.get(), kRsaComponentD, {0x0A, 0xC1});
  EXPECT_EQ(key->hasPrivate, 1);
  for (uint32_t id : {kRsaComponentP, kRsaComponentQ, kRsaComponentDP, kRsaComponentDQ}) {
    Set(key.get(), id, {0x35});
    EXPECT_EQ(key->hasCrt, 0) << id;
  }
  Set(key.get(), kRsaComponentQInv, {0x26});
  EXPECT_EQ(key->hasCrt, 1);
  Set(key.get(), kRsaComponentE, {0x00});  // e becomes 0x00 in its only byte: zero
  EXPECT_EQ(key->hasPublic, 1) << "flags are never lowered by a component load";
  EXPECT_EQ(RsaSetKey(key.get(), 127, nullptr, 0), kErrUnknownForm);
  EXPECT_EQ(RsaSetKey(key.get(), 136, nullptr, 0), kErrUnknownForm);
  EXPECT_EQ(RsaSetKey(nullptr, kRsaComponentE, nullptr, 0), kErrNullArgument);
}

TEST(RsaKeyComponents, ComponentExportNeedsTheMatchingFlag) {
  KeyPtr shortKey = Import(kRsaFormShortPrivate, kTinyShortPrivateDer);
  EXPECT_EQ(Component(shortKey.get(), kRsaComponentD), (Bytes{0x0A, 0xC1}));
  size_t len = 16;
  uint8_t out[16];
  EXPECT_EQ(RsaExportKey(shortKey.get(), kRsaComponentP, out, &len), kErrMissingComponent);
  EXPECT_EQ(RsaExportKey(shortKey.get(), kRsaFormPrivate, out, &len), kErrMissingComponent);
  KeyPtr publicOnly = NewKey();
  Set(publicOnly.get(), kRsaComponentN, {0x0C, 0xA1});
  Set(publicOnly.get(), kRsaComponentE, {0x11});
  EXPECT_EQ(Component(publicOnly.get(), kRsaComponentN), (Bytes{0x0C, 0xA1}));
  EXPECT_EQ(RsaExportKey(publicOnly.get(), kRsaComponentD, out, &len), kErrMissingComponent);
  EXPECT_EQ(RsaExportKey(publicOnly.get(), 4, out, &len), kErrUnknownForm);
}

TEST(RsaKeyComponents, ExportReportsTheNeededLengthAndNeverWritesPartly) {
  KeyPtr key = Import(kRsaFormPrivate, kTinyPrivateDer);
  size_t len = 0;
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, nullptr, &len), kOk);
  EXPECT_EQ(len, kTinyPrivateDer.size());
  Bytes small(len - 1, 0xEE);
  size_t capacity = small.size();
  EXPECT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, small.data(), &capacity), kErrBufferTooSmall);
  EXPECT_EQ(capacity, kTinyPrivateDer.size());
  EXPECT_EQ(small, Bytes(len - 1, 0xEE));
  Bytes out(len + 5);
  capacity = out.size();
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, out.data(), &capacity), kOk);
  EXPECT_EQ(capacity, kTinyPrivateDer.size());
  EXPECT_EQ(Bytes(out.begin(), out.begin() + capacity), kTinyPrivateDer);
  EXPECT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, out.data(), nullptr), kErrNullArgument);
}

TEST(RsaKeyCompletion, PrimesAndExponentGiveTheWholeKeyWithTheLargerPrimeFirst) {
  KeyPtr key = NewKey();
  Set(key.get(), kRsaComponentP, {0x35});  // 53: the smaller prime given first
  Set(key.get(), kRsaComponentQ, {0x3D});  // 61
  Set(key.get(), kRsaComponentE, {0x11});
  uint32_t bits = 0;
  ASSERT_EQ(RsaCompleteKey(key.get(), &bits), kOk);
  EXPECT_EQ(bits, 12u);
  size_t len = 0;
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, nullptr, &len), kOk);
  Bytes der(len);
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, der.data(), &len), kOk);
  EXPECT_EQ(der, kTinyPrivateDer);
}

TEST(RsaKeyCompletion, MissingOrUnusablePartsAreRefused) {
  KeyPtr key = NewKey();
  Set(key.get(), kRsaComponentP, {0x3D});
  Set(key.get(), kRsaComponentE, {0x11});
  EXPECT_EQ(RsaCompleteKey(key.get(), nullptr), kErrMissingComponent);
  Set(key.get(), kRsaComponentQ, {0x3D});  // p = q: no inverse of q mod p
  EXPECT_EQ(RsaCompleteKey(key.get(), nullptr), kErrGeneric);
  Set(key.get(), kRsaComponentQ, {0x35});
  Set(key.get(), kRsaComponentE, {0x03});  // 3 divides (61 - 1)(53 - 1): no d
  EXPECT_EQ(RsaCompleteKey(key.get(), nullptr), kErrGeneric);
}

TEST(RsaKeyBitsOf, ModulusIsComputedFromThePrimesWhenAbsent) {
  KeyPtr key = NewKey();
  Set(key.get(), kRsaComponentP, {0x3D});
  Set(key.get(), kRsaComponentQ, {0x35});
  uint32_t bits = 0;
  ASSERT_EQ(RsaKeyBits(key.get(), &bits), kOk);
  EXPECT_EQ(bits, 12u);
  EXPECT_EQ(RsaKeyBits(key.get(), nullptr), kErrNullArgument);
}

TEST(RsaRawOperation, TextbookValuesBothWaysAndByBothPrivatePaths) {
  KeyPtr crt = Import(kRsaFormPrivate, kTinyPrivateDer);
  KeyPtr plain = Import(kRsaFormShortPrivate, kTinyShortPrivateDer);
  const Bytes message = {0x00, 0x41};  // 65
  const Bytes cipher = {0x0A, 0xE6};   // 2790
  Bytes out(2);
  size_t outLen = 0;
  ASSERT_EQ(RsaPublic(crt.get(), message.data(), 2, out.data(), &outLen), kOk);
  EXPECT_EQ(out, cipher);
  EXPECT_EQ(outLen, 2u);
  ASSERT_EQ(RsaPrivate(crt.get(), cipher.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, message);
  ASSERT_EQ(RsaPrivate(plain.get(), cipher.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, message);
  Bytes inPlace = cipher;
  ASSERT_EQ(RsaPrivate(crt.get(), inPlace.data(), 2, inPlace.data(), nullptr), kOk);
  EXPECT_EQ(inPlace, message);
}

TEST(RsaRawOperation, InputLengthAndRangeRules) {
  KeyPtr key = Import(kRsaFormPrivate, kTinyPrivateDer);
  Bytes out(3);
  const Bytes shortInput = {0x41};
  EXPECT_EQ(RsaPrivate(key.get(), shortInput.data(), 1, out.data(), nullptr), kErrInputLength);
  const Bytes longInput = {0x00, 0x00, 0x41};
  EXPECT_EQ(RsaPublic(key.get(), longInput.data(), 3, out.data(), nullptr), kErrInputLength);
  const Bytes modulus = {0x0C, 0xA1};
  EXPECT_EQ(RsaPrivate(key.get(), modulus.data(), 2, out.data(), nullptr),
            kErrInputNotBelowModulus);
  EXPECT_EQ(RsaPublic(key.get(), modulus.data(), 2, out.data(), nullptr),
            kErrInputNotBelowModulus);
  KeyPtr empty = NewKey();
  EXPECT_EQ(RsaPrivate(empty.get(), modulus.data(), 2, out.data(), nullptr), kErrMissingComponent);
  EXPECT_EQ(RsaPublic(empty.get(), modulus.data(), 2, out.data(), nullptr), kErrMissingComponent);
  EXPECT_EQ(RsaPublic(key.get(), nullptr, 2, out.data(), nullptr), kErrNullArgument);
}

TEST(RsaRawOperation, CrtWithoutModulusSkipsTheRangeCheck) {
  KeyPtr key = NewKey();
  Set(key.get(), kRsaComponentP, {0x3D});
  Set(key.get(), kRsaComponentQ, {0x35});
  Set(key.get(), kRsaComponentDP, {0x35});
  Set(key.get(), kRsaComponentDQ, {0x31});
  Set(key.get(), kRsaComponentQInv, {0x26});
  ASSERT_EQ(key->hasCrt, 1);
  const Bytes cipher = {0x0A, 0xE6};
  Bytes out(2);
  ASSERT_EQ(RsaPrivate(key.get(), cipher.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, (Bytes{0x00, 0x41}));
}

TEST(RsaKeyCopy, DuplicateIsIndependentOfItsSource) {
  KeyPtr key = Import(kRsaFormPrivate, kTinyPrivateDer);
  CRSA* copy = nullptr;
  ASSERT_EQ(RsaDuplicateKey(key.get(), &copy), kOk);
  KeyPtr owned(copy);
  key->Clear();
  EXPECT_EQ(key->hasCrt, 0);
  EXPECT_EQ(owned->hasCrt, 1);
  EXPECT_EQ(Component(owned.get(), kRsaComponentQInv), (Bytes{0x26}));
  EXPECT_EQ(RsaDuplicateKey(nullptr, &copy), kErrNullArgument);
}

TEST(RsaHandles, HandleIsTheRecordAddressPlusTheBias) {
  RsaHandle handle = 0;
  ASSERT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPrivate, kTinyPrivateDer.data(),
                       kTinyPrivateDer.size()),
            kOk);
  RsaKeyInterface* record = nullptr;
  ASSERT_EQ(RsaLookupKey(handle, &record), kOk);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(record) + 253236u, handle);
  EXPECT_EQ(record->self, record);
  EXPECT_EQ(record->algorithm, 65u);
  ASSERT_NE(record->key, nullptr);
  uint32_t bits = 0;
  EXPECT_EQ(record->opKeyBits(record->key, &bits), kOk);
  EXPECT_EQ(bits, 12u);
  EXPECT_EQ(RsaFreeKey(handle), kOk);
}

TEST(RsaHandles, GarbageStaleAndNullHandlesAreInvalid) {
  RsaHandle handle = 0;
  ASSERT_EQ(RsaNewKey(&handle), kOk);
  uint32_t bits = 0;
  EXPECT_EQ(RsaHandleKeyBits(handle, &bits), kOk);
  EXPECT_EQ(bits, 0u);
  for (RsaHandle bad : {RsaHandle{0}, RsaHandle{kRsaHandleBias}, handle + 8, handle - 253236u,
                        RsaHandle{0x1234}}) {
    EXPECT_EQ(RsaHandleKeyBits(bad, &bits), kErrInvalidHandle) << bad;
  }
  ASSERT_EQ(RsaFreeKey(handle), kOk);
  EXPECT_EQ(RsaHandleKeyBits(handle, &bits), kErrInvalidHandle);
  EXPECT_EQ(RsaFreeKey(handle), kErrInvalidHandle);
}

TEST(RsaHandles, LoadRefusesNullArgumentsAndLeavesNoRecordOnFailure) {
  RsaHandle handle = 77;
  EXPECT_EQ(RsaLoadKey(nullptr, nullptr, kRsaFormPublic, kTinyPrivateDer.data(), 3),
            kErrNullArgument);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPublic, nullptr, 3), kErrNullArgument);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, 9, kTinyPrivateDer.data(), kTinyPrivateDer.size()),
            kErrUnknownForm);
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPublic, kTinyPrivateDer.data(), 5),
            kErrMalformedDer);
  EXPECT_EQ(handle, 77u) << "no handle is handed out on failure";
  EXPECT_EQ(RsaNewKey(nullptr), kErrNullArgument);
}

TEST(RsaHandles, OperationsThroughTheHandleReachTheKey) {
  RsaHandle handle = 0;
  ASSERT_EQ(RsaNewKey(&handle), kOk);
  ASSERT_EQ(RsaHandleSetKey(handle, kRsaFormPrivate, kTinyPrivateDer.data(),
                            kTinyPrivateDer.size()),
            kOk);
  const Bytes cipher = {0x0A, 0xE6};
  Bytes out(2);
  ASSERT_EQ(RsaHandlePrivate(handle, cipher.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, (Bytes{0x00, 0x41}));
  RsaHandle copy = 0;
  ASSERT_EQ(RsaHandleDuplicate(handle, &copy), kOk);
  EXPECT_NE(copy, handle);
  ASSERT_EQ(RsaFreeKey(handle), kOk);
  ASSERT_EQ(RsaHandlePublic(copy, out.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, cipher);
  size_t len = 0;
  EXPECT_EQ(RsaHandleExportKey(copy, kRsaFormPublic, nullptr, &len), kOk);
  EXPECT_EQ(len, 9u);
  EXPECT_EQ(RsaFreeKey(copy), kOk);
}

// A freed handle is not checked again here: another thread may already hold a new key at the
// same address, which makes the old number valid again (the single-threaded tests cover it).
TEST(RsaHandles, ConcurrentCreationUseAndDestruction) {
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&failures] {
      const Bytes cipher = {0x0A, 0xE6};
      for (int i = 0; i < 200; ++i) {
        RsaHandle handle = 0;
        Bytes out(2);
        if (RsaLoadKey(&handle, nullptr, kRsaFormPrivate, kTinyPrivateDer.data(),
                       kTinyPrivateDer.size()) != kOk ||
            RsaHandlePrivate(handle, cipher.data(), 2, out.data(), nullptr) != kOk ||
            out != Bytes{0x00, 0x41} || RsaFreeKey(handle) != kOk) {
          ++failures;
        }
      }
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(failures.load(), 0);
}

}  // namespace
}  // namespace nivra::crypto
