// Session keys, hashes keyed with them and random numbers come from the software provider: the
// provider's answers must be those of Wine's own "Microsoft Strong Cryptographic Provider" used
// directly. (Plain hash values reach Wine's through the signature checks of ModuleRsa.)
#include <vector>

#include "provider_fixture.h"

namespace {

class SoftwarePaths : public FakeCardProvider {};

// The software provider's own error stands (an algorithm it does not know). Random numbers leave
// the last error as it was, on a verify-only context too.
TEST_F(SoftwarePaths, SoftwareErrorsAndRandomNumbersPassThrough) {
  HCRYPTHASH hash = 0xAA, wineHash = 0;
  EXPECT_FALSE(dll.CreateHash(prov, 0x1234, 0, 0, &hash));
  const DWORD unknown = GetLastError();
  EXPECT_EQ(hash, 0u);
  EXPECT_FALSE(CryptCreateHash(wine, 0x1234, 0, 0, &wineHash));
  EXPECT_EQ(unknown, GetLastError());
  EXPECT_NE(unknown, 0u);

  HCRYPTPROV verify = 0;
  ASSERT_EQ(Acquire(nullptr, CRYPT_VERIFYCONTEXT, &verify), 0u);
  BYTE a[32] = {}, b[32] = {};
  SetLastError(0x1234);
  EXPECT_TRUE(dll.GenRandom(prov, sizeof(a), a));
  EXPECT_TRUE(dll.GenRandom(verify, sizeof(b), b));
  EXPECT_EQ(GetLastError(), 0x1234u) << "no last error of its own on success";
  EXPECT_NE(std::vector<BYTE>(a, a + 32), std::vector<BYTE>(b, b + 32));
  dll.ReleaseContext(verify, 0);
}

// The same key derived in both providers: the same ciphertext (with no last error of ours on the
// software path), which decrypts again, and the same hash of it. (The import of a session key and
// a decryption with it are proved where nivracli opens OpenSSL's enveloped data through the card.)
TEST_F(SoftwarePaths, SessionKeysAgreeWithWinesProvider) {
  const std::vector<BYTE> plain(37, 0x5A);
  HCRYPTKEY ours = 0, theirs = 0;
  HCRYPTHASH ourHash = 0, wineHash = 0;
  ASSERT_TRUE(dll.CreateHash(prov, CALG_SHA1, 0, 0, &ourHash));
  ASSERT_TRUE(dll.HashData(prov, ourHash, plain.data(), 20, 0));
  ASSERT_TRUE(CryptCreateHash(wine, CALG_SHA1, 0, 0, &wineHash));
  ASSERT_TRUE(CryptHashData(wineHash, plain.data(), 20, 0));
  EXPECT_SUCCEEDS(dll.DeriveKey(prov, CALG_RC4, ourHash, 128 << 16, &ours));
  ASSERT_TRUE(CryptDeriveKey(wine, CALG_RC4, wineHash, 128 << 16, &theirs));
  std::vector<BYTE> a = plain, b = plain;
  DWORD la = 37, lb = 37;
  SetLastError(0x55);
  EXPECT_TRUE(dll.Encrypt(prov, ours, 0, TRUE, 0, a.data(), &la, 37));
  EXPECT_EQ(GetLastError(), 0x55u) << "the software path sets no last error";
  ASSERT_TRUE(CryptEncrypt(theirs, 0, TRUE, 0, b.data(), &lb, 37));
  EXPECT_EQ(a, b);
  EXPECT_NE(a, plain);
  EXPECT_TRUE(dll.Decrypt(prov, ours, 0, TRUE, 0, a.data(), &la));
  EXPECT_EQ(a, plain);
  HCRYPTHASH ourKeyHash = 0, wineKeyHash = 0;
  ASSERT_TRUE(dll.CreateHash(prov, CALG_MD5, 0, 0, &ourKeyHash));
  EXPECT_SUCCEEDS(dll.HashSessionKey(prov, ourKeyHash, ours, 0));
  ASSERT_TRUE(CryptCreateHash(wine, CALG_MD5, 0, 0, &wineKeyHash));
  ASSERT_TRUE(CryptHashSessionKey(wineKeyHash, theirs, 0));
  BYTE va[16], vb[16];
  DWORD lva = 16, lvb = 16;
  EXPECT_TRUE(dll.GetHashParam(prov, ourKeyHash, HP_HASHVAL, va, &lva, 0));
  EXPECT_TRUE(CryptGetHashParam(wineKeyHash, HP_HASHVAL, vb, &lvb, 0));
  EXPECT_EQ(0, memcmp(va, vb, 16));
}

// The export rules of generated session keys, and the import of malformed blobs.
TEST_F(SoftwarePaths, ExportAndImportRefusals) {
  HCRYPTKEY fixed = 0, exportable = 0, key = 0;
  EXPECT_SUCCEEDS(dll.GenKey(prov, CALG_RC4, 0, &fixed));
  EXPECT_SUCCEEDS(dll.GenKey(prov, CALG_3DES_112, CRYPT_EXPORTABLE, &exportable));
  auto exportAs = [&](HCRYPTKEY of, HCRYPTKEY with, DWORD type, DWORD flags) {
    BYTE blob[256];
    DWORD length = sizeof(blob);
    return dll.ExportKey(prov, of, with, type, flags, blob, &length);
  };
  EXPECT_FAILS_WITH(exportAs(exportable, 0, PLAINTEXTKEYBLOB, 1), NTE_BAD_FLAGS);
  EXPECT_FAILS_WITH(exportAs(exportable, 0, PRIVATEKEYBLOB, 0), NTE_BAD_KEY_STATE);
  EXPECT_FAILS_WITH(exportAs(exportable, 0, 0x55, 0), NTE_BAD_TYPE);
  EXPECT_FAILS_WITH(exportAs(fixed, 0, SIMPLEBLOB, 0), NTE_BAD_KEY_STATE);
  EXPECT_FAILS_WITH(exportAs(exportable, 0, SIMPLEBLOB, 0), NTE_BAD_UID);
  EXPECT_FAILS_WITH(exportAs(exportable, fixed, SIMPLEBLOB, 0), NTE_BAD_KEY);
  EXPECT_FAILS_WITH(exportAs(exportable, 0, PUBLICKEYBLOB, 0), NTE_BAD_PUBLIC_KEY);
  BYTE small[7] = {PLAINTEXTKEYBLOB, 2}, unknown[16] = {0x42, 2, 0, 0};
  EXPECT_FAILS_WITH(dll.ImportKey(prov, nullptr, 64, 0, 0, &key), ERROR_INVALID_PARAMETER);
  EXPECT_FAILS_WITH(dll.ImportKey(prov, small, sizeof(small), 0, 0, &key), NTE_BAD_LEN);
  EXPECT_FAILS_WITH(dll.ImportKey(prov, unknown, sizeof(unknown), 0, 0, &key), NTE_BAD_TYPE);
  // Public key blobs: RSA algorithms only, and as long as their modulus says.
  BYTE pub[20 + 8] = {PUBLICKEYBLOB, 2, 0, 0};
  *reinterpret_cast<ALG_ID*>(pub + 4) = CALG_RC4;
  EXPECT_FAILS_WITH(dll.ImportKey(prov, pub, sizeof(pub), 0, 0, &key), NTE_BAD_DATA);
  *reinterpret_cast<ALG_ID*>(pub + 4) = CALG_RSA_KEYX;
  const RSAPUBKEY rsa{0x31415352, 1024, 65537};
  memcpy(pub + 8, &rsa, sizeof(rsa));
  EXPECT_FAILS_WITH(dll.ImportKey(prov, pub, sizeof(pub), 0, 0, &key), NTE_BAD_LEN);
  EXPECT_EQ(key, 0u);
}

}  // namespace
