// The RSA key object on the textbook key: component loading and flags, export rules, completion
// from the primes, the raw operations' argument rules, the key handles (deep duplicates, garbage,
// stale and failed handles), key generation's own rules (sizes, prime order and distance, the
// give-up path), and DER import: the accepted length forms and every kind of malformed input,
// which must give the malformed-DER error (or unknown form) and leave no key behind. Real-sized
// keys are cross-checked against OpenSSL in rsa_openssl_test.cpp.
#include <gtest/gtest.h>

#include "crypto/rsa_interface.h"
#include "crypto/rsa_key.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// The textbook key p = 61, q = 53, e = 17: n = 3233, d = 2753, dP = 53, dQ = 49, qInv = 38;
// 65^17 mod 3233 = 2790. Written out by hand in each DER form.
const Bytes kTinyPublicDer = {0x30, 0x07, 0x02, 0x02, 0x0C, 0xA1, 0x02, 0x01, 0x11};
const Bytes kTinyShortPrivateDer = {0x30, 0x0B, 0x02, 0x02, 0x0C, 0xA1, 0x02,
                                           0x01, 0x11, 0x02, 0x02, 0x0A, 0xC1};
const Bytes kTinyPrivateDer = {0x30, 0x1D, 0x02, 0x01, 0x00, 0x02, 0x02, 0x0C, 0xA1, 0x02, 0x01,
                                      0x11, 0x02, 0x02, 0x0A, 0xC1, 0x02, 0x01, 0x3D, 0x02, 0x01, 0x35,
                                      0x02, 0x01, 0x35, 0x02, 0x01, 0x31, 0x02, 0x01, 0x26};
const Bytes kTinyPlain = {0x00, 0x41};   // 65
const Bytes kTinyCipher = {0x0A, 0xE6};  // 2790

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
// give up without handing out a key. (OpenSSL checks the generated keys themselves, and the card
// service's transport key, made by handle, meets OpenSSL in the service's session frame tests.)
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
}

Status TryImport(uint32_t form, const Bytes& der, uint32_t* bits = nullptr) {
  CRSA* key = reinterpret_cast<CRSA*>(0x1);  // must stay untouched on failure
  uint32_t localBits = 0;
  static const uint8_t kNothing[1] = {0};
  const uint8_t* data = der.empty() ? kNothing : der.data();  // an empty input, not a null one
  const Status status = RsaImportKey(&key, bits ? bits : &localBits, form, data, der.size());
  if (status == kOk) RsaDestroyKey(key);
  else EXPECT_EQ(key, reinterpret_cast<CRSA*>(0x1)) << "a failed import hands out no key";
  return status;
}

// The public key's SEQUENCE length written in 1 to 4 long-form octets.
Bytes LongForm(uint8_t octets) {
  Bytes der = {0x30, static_cast<uint8_t>(0x80 | octets)};
  der.resize(der.size() + octets - 1, 0x00);
  der.push_back(0x07);
  return Concat(der, Bytes(kTinyPublicDer.begin() + 2, kTinyPublicDer.end()));
}

TEST(RsaDerImport, AcceptedForms) {
  Bytes nullVersion = kTinyPrivateDer;
  nullVersion[2] = 0x05;  // NULL instead of INTEGER, same length: the version is skipped unread
  const struct {
    const char* what;
    uint32_t form;
    Bytes der;
  } cases[] = {{"public", kRsaFormPublic, kTinyPublicDer},
               {"short private", kRsaFormShortPrivate, kTinyShortPrivateDer},
               {"private", kRsaFormPrivate, kTinyPrivateDer},
               {"version of another tag", kRsaFormPrivate, nullVersion},
               {"leading zero bytes", kRsaFormPublic, Hex("3009 020400000ca1 020111")},
               {"1 length octet", kRsaFormPublic, LongForm(1)},
               {"2 length octets", kRsaFormPublic, LongForm(2)},
               {"3 length octets", kRsaFormPublic, LongForm(3)},
               {"4 length octets", kRsaFormPublic, LongForm(4)}};
  for (const auto& c : cases) {
    uint32_t bits = 0;
    EXPECT_EQ(TryImport(c.form, c.der, &bits), kOk) << c.what;
    EXPECT_EQ(bits, 12u) << c.what;
  }
  const KeyPtr key = ImportKey(kRsaFormPublic, Hex("3009 020400000ca1 020111"));
  EXPECT_EQ(key->n.used, 1u) << "leading zero bytes leave no words";
}

// Every kind of malformed input (each prefix of each form among them), unknown forms and nulls.
TEST(RsaDerImport, MalformedInputUnknownFormsAndNulls) {
  auto changed = [](Bytes der, size_t index, uint8_t value) {
    der[index] = value;
    return der;
  };
  const struct {
    const char* what;
    uint32_t form;
    Bytes der;
  } cases[] = {
      {"not a sequence", kRsaFormPublic, changed(kTinyPublicDer, 0, 0x31)},
      {"sequence short of input", kRsaFormPrivate, changed(kTinyPrivateDer, 1, 0x1C)},
      {"sequence past input", kRsaFormPrivate, changed(kTinyPrivateDer, 1, 0x1E)},
      {"indefinite length", kRsaFormPublic, Hex("3080 02010b 020111")},
      {"five length octets", kRsaFormPublic, Hex("30850000000007 02020ca1 020111")},
      {"huge length", kRsaFormPublic, Hex("3084ffffffff 020111")},
      {"integer tag wrong", kRsaFormPublic, changed(kTinyPublicDer, 6, 0x03)},
      {"integer past sequence", kRsaFormPublic, changed(kTinyPublicDer, 7, 0x02)},
      {"integer length huge", kRsaFormPublic, Hex("3008 02847fffffff 0ca1")},
      {"missing exponent", kRsaFormPublic, Hex("3004 02020ca1")},
      {"public key as short private", kRsaFormShortPrivate, kTinyPublicDer},
      {"short private as private", kRsaFormPrivate, kTinyShortPrivateDer},
      {"empty sequence", kRsaFormPublic, Hex("3000")},
      {"integer header cut off", kRsaFormPublic, Hex("3005 02020ca1 02")},
  };
  for (const auto& c : cases) EXPECT_EQ(TryImport(c.form, c.der), kErrMalformedDer) << c.what;
  for (uint32_t form : {0u, 4u, kRsaComponentN}) EXPECT_EQ(TryImport(form, kTinyPublicDer), kErrUnknownForm) << form;
  CRSA* key = nullptr;
  EXPECT_EQ(RsaImportKey(&key, nullptr, kRsaFormPublic, nullptr, 9), kErrNullArgument);
  EXPECT_EQ(RsaImportKey(nullptr, nullptr, kRsaFormPublic, kTinyPublicDer.data(), 9), kErrNullArgument);
  for (const auto& [form, full] : {std::pair{kRsaFormPublic, kTinyPublicDer}, std::pair{kRsaFormPublic, LongForm(3)},
                                   std::pair{kRsaFormPrivate, kTinyPrivateDer},
                                   std::pair{kRsaFormShortPrivate, kTinyShortPrivateDer}}) {
    for (size_t len = 0; len < full.size(); ++len) {
      EXPECT_EQ(TryImport(form, Bytes(full.begin(), full.begin() + len)), kErrMalformedDer) << form << " to " << len;
    }
  }
}

TEST(RsaDerImport, FailedSetLeavesTheKeyCleared) {
  const KeyPtr key = ImportKey(kRsaFormPrivate, kTinyPrivateDer);
  EXPECT_EQ(RsaSetKey(key.get(), kRsaFormPublic, kTinyPrivateDer.data(), 4), kErrMalformedDer);
  EXPECT_EQ(key->hasCrt + key->hasPrivate + key->hasPublic, 0);
  EXPECT_TRUE(key->n.IsZero() && key->qInv.IsZero());
  ASSERT_EQ(RsaSetKey(key.get(), kRsaFormPublic, kTinyPublicDer.data(), kTinyPublicDer.size()), kOk);
  EXPECT_EQ(key->hasPublic, 1);
  EXPECT_EQ(key->hasPrivate, 0) << "parsing a form replaces the whole key";
}

}  // namespace
}  // namespace nivra::testing
