// DER key import and export: the accepted length forms, and every kind of malformed input, which
// must give the malformed-DER error (or unknown form) and leave no key behind.
#include <gtest/gtest.h>

#include "crypto/rsa_key.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

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

TEST(RsaDerImport, UnknownFormsAndNullInput) {
  for (uint32_t form : {0u, 4u, kRsaComponentN}) EXPECT_EQ(TryImport(form, kTinyPublicDer), kErrUnknownForm) << form;
  CRSA* key = nullptr;
  EXPECT_EQ(RsaImportKey(&key, nullptr, kRsaFormPublic, nullptr, 9), kErrNullArgument);
  EXPECT_EQ(RsaImportKey(nullptr, nullptr, kRsaFormPublic, kTinyPublicDer.data(), 9), kErrNullArgument);
}

TEST(RsaDerImport, EveryKindOfMalformedInputIsRefused) {
  auto changed = [](Bytes der, size_t index, uint8_t value) {
    der[index] = value;
    return der;
  };
  const struct {
    const char* what;
    uint32_t form;
    Bytes der;
  } cases[] = {
      {"empty", kRsaFormPublic, {}},
      {"one byte", kRsaFormPublic, {0x30}},
      {"not a sequence", kRsaFormPublic, changed(kTinyPublicDer, 0, 0x31)},
      {"sequence short of input", kRsaFormPrivate, changed(kTinyPrivateDer, 1, 0x1C)},
      {"sequence past input", kRsaFormPrivate, changed(kTinyPrivateDer, 1, 0x1E)},
      {"indefinite length", kRsaFormPublic, Hex("3080 02010b 020111")},
      {"five length octets", kRsaFormPublic, Hex("30850000000007 02020ca1 020111")},
      {"length octets cut off", kRsaFormPublic, Hex("30840000")},
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
