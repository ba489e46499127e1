// The container's key pairs on the token: loading, key-ID records, generation, import and
// certificates, seen on the fake token attribute by attribute.
#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <string>

#include "fake_backend_fixture.h"
#include "software_keys.h"
#include "pkcs11/token_containers.h"
#include "provider/card_dispatch.h"
#include "provider/entries.h"

namespace nivra::p11test {
namespace {

using provider::kNteBadKeyset;
using provider::kNteNoKey;
using provider::kNteNoMemory;
using provider::kNteNotFound;
const CK_ULONG kVendorClass = 0x80000001;
const CK_ULONG kPublicClass = CKO_PUBLIC_KEY;
const CK_ULONG kPrivateClass = CKO_PRIVATE_KEY;
const CK_ULONG kCertClass = CKO_CERTIFICATE;
const CK_ULONG kRsa = CKK_RSA;
const CK_ULONG kX509 = CKC_X_509;
const CK_BBOOL kYes = CK_TRUE;

class KeyObjects : public FakeBackendTest {
 protected:
  void SetUp() override {
    FakeBackendTest::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(StartBackend(), 0u);
    LoginOnSlot(kSlot0);
  }
  HCRYPTPROV NewContainer(const char* name) {
    HCRYPTPROV prov = 0;
    EXPECT_EQ(Acquire(std::string("\\\\.\\Fake slot 0\\") + name, CRYPT_NEWKEYSET, &prov), 0u);
    return prov;
  }
  void PutPublicKey(const char* id, const Bytes& modulus, const Bytes& exponent) {
    CreateOnToken(0, {Attr(CKA_CLASS, &kPublicClass, 4), Attr(CKA_KEY_TYPE, &kRsa, 4),
                      Text(CKA_ID, id), Attr(CKA_MODULUS, modulus.data(), modulus.size()),
                      Attr(CKA_PUBLIC_EXPONENT, exponent.data(), exponent.size())});
  }
  std::vector<CK_OBJECT_HANDLE> KeysWithId(CK_ULONG objectClass, const char* id) {
    return FindOnToken(0, {Attr(CKA_CLASS, &objectClass, 4), Text(CKA_ID, id)});
  }
  // Imports the blob into the container through the entry; the last error (0 on success).
  DWORD Import(HCRYPTPROV prov, const Bytes& blob) {
    HCRYPTKEY key = 0;
    return NivraCPImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &key)
               ? 0
               : GetLastError();
  }
  DWORD UserKey(HCRYPTPROV prov, DWORD keySpec) {
    HCRYPTKEY key = 0;
    return NivraCPGetUserKey(prov, keySpec, &key) ? 0 : GetLastError();
  }
};

TEST_F(KeyObjects, PublicKeyIsFoundByTheDerivedIdAndLoadedWithoutLeadingZeros) {
  HCRYPTPROV prov = NewContainer("c1");
  Bytes modulus(129, 0xA5);
  modulus[0] = 0x00;  // a leading zero byte, as DER-minded tokens store it
  PutPublicKey("c1_cspS", modulus, {0x01, 0x00, 0x01});
  ASSERT_EQ(UserKey(prov, AT_SIGNATURE), 0u);
  const provider::CardKeyPair& pair = Context(prov).signatureKey;
  EXPECT_EQ(pair.modulusBits, 1024u);
  EXPECT_EQ(pair.publicExponent, 65537u);
  EXPECT_EQ(Bytes(pair.modulus, pair.modulus + 128), Bytes(128, 0xA5));
  EXPECT_EQ(UserKey(prov, AT_KEYEXCHANGE), kNteNoKey) << "no pair under c1_cspX";
}

TEST_F(KeyObjects, ExponentWiderThan32BitsIsBadKeyset) {
  HCRYPTPROV prov = NewContainer("c1");
  PutPublicKey("c1_cspX", Bytes(128, 0xC3), {0x01, 0x00, 0x00, 0x00, 0x01});
  EXPECT_EQ(UserKey(prov, AT_KEYEXCHANGE), kNteBadKeyset);
}

TEST_F(KeyObjects, KeyIdRecordNamesThePairsWhileImportsStillUseTheDerivedId) {
  const uint8_t record[] = {2, 2, 0, 0, 'k', '1', 'k', '2'};
  CreateOnToken(0, {Attr(CKA_CLASS, &kVendorClass, 4), Text(CKA_LABEL, "rec"),
                    Attr(CKA_TOKEN, &kYes, 1), Attr(CKA_VALUE, record, sizeof(record))});
  PutPublicKey("k1", Bytes(64, 0x11), {0x03});
  PutPublicKey("k2", Bytes(64, 0x22), {0x05});
  HCRYPTPROV prov = 0;
  ASSERT_EQ(Acquire("\\\\.\\Fake slot 0\\rec", 0, &prov), 0u);
  ASSERT_EQ(UserKey(prov, AT_SIGNATURE), 0u);
  ASSERT_EQ(UserKey(prov, AT_KEYEXCHANGE), 0u);
  EXPECT_EQ(Context(prov).signatureKey.modulus[0], 0x11);
  EXPECT_EQ(Context(prov).signatureKey.publicExponent, 3u);
  EXPECT_EQ(Context(prov).exchangeKey.modulus[0], 0x22);
  EXPECT_EQ(Context(prov).exchangeKey.publicExponent, 5u);

  uint32_t length = 0;
  ASSERT_EQ(pkcs11::BuildKeyId(Context(prov), AT_KEYEXCHANGE, nullptr, &length), 0u);
  EXPECT_EQ(length, 8u) << "rec_cspX";
}

TEST_F(KeyObjects, GenerationReplacesTheRsaPairKeepsTheCertificateAndLoadsTheModulus) {
  HCRYPTPROV prov = NewContainer("c1");
  PutPublicKey("c1_cspS", Bytes(64, 0x77), {0x03});
  CreateOnToken(0, {Attr(CKA_CLASS, &kCertClass, 4), Attr(CKA_CERTIFICATE_TYPE, &kX509, 4),
                    Text(CKA_ID, "c1_cspS")});
  HCRYPTKEY key = 0;
  ASSERT_TRUE(NivraCPGenKey(prov, AT_SIGNATURE, 1024u << 16, &key)) << std::hex << GetLastError();

  const auto publics = KeysWithId(CKO_PUBLIC_KEY, "c1_cspS");
  ASSERT_EQ(publics.size(), 1u) << "the old public key is gone";
  EXPECT_EQ(AttributeOf(0, publics[0], CKA_MODULUS_BITS), Ulong32(1024));
  EXPECT_EQ(AttributeOf(0, publics[0], CKA_PUBLIC_EXPONENT), (Bytes{0x00, 0x01, 0x00, 0x01}));
  EXPECT_EQ(KeysWithId(CKO_PRIVATE_KEY, "c1_cspS").size(), 1u);
  EXPECT_EQ(KeysWithId(CKO_CERTIFICATE, "c1_cspS").size(), 1u) << "certificates stay";

  const provider::CardKeyPair& pair = Context(prov).signatureKey;
  EXPECT_EQ(pair.modulusBits, 1024u);
  EXPECT_EQ(pair.publicExponent, 65537u);
  EXPECT_EQ(pair.modulus[0], 0xC1);  // the fake's modulus pattern
  EXPECT_EQ(pair.modulus[127], 0xC1 - 127);
}

// A value of the blob (offset, size), big-endian without leading zeros.
Bytes BlobValue(const Bytes& blob, size_t offset, size_t size) {
  Bytes value(blob.rbegin() + (blob.size() - offset - size), blob.rbegin() + (blob.size() - offset));
  value.erase(value.begin(), std::find_if(value.begin(), value.end(), [](uint8_t b) { return b; }));
  return value;
}

TEST_F(KeyObjects, ImportStoresExponentAndPrimesOnATokenThatDerivesTheRest) {
  HCRYPTPROV prov = NewContainer("imp");
  const Bytes blob = SoftwarePrivateKeyBlob();
  ASSERT_EQ(blob.size(), 20u + 9u * 64u);
  ASSERT_EQ(Import(prov, blob), 0u);
  EXPECT_EQ(fake.CallCount("C_CreateObject"), 1u + 2u) << "container, then one private, one public";
  const auto privates = KeysWithId(CKO_PRIVATE_KEY, "imp_cspX");
  ASSERT_EQ(privates.size(), 1u);
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_PRIME_1), BlobValue(blob, 20 + 128, 64));
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_PRIME_2), BlobValue(blob, 20 + 192, 64));
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_PUBLIC_EXPONENT), (Bytes{0x01, 0x00, 0x01}));
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_MODULUS), (Bytes{0xDE, 0xAD})) << "not given";
  const auto publics = KeysWithId(CKO_PUBLIC_KEY, "imp_cspX");
  ASSERT_EQ(publics.size(), 1u);
  EXPECT_EQ(AttributeOf(0, publics[0], CKA_MODULUS), BlobValue(blob, 20, 128));
}

TEST_F(KeyObjects, TokenThatWantsEveryComponentGetsTheCompleteKeyOnce) {
  HCRYPTPROV prov = NewContainer("imp");
  fake.SetStrictTemplates(1);
  const Bytes blob = SoftwarePrivateKeyBlob();
  ASSERT_EQ(Import(prov, blob), 0u);
  EXPECT_EQ(fake.CallCount("C_CreateObject"), 1u + 3u) << "container, two private tries, public";
  const auto privates = KeysWithId(CKO_PRIVATE_KEY, "imp_cspX");
  ASSERT_EQ(privates.size(), 1u);
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_MODULUS), BlobValue(blob, 20, 128));
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_EXPONENT_1), BlobValue(blob, 20 + 256, 64));
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_EXPONENT_2), BlobValue(blob, 20 + 320, 64));
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_COEFFICIENT), BlobValue(blob, 20 + 384, 64));
  EXPECT_EQ(AttributeOf(0, privates[0], CKA_PRIVATE_EXPONENT), BlobValue(blob, 20 + 448, 128));
}

TEST_F(KeyObjects, RefusedCreationIsReportedAsTheTokensOwnValue) {
  HCRYPTPROV prov = NewContainer("imp");
  fake.SetCreateResult(CKO_PRIVATE_KEY, CKR_ATTRIBUTE_VALUE_INVALID);
  EXPECT_EQ(Import(prov, SoftwarePrivateKeyBlob()), 0x13u) << "CKR_ATTRIBUTE_VALUE_INVALID, unmapped";
}

Bytes ReadCertificateFile() {
  std::ifstream in("Z:/usr/lib/python3/dist-packages/cryptography_vectors/x509/san_edipartyname.der",
                   std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

class Certificates : public KeyObjects {
 protected:
  void SetUp() override {
    KeyObjects::SetUp();
    if (HasFatalFailure()) return;
    cert = ReadCertificateFile();
    ASSERT_EQ(cert.size(), 702u) << "test vector missing";
    prov = NewContainer("crt");
    ASSERT_TRUE(NivraCPGenKey(prov, AT_KEYEXCHANGE, 1024u << 16, &key));
  }
  DWORD Write() {
    return NivraCPSetKeyParam(prov, key, KP_CERTIFICATE, cert.data(), 0) ? 0 : GetLastError();
  }
  Bytes cert;
  HCRYPTPROV prov = 0;
  HCRYPTKEY key = 0;
};

TEST_F(Certificates, WrittenWithTheSixAttributesAndReadBack) {
  ASSERT_EQ(Write(), 0u);
  const auto certs = KeysWithId(CKO_CERTIFICATE, "crt_cspX");
  ASSERT_EQ(certs.size(), 1u);
  EXPECT_EQ(AttributeOf(0, certs[0], CKA_CERTIFICATE_TYPE), Ulong32(CKC_X_509));
  EXPECT_EQ(AttributeOf(0, certs[0], CKA_LABEL), Bytes{0}) << "one zero byte";
  EXPECT_EQ(AttributeOf(0, certs[0], CKA_TOKEN), Bytes{1});
  EXPECT_EQ(AttributeOf(0, certs[0], CKA_VALUE), cert);
  EXPECT_EQ(AttributeOf(0, certs[0], CKA_SUBJECT), (Bytes{0xDE, 0xAD})) << "not needed here";

  DWORD length = 0;
  ASSERT_TRUE(NivraCPGetKeyParam(prov, key, KP_CERTIFICATE, nullptr, &length, 0));
  EXPECT_EQ(length, cert.size());
  Bytes back(length);
  ASSERT_TRUE(NivraCPGetKeyParam(prov, key, KP_CERTIFICATE, back.data(), &length, 0));
  EXPECT_EQ(back, cert);
}

TEST_F(Certificates, SameCertificateTwiceIsWrittenOnce) {
  ASSERT_EQ(Write(), 0u);
  const uint32_t creates = fake.CallCount("C_CreateObject");
  const uint32_t destroys = fake.CallCount("C_DestroyObject");
  ASSERT_EQ(Write(), 0u);
  EXPECT_EQ(fake.CallCount("C_CreateObject"), creates);
  EXPECT_EQ(fake.CallCount("C_DestroyObject"), destroys);
  EXPECT_EQ(KeysWithId(CKO_CERTIFICATE, "crt_cspX").size(), 1u);
}

TEST_F(Certificates, TokenThatNeedsASubjectGetsTheCertificatesOwn) {
  fake.SetStrictTemplates(1);
  ASSERT_EQ(Write(), 0u);
  const auto certs = KeysWithId(CKO_CERTIFICATE, "crt_cspX");
  ASSERT_EQ(certs.size(), 1u);
  // The subject name of this certificate: 61 bytes at offset 105 (SEQUENCE, length 59).
  EXPECT_EQ(AttributeOf(0, certs[0], CKA_SUBJECT), Bytes(cert.begin() + 105, cert.begin() + 166));
}

TEST_F(Certificates, BufferOneByteShortIsNoMemoryAndLeavesTheLength) {
  ASSERT_EQ(Write(), 0u);
  Bytes back(cert.size() - 1);
  DWORD length = static_cast<DWORD>(back.size());
  EXPECT_FALSE(NivraCPGetKeyParam(prov, key, KP_CERTIFICATE, back.data(), &length, 0));
  EXPECT_EQ(GetLastError(), kNteNoMemory);
  EXPECT_EQ(length, cert.size() - 1);
}

TEST_F(Certificates, MissingCertificateIsNotFound) {
  DWORD length = 0;
  EXPECT_FALSE(NivraCPGetKeyParam(prov, key, KP_CERTIFICATE, nullptr, &length, 0));
  EXPECT_EQ(GetLastError(), kNteNotFound);
}

}  // namespace
}  // namespace nivra::p11test
