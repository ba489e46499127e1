// What the frame itself decides on the way to a card: refusals of key specs, digests, parameters,
// lengths against the card's limits and what a verify-only context may not do; the bare-hash
// signature input, the padding mode a decryption asks for and the key length a generation asks
// for. Signing (the DigestInfo input), OAEP and v1.5 decryption, key generation and login against
// a real token are proved through the token-slot back end; the fake card here only records what
// reached it.
#include <vector>

#include "provider_fixture.h"

namespace {

class CardPaths : public FakeCardProvider {};

// The fake card allows 512 to 4096 bits in steps of 512, and PINs of 4 to 16 bytes.
TEST_F(CardPaths, RefusalsBeforeTheCard) {
  HCRYPTPROV verify = 0;
  ASSERT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT, &verify), 0u);
  HCRYPTPROV silent = Open("\\\\?\\svc0\\c1", CRYPT_SILENT);
  HCRYPTKEY pair = 0, verifyPair = 0, key = 0;
  ASSERT_TRUE(dll.GetUserKey(prov, AT_KEYEXCHANGE, &pair));
  ASSERT_TRUE(dll.GetUserKey(verify, AT_KEYEXCHANGE, &verifyPair));
  HCRYPTHASH md4 = 0, verifyHash = 0;
  ASSERT_TRUE(dll.CreateHash(prov, CALG_MD4, 0, 0, &md4));
  ASSERT_TRUE(dll.CreateHash(verify, CALG_SHA1, 0, 0, &verifyHash));
  BYTE data[300] = {}, notACertificate[] = {0x30, 0x03, 0x02, 0x01, 0x00};
  DWORD length = 256;
  EXPECT_FAILS_WITH(dll.GetUserKey(prov, 3, &key), NTE_BAD_KEY);
  EXPECT_FAILS_WITH(dll.SignHash(prov, md4, 3, nullptr, 0, data, &length), NTE_NO_KEY);
  EXPECT_EQ(length, 0u);
  length = 256;
  EXPECT_FAILS_WITH(dll.SignHash(prov, md4, AT_SIGNATURE, nullptr, 0, data, &length), NTE_BAD_HASH);
  length = 255;
  EXPECT_FAILS_WITH(dll.SignHash(prov, md4, AT_SIGNATURE, nullptr, CRYPT_NOHASHOID, data, &length),
                    ERROR_MORE_DATA);
  EXPECT_EQ(length, 256u);
  // The card's public key leaves only as a public blob.
  for (DWORD type : {DWORD{PRIVATEKEYBLOB}, DWORD{PLAINTEXTKEYBLOB}}) {
    length = sizeof(data);
    EXPECT_FAILS_WITH(dll.ExportKey(prov, pair, 0, type, 0, data, &length), NTE_BAD_KEY_STATE);
  }
  length = 255;
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, 0, data, &length), NTE_BAD_DATA);
  length = 256;
  const DWORD bothPaddings = CRYPT_OAEP | CRYPT_DECRYPT_RSA_NO_PADDING_CHECK;
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, bothPaddings, data, &length), NTE_BAD_FLAGS);
  EXPECT_FAILS_WITH(dll.Decrypt(prov, pair, 0, TRUE, 0, data, nullptr), ERROR_INVALID_PARAMETER);
  length = 100;
  EXPECT_FAILS_WITH(dll.Encrypt(prov, pair, 0, TRUE, 0, data, &length, 100), NTE_BAD_LEN);
  EXPECT_EQ(length, 256u);
  EXPECT_FAILS_WITH(dll.Decrypt(verify, verifyPair, 0, TRUE, 0, data, &length), NTE_PERM);
  EXPECT_FAILS_WITH(dll.GenKey(verify, AT_SIGNATURE, 0, &key), NTE_PERM);
  EXPECT_FAILS_WITH(dll.SignHash(verify, verifyHash, AT_SIGNATURE, nullptr, 0, data, &length),
                    NTE_PERM);
  char pin[] = "123456", shortPin[] = "123", longPin[] = "12345678901234567";
  EXPECT_FAILS_WITH(dll.SetProvParam(verify, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(pin), 0),
                    NTE_BAD_TYPE);
  for (DWORD flags : {0x01000000u, 0x05000000u, 0x12000000u}) {  // below, off the step, above
    EXPECT_FAILS_WITH(dll.GenKey(prov, AT_SIGNATURE, flags, &key), NTE_BAD_FLAGS);
  }
  EXPECT_FAILS_WITH(dll.GenKey(silent, AT_SIGNATURE, CRYPT_USER_PROTECTED, &key),
                    NTE_SILENT_CONTEXT);
  EXPECT_FAILS_WITH(dll.SetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(shortPin), 0),
                    NTE_BAD_LEN);
  EXPECT_FAILS_WITH(dll.SetProvParam(prov, PP_KEYEXCHANGE_PIN, reinterpret_cast<BYTE*>(longPin), 0),
                    NTE_BAD_LEN);
  // Certificates are checked before they reach the card.
  EXPECT_FAILS_WITH(dll.SetKeyParam(prov, pair, KP_CERTIFICATE, notACertificate, 0), NTE_BAD_DATA);
  dll.ReleaseContext(silent, 0);
  dll.ReleaseContext(verify, 0);
}

TEST_F(CardPaths, WhatReachesTheCard) {
  // The bare hash when the caller asks for no identifier.
  HCRYPTHASH md4 = 0;
  ASSERT_TRUE(dll.CreateHash(prov, CALG_MD4, 0, 0, &md4));
  ASSERT_TRUE(dll.HashData(prov, md4, reinterpret_cast<const BYTE*>("abc"), 3, 0));
  BYTE data[256] = {};
  DWORD length = sizeof(data);
  EXPECT_SUCCEEDS(
      dll.SignHash(prov, md4, AT_SIGNATURE, L"ignored", CRYPT_NOHASHOID, data, &length));
  const FakeCardRecord record = dll.Record();
  EXPECT_EQ(Bytes(record.input, record.input + record.inputLength),
            WineHash(CALG_MD4, {'a', 'b', 'c'}));
  // The padding mode of each decryption.
  HCRYPTKEY pair = 0;
  ASSERT_TRUE(dll.GetUserKey(prov, AT_KEYEXCHANGE, &pair));
  const struct { DWORD flags; DWORD mode; } modes[] = {
      {0, 2}, {CRYPT_OAEP, 18}, {CRYPT_DECRYPT_RSA_NO_PADDING_CHECK, 0}};
  for (const auto& m : modes) {
    length = 256;
    EXPECT_SUCCEEDS(dll.Decrypt(prov, pair, 0, TRUE, m.flags, data, &length));
    EXPECT_EQ(dll.Record().mode, m.mode) << m.flags;
  }
  // The length a generation asks for: the card's default without one.
  for (const auto& [flags, bits] : {std::pair<DWORD, DWORD>{0, 2048}, {0x0C000000, 3072}}) {
    HCRYPTKEY key = 0;
    EXPECT_SUCCEEDS(dll.GenKey(prov, AT_KEYEXCHANGE, flags, &key));
    EXPECT_EQ(dll.Record().genKeyBits, bits) << flags;
  }
  // A PIN within the limits reaches the card, which may refuse it; an empty one clears it.
  char pin[] = "123456", wrongPin[] = "0000";
  EXPECT_FAILS_WITH(dll.SetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(wrongPin), 0),
                    SCARD_W_WRONG_CHV);
  EXPECT_SUCCEEDS(dll.SetProvParam(prov, PP_SIGNATURE_PIN, reinterpret_cast<BYTE*>(pin), 0));
  EXPECT_STREQ(dll.Record().lastPin, "123456");
  EXPECT_SUCCEEDS(dll.SetProvParam(prov, PP_SIGNATURE_PIN, nullptr, 0));
}

}  // namespace
