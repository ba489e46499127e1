// What the frame itself decides on the way to a card: the signature input and its length
// protocol, digest and key-spec refusals, the padding mode a decryption asks for, key lengths
// and PIN lengths checked against the card's limits, and what a verify-only context may not do.
// Signing, decryption, key generation and login against a real token are proved through the
// token-slot back end; the fake card here only records what reached it.
#include <cstring>
#include <vector>

#include "provider_fixture.h"

namespace {

class CardPaths : public FakeCardProvider {
 protected:
  // A hash of "abc" in the provider; *value receives Wine's own value of it.
  HCRYPTHASH HashOf(ALG_ID alg, Bytes* value) {
    HCRYPTHASH hash = 0;
    EXPECT_TRUE(dll.CreateHash(prov, alg, 0, 0, &hash));
    EXPECT_TRUE(dll.HashData(prov, hash, kAbc.data(), 3, 0));
    *value = WineHash(alg, kAbc);
    return hash;
  }

  const Bytes kAbc = {'a', 'b', 'c'};
};

TEST_F(CardPaths, SignatureInputAndLengthProtocol) {
  Bytes sha1, md4;
  HCRYPTHASH hash = HashOf(CALG_SHA1, &sha1);
  BYTE signature[256];
  DWORD length = 0;
  EXPECT_SUCCEEDS(dll.SignHash(prov, hash, AT_SIGNATURE, nullptr, 0, nullptr, &length));
  EXPECT_EQ(length, 256u);
  length = 255;
  EXPECT_FAILS_WITH(dll.SignHash(prov, hash, AT_SIGNATURE, nullptr, 0, signature, &length), ERROR_MORE_DATA);
  EXPECT_EQ(length, 256u);
  EXPECT_SUCCEEDS(dll.SignHash(prov, hash, AT_SIGNATURE, L"ignored", 0, signature, &length));
  FakeCardRecord record = dll.Record();
  EXPECT_EQ(record.keySpec, static_cast<DWORD>(AT_SIGNATURE));
  EXPECT_EQ(record.mode, 1u);
  Bytes expected = kSha1Prefix;
  expected.insert(expected.end(), sha1.begin(), sha1.end());
  EXPECT_EQ(Bytes(record.input, record.input + record.inputLength), expected);

  HCRYPTHASH md5 = HashOf(CALG_MD5, &expected);
  length = sizeof(signature);
  EXPECT_SUCCEEDS(dll.SignHash(prov, md5, AT_KEYEXCHANGE, nullptr, 0, signature, &length));
  record = dll.Record();
  EXPECT_EQ(record.keySpec, static_cast<DWORD>(AT_KEYEXCHANGE));
  ASSERT_EQ(record.inputLength, kMd5Prefix.size() + 16);
  EXPECT_EQ(Bytes(record.input, record.input + kMd5Prefix.size()), kMd5Prefix);

  // No prefix is known for MD4: refused, unless the caller asks for the bare hash.
  HCRYPTHASH md4Hash = HashOf(CALG_MD4, &md4);
  length = sizeof(signature);
  EXPECT_FAILS_WITH(dll.SignHash(prov, md4Hash, AT_SIGNATURE, nullptr, 0, signature, &length), NTE_BAD_HASH);
  length = sizeof(signature);
  EXPECT_SUCCEEDS(dll.SignHash(prov, md4Hash, AT_SIGNATURE, nullptr, CRYPT_NOHASHOID, signature, &length));
  record = dll.Record();
  EXPECT_EQ(Bytes(record.input, record.input + record.inputLength), md4);
  EXPECT_FAILS_WITH(dll.SignHash(prov, md4Hash, 3, nullptr, 0, signature, &length), NTE_NO_KEY);
  EXPECT_EQ(length, 0u);
}

TEST_F(CardPaths, UserKeyParametersAndExportRefusals) {
  HCRYPTKEY pair = 0;
  EXPECT_FAILS_WITH(dll.GetUserKey(prov, 3, &pair), NTE_BAD_KEY);
  EXPECT_SUCCEEDS(dll.GetUserKey(prov, AT_KEYEXCHANGE, &pair));
  const struct { DWORD param; DWORD value; } params[] = {
      {KP_ALGID, CALG_RSA_KEYX}, {KP_KEYLEN, 2048}, {KP_PERMISSIONS, 3}};
  for (const auto& p : params) {
    DWORD value = 0, length = sizeof(value);
    EXPECT_SUCCEEDS(dll.GetKeyParam(prov, pair, p.param, reinterpret_cast<BYTE*>(&value), &length, 0));
    EXPECT_EQ(value, p.value) << p.param;
  }
  DWORD value = 0, length = 2;
  EXPECT_FAILS_WITH(dll.GetKeyParam(prov, pair, KP_PADDING, reinterpret_cast<BYTE*>(&value), &length, 0), ERROR_MORE_DATA);
  EXPECT_EQ(length, 4u);
  EXPECT_FAILS_WITH(dll.GetKeyParam(prov, pair, KP_IV, reinterpret_cast<BYTE*>(&value), &length, 0), NTE_BAD_TYPE);
  EXPECT_FAILS_WITH(dll.GetKeyParam(prov, pair, KP_ALGID, reinterpret_cast<BYTE*>(&value), nullptr, 0), ERROR_INVALID_PARAMETER);

  // The card's public key leaves only as a public blob (its layout is proved where a real card's
  // signatures verify in Wine's provider).
  BYTE blob[300];
  for (DWORD type : {DWORD{PRIVATEKEYBLOB}, DWORD{PLAINTEXTKEYBLOB}}) {
    length = sizeof(blob);
    EXPECT_FAILS_WITH(dll.ExportKey(prov, pair, 0, type, 0, blob, &length), NTE_BAD_KEY_STATE);
  }
}

TEST_F(CardPaths, DecryptionModesAndLengths) {
  HCRYPTKEY pair = 0;
  ASSERT_TRUE(dll.GetUserKey(prov, AT_KEYEXCHANGE, &pair));
  std::vector<BYTE> data(300, 0x5A);
  DWORD length = 255;
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, 0, data.data(), &length), NTE_BAD_DATA);
  length = 256;
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, CRYPT_OAEP | CRYPT_DECRYPT_RSA_NO_PADDING_CHECK, data.data(), &length), NTE_BAD_FLAGS);
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, 0, data.data(), nullptr), ERROR_INVALID_PARAMETER);
  const struct { DWORD flags; DWORD mode; } modes[] = {
      {0, 2}, {CRYPT_OAEP, 18}, {CRYPT_DECRYPT_RSA_NO_PADDING_CHECK, 0}};
  for (const auto& m : modes) {
    length = 256;
    EXPECT_SUCCEEDS(dll.Decrypt(prov, pair, 0, TRUE, m.flags, data.data(), &length));
    EXPECT_EQ(dll.Record().mode, m.mode) << m.flags;
  }
  length = 100;
  EXPECT_FAILS_WITH(dll.Encrypt(prov, pair, 0, TRUE, 0, data.data(), &length, 100), NTE_BAD_LEN);
  EXPECT_EQ(length, 256u);
}

TEST_F(CardPaths, VerifyOnlyContextsNeverReachThePrivateKeyOrAPin) {
  HCRYPTPROV verify = 0;
  ASSERT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT, &verify), 0u);
  HCRYPTKEY pair = 0;
  ASSERT_TRUE(dll.GetUserKey(verify, AT_KEYEXCHANGE, &pair));
  BYTE data[256] = {};
  DWORD length = 256;
  EXPECT_FAILS_WITH(dll.Decrypt(verify, pair, 0, TRUE, 0, data, &length), NTE_PERM);
  HCRYPTKEY generated = 0;
  EXPECT_FAILS_WITH(dll.GenKey(verify, AT_SIGNATURE, 0, &generated), NTE_PERM);
  HCRYPTHASH hash = 0;
  ASSERT_TRUE(dll.CreateHash(verify, CALG_SHA1, 0, 0, &hash));
  length = 256;
  EXPECT_FAILS_WITH(dll.SignHash(verify, hash, AT_SIGNATURE, nullptr, 0, data, &length), NTE_PERM);
  char pin[] = "123456";
  EXPECT_FAILS_WITH(dll.SetProvParam(verify, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(pin), 0), NTE_BAD_TYPE);
  dll.ReleaseContext(verify, 0);
}

TEST_F(CardPaths, KeyAndPinLengthsFollowTheCardLimits) {
  // The fake card allows 512 to 4096 bits in steps of 512, and PINs of 4 to 16 bytes.
  const struct { DWORD flags; DWORD bits; } lengths[] = {
      {0, 2048}, {0x0C000000, 3072}, {0x05000000, 0}, {0x01000000, 0}, {0x12000000, 0}};
  for (const auto& l : lengths) {
    HCRYPTKEY key = 0;
    if (l.bits == 0) {
      EXPECT_FAILS_WITH(dll.GenKey(prov, AT_SIGNATURE, l.flags, &key), NTE_BAD_FLAGS);
      continue;
    }
    EXPECT_SUCCEEDS(dll.GenKey(prov, AT_KEYEXCHANGE, l.flags, &key));
    EXPECT_EQ(dll.Record().genKeyBits, l.bits) << l.flags;
  }
  HCRYPTPROV silent = 0;
  ASSERT_EQ(Acquire("\\\\?\\svc0\\c1", CRYPT_SILENT, &silent), 0u);
  HCRYPTKEY key = 0;
  EXPECT_FAILS_WITH(dll.GenKey(silent, AT_SIGNATURE, CRYPT_USER_PROTECTED, &key), NTE_SILENT_CONTEXT);
  dll.ReleaseContext(silent, 0);

  const struct { DWORD param; const char* pin; DWORD error; } pins[] = {
      {PP_SIGNATURE_PIN, "123", static_cast<DWORD>(NTE_BAD_LEN)},
      {PP_KEYEXCHANGE_PIN, "12345678901234567", static_cast<DWORD>(NTE_BAD_LEN)},
      {PP_SIGNATURE_PIN, "0000", static_cast<DWORD>(SCARD_W_WRONG_CHV)},
      {PP_SIGNATURE_PIN, "123456", 0}};
  for (const auto& p : pins) {
    std::vector<char> pin(p.pin, p.pin + strlen(p.pin) + 1);
    SetLastError(0xFEED);
    EXPECT_EQ(dll.SetProvParam(prov, p.param, reinterpret_cast<BYTE*>(pin.data()), 0) != FALSE, p.error == 0) << p.pin;
    if (p.error != 0) {
      EXPECT_EQ(GetLastError(), p.error) << p.pin;
    }
  }
  EXPECT_STREQ(dll.Record().lastPin, "123456");
  // An empty PIN clears the stored one without asking the card.
  EXPECT_SUCCEEDS(dll.SetProvParam(prov, PP_SIGNATURE_PIN, nullptr, 0));
  HCRYPTKEY pair = 0;
  ASSERT_TRUE(dll.GetUserKey(prov, AT_SIGNATURE, &pair));
  EXPECT_FAILS_WITH(dll.SetKeyParam(prov, pair, KP_SIGNATURE_PIN, nullptr, 0), ERROR_INVALID_PARAMETER);

  // Certificates are checked before they reach the card.
  HCRYPTKEY session = 0;
  ASSERT_TRUE(dll.GenKey(prov, CALG_RC4, 0, &session));
  BYTE notACertificate[] = {0x30, 0x03, 0x02, 0x01, 0x00};
  EXPECT_FAILS_WITH(dll.SetKeyParam(prov, session, KP_CERTIFICATE, notACertificate, 0), NTE_FAIL);
  EXPECT_FAILS_WITH(dll.SetKeyParam(prov, pair, KP_CERTIFICATE, notACertificate, 0), NTE_BAD_DATA);
}

}  // namespace
