// DER key import and export: the accepted length forms, and every kind of malformed input,
// which must give the malformed-DER error (or unknown form) and leave no key behind.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "crypto/rsa_key.h"

namespace nivra::crypto {
namespace {

using Bytes = std::vector<uint8_t>;

// n = 3233, e = 17 (and d = 2753 in the short private form).
const Bytes kPublicDer = {0x30, 0x07, 0x02, 0x02, 0x0C, 0xA1, 0x02, 0x01, 0x11};
const Bytes kShortPrivateDer = {0x30, 0x0B, 0x02, 0x02, 0x0C, 0xA1, 0x02,
                                0x01, 0x11, 0x02, 0x02, 0x0A, 0xC1};
const Bytes kPrivateDer = {0x30, 0x1D, 0x02, 0x01, 0x00, 0x02, 0x02, 0x0C, 0xA1, 0x02, 0x01,
                           0x11, 0x02, 0x02, 0x0A, 0xC1, 0x02, 0x01, 0x3D, 0x02, 0x01, 0x35,
                           0x02, 0x01, 0x35, 0x02, 0x01, 0x31, 0x02, 0x01, 0x26};

Status TryImport(uint32_t form, const Bytes& der, uint32_t* bits = nullptr) {
  CRSA* key = reinterpret_cast<CRSA*>(0x1);  // must stay untouched on failure
  uint32_t localBits = 0;
  static const uint8_t kNothing[1] = {0};
  const uint8_t* data = der.empty() ? kNothing : der.data();  // an empty input, not a null one
  Status status = RsaImportKey(&key, bits ? bits : &localBits, form, data, der.size());
  if (status == kOk) {
    RsaDestroyKey(key);
  } else {
    EXPECT_EQ(key, reinterpret_cast<CRSA*>(0x1)) << "a failed import hands out no key";
  }
  return status;
}

TEST(RsaDerImport, WellFormedKeysOfEachForm) {
  uint32_t bits = 0;
  EXPECT_EQ(TryImport(kRsaFormPublic, kPublicDer, &bits), kOk);
  EXPECT_EQ(bits, 12u);
  EXPECT_EQ(TryImport(kRsaFormShortPrivate, kShortPrivateDer), kOk);
  EXPECT_EQ(TryImport(kRsaFormPrivate, kPrivateDer), kOk);
}

TEST(RsaDerImport, LongLengthFormsOfOneToFourOctetsAreAccepted) {
  for (uint8_t octets = 1; octets <= 4; ++octets) {
    Bytes der = {0x30, static_cast<uint8_t>(0x80 | octets)};
    for (uint8_t i = 1; i < octets; ++i) der.push_back(0x00);
    der.push_back(0x07);
    der.insert(der.end(), kPublicDer.begin() + 2, kPublicDer.end());
    EXPECT_EQ(TryImport(kRsaFormPublic, der), kOk) << int(octets);
  }
}

TEST(RsaDerImport, LeadingZeroBytesOfIntegersAreSkipped) {
  const Bytes der = {0x30, 0x09, 0x02, 0x04, 0x00, 0x00, 0x0C, 0xA1, 0x02, 0x01, 0x11};
  CRSA* key = nullptr;
  uint32_t bits = 0;
  ASSERT_EQ(RsaImportKey(&key, &bits, kRsaFormPublic, der.data(), der.size()), kOk);
  EXPECT_EQ(bits, 12u);
  EXPECT_EQ(key->n.used, 1u);
  RsaDestroyKey(key);
}

TEST(RsaDerImport, VersionElementIsSkippedWhateverItsTag) {
  Bytes der = kPrivateDer;
  der[2] = 0x05;  // NULL instead of INTEGER, same length
  EXPECT_EQ(TryImport(kRsaFormPrivate, der), kOk);
}

TEST(RsaDerImport, UnknownFormsAndNullInput) {
  EXPECT_EQ(TryImport(0, kPublicDer), kErrUnknownForm);
  EXPECT_EQ(TryImport(4, kPublicDer), kErrUnknownForm);
  EXPECT_EQ(TryImport(kRsaComponentN, kPublicDer), kErrUnknownForm);
  CRSA* key = nullptr;
  EXPECT_EQ(RsaImportKey(&key, nullptr, kRsaFormPublic, nullptr, 9), kErrNullArgument);
  EXPECT_EQ(RsaImportKey(nullptr, nullptr, kRsaFormPublic, kPublicDer.data(), 9),
            kErrNullArgument);
}

struct Malformed {
  const char* what;
  uint32_t form;
  Bytes der;
};

TEST(RsaDerImport, EveryKindOfMalformedInputIsRefused) {
  Bytes shortSequence = kPrivateDer;
  shortSequence[1] = 0x1C;  // SEQUENCE one byte short of the input
  Bytes longSequence = kPrivateDer;
  longSequence[1] = 0x1E;
  Bytes badTag = kPublicDer;
  badTag[6] = 0x03;  // e as a BIT STRING
  Bytes overlongInteger = kPublicDer;
  overlongInteger[7] = 0x02;  // e claims two bytes, one is there
  const Malformed cases[] = {
      {"empty", kRsaFormPublic, {}},
      {"one byte", kRsaFormPublic, {0x30}},
      {"not a sequence", kRsaFormPublic, {0x31, 0x07, 0x02, 0x02, 0x0C, 0xA1, 0x02, 0x01, 0x11}},
      {"sequence short of input", kRsaFormPrivate, shortSequence},
      {"sequence past input", kRsaFormPrivate, longSequence},
      {"indefinite length", kRsaFormPublic, {0x30, 0x80, 0x02, 0x01, 0x0B, 0x02, 0x01, 0x11}},
      {"five length octets", kRsaFormPublic,
       {0x30, 0x85, 0x00, 0x00, 0x00, 0x00, 0x07, 0x02, 0x02, 0x0C, 0xA1, 0x02, 0x01, 0x11}},
      {"length octets cut off", kRsaFormPublic, {0x30, 0x84, 0x00, 0x00}},
      {"huge length", kRsaFormPublic, {0x30, 0x84, 0xFF, 0xFF, 0xFF, 0xFF, 0x02, 0x01, 0x11}},
      {"integer tag wrong", kRsaFormPublic, badTag},
      {"integer past sequence", kRsaFormPublic, overlongInteger},
      {"integer length huge", kRsaFormPublic,
       {0x30, 0x08, 0x02, 0x84, 0x7F, 0xFF, 0xFF, 0xFF, 0x0C, 0xA1}},
      {"missing exponent", kRsaFormPublic, {0x30, 0x04, 0x02, 0x02, 0x0C, 0xA1}},
      {"public key as short private", kRsaFormShortPrivate, kPublicDer},
      {"short private as private", kRsaFormPrivate, kShortPrivateDer},
      {"empty sequence", kRsaFormPublic, {0x30, 0x00}},
      {"integer header cut off", kRsaFormPublic, {0x30, 0x05, 0x02, 0x02, 0x0C, 0xA1, 0x02}},
  };
  for (const Malformed& c : cases) {
    EXPECT_EQ(TryImport(c.form, c.der), kErrMalformedDer) << c.what;
  }
}

TEST(RsaDerImport, EveryTruncationOfAValidKeyIsRefused) {
  for (uint32_t form : {kRsaFormPublic, kRsaFormPrivate, kRsaFormShortPrivate}) {
    const Bytes& full = form == kRsaFormPublic    ? kPublicDer
                        : form == kRsaFormPrivate ? kPrivateDer
                                                  : kShortPrivateDer;
    for (size_t len = 0; len < full.size(); ++len) {
      EXPECT_EQ(TryImport(form, Bytes(full.begin(), full.begin() + len)), kErrMalformedDer)
          << "form " << form << " cut to " << len;
    }
  }
}

TEST(RsaDerImport, FailedSetLeavesTheKeyCleared) {
  CRSA* key = nullptr;
  ASSERT_EQ(RsaImportKey(&key, nullptr, kRsaFormPrivate, kPrivateDer.data(), kPrivateDer.size()),
            kOk);
  EXPECT_EQ(RsaSetKey(key, kRsaFormPublic, kPrivateDer.data(), 4), kErrMalformedDer);
  EXPECT_EQ(key->hasCrt + key->hasPrivate + key->hasPublic, 0);
  EXPECT_TRUE(key->n.IsZero());
  EXPECT_TRUE(key->qInv.IsZero());
  ASSERT_EQ(RsaSetKey(key, kRsaFormPublic, kPublicDer.data(), kPublicDer.size()), kOk);
  EXPECT_EQ(key->hasPublic, 1);
  EXPECT_EQ(key->hasPrivate, 0) << "parsing a form replaces the whole key";
  RsaDestroyKey(key);
}

TEST(RsaDerExport, FormsNeedTheirComponentsAndUseShortestLengths) {
  CRSA* key = nullptr;
  ASSERT_EQ(RsaImportKey(&key, nullptr, kRsaFormShortPrivate, kShortPrivateDer.data(),
                         kShortPrivateDer.size()),
            kOk);
  size_t len = 0;
  EXPECT_EQ(RsaExportKey(key, kRsaFormPrivate, nullptr, &len), kErrMissingComponent);
  ASSERT_EQ(RsaExportKey(key, kRsaFormShortPrivate, nullptr, &len), kOk);
  Bytes out(len);
  ASSERT_EQ(RsaExportKey(key, kRsaFormShortPrivate, out.data(), &len), kOk);
  EXPECT_EQ(out, kShortPrivateDer);
  // A 1024-bit modulus with its top bit set: INTEGER of 129 bytes, SEQUENCE with 81 xx lengths.
  Bytes big(128, 0xA5);
  ASSERT_EQ(RsaSetKey(key, kRsaComponentN, big.data(), big.size()), kOk);
  ASSERT_EQ(RsaExportKey(key, kRsaFormPublic, nullptr, &len), kOk);
  out.assign(len, 0);
  ASSERT_EQ(RsaExportKey(key, kRsaFormPublic, out.data(), &len), kOk);
  const Bytes header = {0x30, 0x81, 0x87, 0x02, 0x81, 0x81, 0x00, 0xA5};
  EXPECT_EQ(Bytes(out.begin(), out.begin() + header.size()), header);
  EXPECT_EQ(len, 3u + 0x87u);
  // Zero components cannot be written even when the flags are up.
  const Bytes zero = {0x00};
  ASSERT_EQ(RsaSetKey(key, kRsaComponentE, zero.data(), 1), kOk);  // 17 -> 0
  EXPECT_EQ(RsaExportKey(key, kRsaFormPublic, nullptr, &len), kErrMissingComponent);
  RsaDestroyKey(key);
}

}  // namespace
}  // namespace nivra::crypto
