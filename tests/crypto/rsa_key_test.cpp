// The RSA key object on the textbook key: component loading and flags, export rules, completion
// from the primes, the raw operations' input rules, the key handles (deep duplicates, stale and
// failed handles), key generation's own rules (sizes, prime order and distance, the
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
const Bytes kTinyPublicDer = Hex("3007 02020ca1 020111");
const Bytes kTinyShortPrivateDer = Hex("300b 02020ca1 020111 02020ac1");
const Bytes kTinyPrivateDer =
    Hex("301d 020100 02020ca1 020111 02020ac1 02013d 020135 020135 020131 020126");
const Bytes kTinyPlain = {0x00, 0x41};   // 65
const Bytes kTinyCipher = {0x0A, 0xE6};  // 2790

// A key with the given components set, in order, each a big-endian value.
KeyPtr KeyOf(std::initializer_list<std::pair<uint32_t, Bytes>> components) {
  CRSA* raw = nullptr;
  EXPECT_EQ(RsaCreateKey(&raw), kOk);
  KeyPtr key(raw);
  for (const auto& [id, value] : components) {
    EXPECT_EQ(RsaSetKey(key.get(), id, value.data(), value.size()), kOk) << id;
  }
  return key;
}

// A short value is written over the low bytes of the one held; component numbers outside 128 to
// 135 are unknown.
TEST(RsaKeyComponents, ShortValuesReplaceLowBytes) {
  const KeyPtr key =
      KeyOf({{kRsaComponentN, {0x0C, 0xA1}}, {kRsaComponentE, {1, 0, 1}}, {kRsaComponentE, {3}}});
  EXPECT_EQ(ExportKey(key.get(), kRsaComponentE), Hex("010003"));  // 65537, then 03: 65539
  const uint8_t zero = 0;
  for (uint32_t id : {127u, 136u}) EXPECT_EQ(RsaSetKey(key.get(), id, &zero, 1), kErrUnknownForm);
}

// Each export needs its flag and non-zero components, and never writes part of its output.
TEST(RsaKeyComponents, ExportRules) {
  const KeyPtr shortKey = ImportKey(kRsaFormShortPrivate, kTinyShortPrivateDer);
  const KeyPtr publicOnly = KeyOf({{kRsaComponentN, {0x0C, 0xA1}}, {kRsaComponentE, {0x11}}});
  EXPECT_EQ(ExportKey(shortKey.get(), kRsaComponentD), Hex("0ac1"));
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
  const Bytes modulus = Hex("0ca1");
  EXPECT_EQ(RsaPrivate(key.get(), Hex("41").data(), 1, out.data(), nullptr), kErrInputLength);
  EXPECT_EQ(RsaPublic(key.get(), Hex("000041").data(), 3, out.data(), nullptr), kErrInputLength);
  EXPECT_EQ(RsaPrivate(key.get(), modulus.data(), 2, out.data(), nullptr), kErrInputNotBelowModulus);
  EXPECT_EQ(RsaPublic(key.get(), modulus.data(), 2, out.data(), nullptr), kErrInputNotBelowModulus);
  EXPECT_EQ(RsaPrivate(KeyOf({}).get(), out.data(), 2, out.data(), nullptr), kErrMissingComponent);
}

// A freed handle names nothing, and a load that fails hands out no handle. (Garbage handles meet
// the lookup the hash objects share.)
TEST(RsaHandles, StaleAndFailedHandles) {
  RsaHandle handle = 0;
  ASSERT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPrivate, kTinyPrivateDer.data(),
                       kTinyPrivateDer.size()), kOk);
  Bytes out(2);
  ASSERT_EQ(RsaHandlePrivate(handle, kTinyCipher.data(), 2, out.data(), nullptr), kOk);
  EXPECT_EQ(out, kTinyPlain);
  ASSERT_EQ(RsaFreeKey(handle), kOk);
  EXPECT_EQ(RsaFreeKey(handle), kErrInvalidHandle);
  EXPECT_EQ(RsaHandlePublic(handle, out.data(), 2, out.data(), nullptr), kErrInvalidHandle);
  handle = 77;
  EXPECT_EQ(RsaLoadKey(&handle, nullptr, kRsaFormPublic, kTinyPrivateDer.data(), 5),
            kErrMalformedDer);
  EXPECT_EQ(handle, 77u) << "no handle is handed out on failure";
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
  EXPECT_EQ(key, reinterpret_cast<CRSA*>(0x1)) << "no key is handed out";
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

// The accepted forms (the length in short and long form, leading zero bytes, a version of any
// tag), every kind of malformed input, and unknown forms; then each prefix of each form.
TEST(RsaDerImport, AcceptedMalformedAndUnknownForms) {
  auto changed = [](Bytes der, size_t index, uint8_t value) {
    der[index] = value;
    return der;
  };
  const struct {
    const char* what;
    uint32_t form;
    Bytes der;
    Status status;
  } cases[] = {
      {"public", kRsaFormPublic, kTinyPublicDer, kOk},
      {"short private", kRsaFormShortPrivate, kTinyShortPrivateDer, kOk},
      {"private", kRsaFormPrivate, kTinyPrivateDer, kOk},
      {"version of another tag", kRsaFormPrivate, changed(kTinyPrivateDer, 2, 0x05), kOk},
      {"leading zero bytes", kRsaFormPublic, Hex("3009 020400000ca1 020111"), kOk},
      {"1 length octet", kRsaFormPublic, LongForm(1), kOk},
      {"2 length octets", kRsaFormPublic, LongForm(2), kOk},
      {"3 length octets", kRsaFormPublic, LongForm(3), kOk},
      {"4 length octets", kRsaFormPublic, LongForm(4), kOk},
      {"not a sequence", kRsaFormPublic, changed(kTinyPublicDer, 0, 0x31), kErrMalformedDer},
      {"sequence short", kRsaFormPrivate, changed(kTinyPrivateDer, 1, 0x1C), kErrMalformedDer},
      {"sequence long", kRsaFormPrivate, changed(kTinyPrivateDer, 1, 0x1E), kErrMalformedDer},
      {"indefinite length", kRsaFormPublic, Hex("3080 02010b 020111"), kErrMalformedDer},
      {"5 length octets", kRsaFormPublic, Hex("30850000000007 02020ca1 020111"), kErrMalformedDer},
      {"huge length", kRsaFormPublic, Hex("3084ffffffff 020111"), kErrMalformedDer},
      {"integer tag wrong", kRsaFormPublic, changed(kTinyPublicDer, 6, 0x03), kErrMalformedDer},
      {"integer past sequence", kRsaFormPublic, changed(kTinyPublicDer, 7, 0x02), kErrMalformedDer},
      {"integer length huge", kRsaFormPublic, Hex("3008 02847fffffff 0ca1"), kErrMalformedDer},
      {"missing exponent", kRsaFormPublic, Hex("3004 02020ca1"), kErrMalformedDer},
      {"public key as short private", kRsaFormShortPrivate, kTinyPublicDer, kErrMalformedDer},
      {"short private as private", kRsaFormPrivate, kTinyShortPrivateDer, kErrMalformedDer},
      {"empty sequence", kRsaFormPublic, Hex("3000"), kErrMalformedDer},
      {"integer header cut off", kRsaFormPublic, Hex("3005 02020ca1 02"), kErrMalformedDer},
      {"form 0", 0, kTinyPublicDer, kErrUnknownForm},
      {"form 4", 4, kTinyPublicDer, kErrUnknownForm},
      {"a component number", kRsaComponentN, kTinyPublicDer, kErrUnknownForm},
  };
  for (const auto& c : cases) {
    uint32_t bits = 0;
    EXPECT_EQ(TryImport(c.form, c.der, &bits), c.status) << c.what;
    EXPECT_EQ(bits, c.status == kOk ? 12u : 0u) << c.what;
  }
  EXPECT_EQ(ImportKey(kRsaFormPublic, Hex("3009 020400000ca1 020111"))->n.used, 1u)
      << "leading zero bytes leave no words";
  const std::pair<uint32_t, Bytes> forms[] = {{kRsaFormPublic, kTinyPublicDer},
                                              {kRsaFormPublic, LongForm(3)},
                                              {kRsaFormPrivate, kTinyPrivateDer},
                                              {kRsaFormShortPrivate, kTinyShortPrivateDer}};
  for (const auto& [form, full] : forms) {
    for (size_t len = 0; len < full.size(); ++len) {
      EXPECT_EQ(TryImport(form, Bytes(full.begin(), full.begin() + len)), kErrMalformedDer)
          << form << " to " << len;
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
