// Work that needs the card goes to the context's back end with the arguments the card needs:
// signatures, key pairs, decryption, PINs and card limits.
#include <cstring>
#include <vector>

#include "provider_fixture.h"

namespace {

// PKCS#1 DigestInfo prefix of SHA-1 (RFC 8017, section 9.2, note 1).
const BYTE kSha1Prefix[] = {0x30, 0x21, 0x30, 0x09, 0x06, 0x05, 0x2B, 0x0E,
                            0x03, 0x02, 0x1A, 0x05, 0x00, 0x04, 0x14};
// MD5's.
const BYTE kMd5Prefix[] = {0x30, 0x20, 0x30, 0x0C, 0x06, 0x08, 0x2A, 0x86, 0x48,
                           0x86, 0xF7, 0x0D, 0x02, 0x05, 0x05, 0x00, 0x04, 0x10};

class CardPaths : public FakeCardProvider {
 protected:
  void SetUp() override {
    FakeCardProvider::SetUp();
    prov = Open();
  }
  void TearDown() override { dll.ReleaseContext(prov, 0); }

  HCRYPTHASH HashOf(ALG_ID alg, const char* text, std::vector<BYTE>* value) {
    HCRYPTHASH hash = 0;
    EXPECT_TRUE(dll.CreateHash(prov, alg, 0, 0, &hash));
    EXPECT_TRUE(dll.HashData(prov, hash, reinterpret_cast<const BYTE*>(text), static_cast<DWORD>(strlen(text)), 0));
    // The value as Wine's software provider computes it, independently.
    HCRYPTPROV wine = OpenWineSoftwareProvider();
    HCRYPTHASH wineHash = 0;
    EXPECT_TRUE(CryptCreateHash(wine, alg, 0, 0, &wineHash));
    EXPECT_TRUE(CryptHashData(wineHash, reinterpret_cast<const BYTE*>(text), static_cast<DWORD>(strlen(text)), 0));
    value->resize(64);
    DWORD length = 64;
    EXPECT_TRUE(CryptGetHashParam(wineHash, HP_HASHVAL, value->data(), &length, 0));
    value->resize(length);
    CryptDestroyHash(wineHash);
    CryptReleaseContext(wine, 0);
    return hash;
  }

  HCRYPTPROV prov = 0;
};

TEST_F(CardPaths, SignHashSendsDigestInfoAndHashToTheCardInSignatureMode) {
  std::vector<BYTE> value;
  HCRYPTHASH hash = HashOf(CALG_SHA1, "message to sign", &value);
  DWORD length = 0;
  EXPECT_SUCCEEDS(dll.SignHash(prov, hash, AT_SIGNATURE, nullptr, 0, nullptr, &length));
  EXPECT_EQ(length, 256u) << "a 2048-bit pair signs 256 bytes";
  std::vector<BYTE> signature(length);
  length = 255;
  EXPECT_FAILS_WITH(dll.SignHash(prov, hash, AT_SIGNATURE, nullptr, 0, signature.data(), &length), ERROR_MORE_DATA);
  EXPECT_EQ(length, 256u);
  EXPECT_SUCCEEDS(dll.SignHash(prov, hash, AT_SIGNATURE, L"ignored", 0, signature.data(), &length));
  FakeCardRecord record = dll.Record();
  EXPECT_EQ(record.keySpec, static_cast<DWORD>(AT_SIGNATURE));
  EXPECT_EQ(record.mode, 1u);
  std::vector<BYTE> expected(kSha1Prefix, kSha1Prefix + sizeof(kSha1Prefix));
  expected.insert(expected.end(), value.begin(), value.end());
  EXPECT_EQ(std::vector<BYTE>(record.input, record.input + record.inputLength), expected);

  // Verification unwraps through the card's public operation and compares DigestInfo and hash.
  HCRYPTKEY pair = 0;
  ASSERT_TRUE(dll.GetUserKey(prov, AT_SIGNATURE, &pair));
  EXPECT_SUCCEEDS(dll.VerifySignature(prov, hash, signature.data(), 256, pair, nullptr, 0));
  signature[3] ^= 1;
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, hash, signature.data(), 256, pair, nullptr, 0), NTE_BAD_SIGNATURE);
}

TEST_F(CardPaths, SignHashDigestRules) {
  std::vector<BYTE> value;
  HCRYPTHASH md5 = HashOf(CALG_MD5, "abc", &value);
  BYTE signature[256];
  DWORD length = sizeof(signature);
  EXPECT_SUCCEEDS(dll.SignHash(prov, md5, AT_KEYEXCHANGE, nullptr, 0, signature, &length));
  FakeCardRecord record = dll.Record();
  ASSERT_EQ(record.inputLength, sizeof(kMd5Prefix) + 16);
  EXPECT_EQ(0, memcmp(record.input, kMd5Prefix, sizeof(kMd5Prefix)));
  EXPECT_EQ(record.keySpec, static_cast<DWORD>(AT_KEYEXCHANGE));

  // No prefix is known for MD4: refused, unless the caller asks for the bare hash.
  HCRYPTHASH md4 = HashOf(CALG_MD4, "abc", &value);
  length = sizeof(signature);
  EXPECT_FAILS_WITH(dll.SignHash(prov, md4, AT_SIGNATURE, nullptr, 0, signature, &length), NTE_BAD_HASH);
  length = sizeof(signature);
  EXPECT_SUCCEEDS(dll.SignHash(prov, md4, AT_SIGNATURE, nullptr, CRYPT_NOHASHOID, signature, &length));
  record = dll.Record();
  EXPECT_EQ(std::vector<BYTE>(record.input, record.input + record.inputLength), value);

  length = sizeof(signature);
  EXPECT_FAILS_WITH(dll.SignHash(prov, md4, 3, nullptr, 0, signature, &length), NTE_NO_KEY);
  EXPECT_EQ(length, 0u);
}

TEST_F(CardPaths, VerifyComparesTheWholeEncodingNotJustTheHash) {
  std::vector<BYTE> value;
  HCRYPTHASH hash = HashOf(CALG_SHA1, "prefix check", &value);
  BYTE signature[256];
  DWORD length = sizeof(signature);
  ASSERT_TRUE(dll.SignHash(prov, hash, AT_SIGNATURE, nullptr, CRYPT_NOHASHOID, signature, &length));
  HCRYPTKEY pair = 0;
  ASSERT_TRUE(dll.GetUserKey(prov, AT_SIGNATURE, &pair));
  // The card signed the bare 20-byte hash; without CRYPT_NOHASHOID a DigestInfo is expected.
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, hash, signature, 256, pair, nullptr, 0), NTE_BAD_SIGNATURE);
  EXPECT_SUCCEEDS(dll.VerifySignature(prov, hash, signature, 256, pair, nullptr, CRYPT_NOHASHOID));
  // A block with a wrong prefix but the right hash at offset 15 does not verify.
  HCRYPTHASH bare = 0;
  ASSERT_TRUE(dll.CreateHash(prov, CALG_SSL3_SHAMD5, 0, 0, &bare));
  std::vector<BYTE> block(15, 0xEE);
  block.insert(block.end(), value.begin(), value.end());
  BYTE blockHash[36] = {};
  memcpy(blockHash, block.data(), 35);
  ASSERT_TRUE(dll.SetHashParam(prov, bare, HP_HASHVAL, blockHash, 0));
  length = sizeof(signature);
  ASSERT_TRUE(dll.SignHash(prov, bare, AT_SIGNATURE, nullptr, 0, signature, &length));
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, hash, signature, 256, pair, nullptr, 0), NTE_BAD_SIGNATURE);
}

TEST_F(CardPaths, UserKeysDescribeTheCardPair) {
  HCRYPTKEY exchange = 0;
  EXPECT_FAILS_WITH(dll.GetUserKey(prov, 3, &exchange), NTE_BAD_KEY);
  EXPECT_SUCCEEDS(dll.GetUserKey(prov, AT_KEYEXCHANGE, &exchange));
  DWORD value = 0, length = sizeof(value);
  EXPECT_SUCCEEDS(dll.GetKeyParam(prov, exchange, KP_ALGID, reinterpret_cast<BYTE*>(&value), &length, 0));
  EXPECT_EQ(value, static_cast<DWORD>(CALG_RSA_KEYX));
  EXPECT_SUCCEEDS(dll.GetKeyParam(prov, exchange, KP_KEYLEN, reinterpret_cast<BYTE*>(&value), &length, 0));
  EXPECT_EQ(value, 2048u);
  EXPECT_SUCCEEDS(dll.GetKeyParam(prov, exchange, KP_PERMISSIONS, reinterpret_cast<BYTE*>(&value), &length, 0));
  EXPECT_EQ(value, 3u);
  length = 2;
  EXPECT_FAILS_WITH(dll.GetKeyParam(prov, exchange, KP_PADDING, reinterpret_cast<BYTE*>(&value), &length, 0), ERROR_MORE_DATA);
  EXPECT_EQ(length, 4u);
  EXPECT_FAILS_WITH(dll.GetKeyParam(prov, exchange, KP_IV, reinterpret_cast<BYTE*>(&value), &length, 0), NTE_BAD_TYPE);
  EXPECT_FAILS_WITH(dll.GetKeyParam(prov, exchange, KP_ALGID, reinterpret_cast<BYTE*>(&value), nullptr, 0), ERROR_INVALID_PARAMETER);

  // The public blob is built by the module: header, RSAPUBKEY, little-endian modulus.
  BYTE blob[300];
  length = 0;
  EXPECT_SUCCEEDS(dll.ExportKey(prov, exchange, 0, PUBLICKEYBLOB, 0, nullptr, &length));
  EXPECT_EQ(length, 20u + 256u);
  EXPECT_SUCCEEDS(dll.ExportKey(prov, exchange, 0, PUBLICKEYBLOB, 0, blob, &length));
  const auto* header = reinterpret_cast<const BLOBHEADER*>(blob);
  const auto* rsa = reinterpret_cast<const RSAPUBKEY*>(blob + 8);
  EXPECT_EQ(header->bType, PUBLICKEYBLOB);
  EXPECT_EQ(header->bVersion, 2);
  EXPECT_EQ(header->aiKeyAlg, static_cast<ALG_ID>(CALG_RSA_KEYX));
  EXPECT_EQ(rsa->magic, 0x31415352u);
  EXPECT_EQ(rsa->bitlen, 2048u);
  EXPECT_EQ(rsa->pubexp, 65537u);
  // The fake card's modulus byte i (big-endian) is 0xC0 + 7i + key spec.
  EXPECT_EQ(blob[20 + 255], static_cast<BYTE>(0xC0 + AT_KEYEXCHANGE));
  EXPECT_EQ(blob[20], static_cast<BYTE>(0xC0 + 7 * 255 + AT_KEYEXCHANGE));
  // Wine's provider accepts the blob as an RSA public key.
  HCRYPTPROV wine = OpenWineSoftwareProvider();
  HCRYPTKEY imported = 0;
  EXPECT_TRUE(CryptImportKey(wine, blob, length, 0, 0, &imported)) << std::hex << GetLastError();
  CryptDestroyKey(imported);
  CryptReleaseContext(wine, 0);

  length = sizeof(blob);
  EXPECT_FAILS_WITH(dll.ExportKey(prov, exchange, 0, PRIVATEKEYBLOB, 0, blob, &length), NTE_BAD_KEY_STATE);
  EXPECT_FAILS_WITH(dll.ExportKey(prov, exchange, 0, PLAINTEXTKEYBLOB, 0, blob, &length), NTE_BAD_KEY_STATE);
}

TEST_F(CardPaths, DecryptAndEncryptLengthsForACardPair) {
  HCRYPTKEY pair = 0;
  ASSERT_TRUE(dll.GetUserKey(prov, AT_KEYEXCHANGE, &pair));
  std::vector<BYTE> data(300, 0x5A);
  DWORD length = 255;
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, 0, data.data(), &length), NTE_BAD_DATA);
  length = 256;
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, CRYPT_OAEP | CRYPT_DECRYPT_RSA_NO_PADDING_CHECK, data.data(), &length), NTE_BAD_FLAGS);
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, 0, data.data(), nullptr), ERROR_INVALID_PARAMETER);
  for (DWORD flags : {DWORD{0}, DWORD{CRYPT_OAEP}, DWORD{CRYPT_DECRYPT_RSA_NO_PADDING_CHECK}}) {
    length = 256;
    EXPECT_SUCCEEDS(dll.Decrypt(prov, pair, 0, TRUE, flags, data.data(), &length));
    const DWORD expectedMode = flags == CRYPT_OAEP ? 18u : flags == 0 ? 2u : 0u;
    EXPECT_EQ(dll.Record().mode, expectedMode) << flags;
  }

  length = 100;
  EXPECT_FAILS_WITH(dll.Encrypt(prov, pair, 0, TRUE, 0, data.data(), &length, 100), NTE_BAD_LEN);
  EXPECT_EQ(length, 256u);
  length = 100;
  EXPECT_SUCCEEDS(dll.Encrypt(prov, pair, 0, TRUE, 0, nullptr, &length, 0));
  EXPECT_EQ(length, 256u);

  // Verify-only contexts never reach the card's private key.
  HCRYPTPROV verify = 0;
  ASSERT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT, &verify), 0u);
  HCRYPTKEY verifyPair = 0;
  ASSERT_TRUE(dll.GetUserKey(verify, AT_KEYEXCHANGE, &verifyPair));
  length = 256;
  EXPECT_FAILS_WITH(dll.Decrypt(verify, verifyPair, 0, TRUE, 0, data.data(), &length), NTE_PERM);
  HCRYPTKEY generated = 0;
  EXPECT_FAILS_WITH(dll.GenKey(verify, AT_SIGNATURE, 0, &generated), NTE_PERM);
  HCRYPTHASH hash = 0;
  ASSERT_TRUE(dll.CreateHash(verify, CALG_SHA1, 0, 0, &hash));
  length = 256;
  EXPECT_FAILS_WITH(dll.SignHash(verify, hash, AT_SIGNATURE, nullptr, 0, data.data(), &length), NTE_PERM);
  dll.ReleaseContext(verify, 0);
}

TEST_F(CardPaths, GeneratedPairLengthsFollowTheCardLimits) {
  // The fake card allows 512 to 4096 bits in steps of 512.
  HCRYPTKEY key = 0;
  EXPECT_SUCCEEDS(dll.GenKey(prov, AT_SIGNATURE, 0, &key));
  EXPECT_EQ(dll.Record().genKeyBits, 2048u) << "the default is 2048 bits, not the card's default";
  EXPECT_SUCCEEDS(dll.GenKey(prov, AT_KEYEXCHANGE, 0x0C000000, &key));
  EXPECT_EQ(dll.Record().genKeyBits, 3072u);
  EXPECT_FAILS_WITH(dll.GenKey(prov, AT_SIGNATURE, 0x05000000, &key), NTE_BAD_FLAGS);
  EXPECT_FAILS_WITH(dll.GenKey(prov, AT_SIGNATURE, 0x01000000, &key), NTE_BAD_FLAGS);
  EXPECT_FAILS_WITH(dll.GenKey(prov, AT_SIGNATURE, 0x12000000, &key), NTE_BAD_FLAGS);
  HCRYPTPROV silent = 0;
  ASSERT_EQ(Acquire("\\\\?\\svc0\\c1", CRYPT_SILENT, &silent), 0u);
  EXPECT_FAILS_WITH(dll.GenKey(silent, AT_SIGNATURE, CRYPT_USER_PROTECTED, &key), NTE_SILENT_CONTEXT);
  dll.ReleaseContext(silent, 0);
}

TEST_F(CardPaths, PinSubmissionChecksTheCardsLengthsFirst) {
  // The fake card takes PINs of 4 to 16 bytes and refuses "0000".
  char shortPin[] = "123";
  char longPin[] = "12345678901234567";
  char wrongPin[] = "0000";
  char goodPin[] = "123456";
  EXPECT_FAILS_WITH(dll.SetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(shortPin), 0), NTE_BAD_LEN);
  EXPECT_FAILS_WITH(dll.SetProvParam(prov, PP_KEYEXCHANGE_PIN, reinterpret_cast<BYTE*>(longPin), 0), NTE_BAD_LEN);
  EXPECT_FAILS_WITH(dll.SetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(wrongPin), 0), SCARD_W_WRONG_CHV);
  EXPECT_SUCCEEDS(dll.SetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(goodPin), 0));
  EXPECT_STREQ(dll.Record().lastPin, "123456");
  // An empty PIN clears the stored one without asking the card.
  EXPECT_SUCCEEDS(dll.SetProvParam(prov, PP_SIGNATURE_PIN, nullptr, 0));
  EXPECT_STREQ(dll.Record().lastPin, "123456");

  HCRYPTKEY pair = 0;
  ASSERT_TRUE(dll.GetUserKey(prov, AT_SIGNATURE, &pair));
  EXPECT_FAILS_WITH(dll.SetKeyParam(prov, pair, KP_SIGNATURE_PIN, nullptr, 0), ERROR_INVALID_PARAMETER);
  EXPECT_SUCCEEDS(dll.SetKeyParam(prov, pair, KP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(goodPin), 0));

  // Verify-only contexts without a device name have no card to give a PIN to.
  HCRYPTPROV verify = 0;
  ASSERT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT, &verify), 0u);
  EXPECT_FAILS_WITH(dll.SetProvParam(verify, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(goodPin), 0), NTE_BAD_TYPE);
  dll.ReleaseContext(verify, 0);
}

TEST_F(CardPaths, CertificatesAreCheckedBeforeTheyReachTheCard) {
  HCRYPTKEY session = 0, pair = 0;
  ASSERT_TRUE(dll.GenKey(prov, CALG_RC4, 0, &session));
  ASSERT_TRUE(dll.GetUserKey(prov, AT_SIGNATURE, &pair));
  BYTE notACertificate[] = {0x30, 0x03, 0x02, 0x01, 0x00};
  EXPECT_FAILS_WITH(dll.SetKeyParam(prov, session, KP_CERTIFICATE, notACertificate, 0), NTE_FAIL);
  EXPECT_FAILS_WITH(dll.SetKeyParam(prov, pair, KP_CERTIFICATE, notACertificate, 0), NTE_BAD_DATA);
}

}  // namespace
