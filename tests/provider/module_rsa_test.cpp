// RSA public keys imported from a PUBLICKEYBLOB are held by the module itself: encryption and
// signature checks run on the provider's own RSA code, cross-checked against Wine's software
// provider holding the private half.
#include <vector>

#include "provider_fixture.h"

namespace {

class ModuleRsa : public FakeCardProvider {
 protected:
  void SetUp() override {
    FakeCardProvider::SetUp();
    prov = Open();
    wine = OpenWineSoftwareProvider();
    ASSERT_NE(wine, 0u);
    ASSERT_TRUE(CryptGenKey(wine, AT_KEYEXCHANGE, (1024u << 16) | CRYPT_EXPORTABLE, &winePair));
    DWORD length = 0;
    ASSERT_TRUE(CryptExportKey(winePair, 0, PUBLICKEYBLOB, 0, nullptr, &length));
    publicBlob.resize(length);
    ASSERT_TRUE(CryptExportKey(winePair, 0, PUBLICKEYBLOB, 0, publicBlob.data(), &length));
    EXPECT_SUCCEEDS(dll.ImportKey(prov, publicBlob.data(), length, 0, 0, &moduleKey));
  }
  void TearDown() override {
    CryptDestroyKey(winePair);
    CryptReleaseContext(wine, 0);
    dll.ReleaseContext(prov, 0);
  }

  HCRYPTPROV prov = 0;
  HCRYPTPROV wine = 0;
  HCRYPTKEY winePair = 0;
  HCRYPTKEY moduleKey = 0;
  std::vector<BYTE> publicBlob;
};

TEST_F(ModuleRsa, KeyDescribesItselfAndExportsTheSameBlob) {
  DWORD value = 0, length = sizeof(value);
  EXPECT_SUCCEEDS(dll.GetKeyParam(prov, moduleKey, KP_KEYLEN, reinterpret_cast<BYTE*>(&value), &length, 0));
  EXPECT_EQ(value, 1024u);
  EXPECT_SUCCEEDS(dll.GetKeyParam(prov, moduleKey, KP_ALGID, reinterpret_cast<BYTE*>(&value), &length, 0));
  EXPECT_EQ(value, static_cast<DWORD>(CALG_RSA_KEYX));
  EXPECT_FAILS_WITH(dll.GetKeyParam(prov, moduleKey, KP_PERMISSIONS, reinterpret_cast<BYTE*>(&value), &length, 0), NTE_BAD_TYPE);
  std::vector<BYTE> exported(publicBlob.size());
  length = static_cast<DWORD>(exported.size());
  EXPECT_SUCCEEDS(dll.ExportKey(prov, moduleKey, 0, PUBLICKEYBLOB, 0, exported.data(), &length));
  EXPECT_EQ(exported, publicBlob);
}

TEST_F(ModuleRsa, EncryptionDecryptsWithWinesPrivateKey) {
  for (DWORD flags : {DWORD{0}, DWORD{CRYPT_OAEP}}) {
    for (DWORD n : {DWORD{0}, DWORD{1}, DWORD{40}, flags ? DWORD{128 - 42} : DWORD{128 - 11}}) {
      SCOPED_TRACE(std::to_string(flags) + "/" + std::to_string(n));
      std::vector<BYTE> data(128);
      for (DWORD i = 0; i < n; ++i) data[i] = static_cast<BYTE>(i * 3 + 1);
      DWORD length = n;
      EXPECT_SUCCEEDS(dll.Encrypt(prov, moduleKey, 0, TRUE, flags, data.data(), &length, 128));
      ASSERT_EQ(length, 128u);
      ASSERT_TRUE(CryptDecrypt(winePair, 0, TRUE, flags, data.data(), &length)) << std::hex << GetLastError();
      ASSERT_EQ(length, n);
      for (DWORD i = 0; i < n; ++i) EXPECT_EQ(data[i], static_cast<BYTE>(i * 3 + 1));
    }
  }
  std::vector<BYTE> data(128, 1);
  DWORD length = 128 - 10;
  EXPECT_FAILS_WITH(dll.Encrypt(prov, moduleKey, 0, TRUE, 0, data.data(), &length, 128), NTE_BAD_LEN);
  EXPECT_EQ(length, 0u);
  length = 10;
  EXPECT_FAILS_WITH(dll.Encrypt(prov, moduleKey, 0, TRUE, 0, data.data(), &length, 127), NTE_BAD_LEN);
  EXPECT_EQ(length, 128u);
}

TEST_F(ModuleRsa, SignaturesFromWinesProviderVerify) {
  const BYTE message[] = "signed by Wine, checked by the provider";
  HCRYPTHASH wineHash = 0, ourHash = 0;
  ASSERT_TRUE(CryptCreateHash(wine, CALG_SHA1, 0, 0, &wineHash));
  ASSERT_TRUE(CryptHashData(wineHash, message, sizeof(message), 0));
  std::vector<BYTE> signature(128);
  DWORD length = 128;
  ASSERT_TRUE(CryptSignHashW(wineHash, AT_KEYEXCHANGE, nullptr, 0, signature.data(), &length));
  ASSERT_TRUE(dll.CreateHash(prov, CALG_SHA1, 0, 0, &ourHash));
  ASSERT_TRUE(dll.HashData(prov, ourHash, message, sizeof(message), 0));
  EXPECT_SUCCEEDS(dll.VerifySignature(prov, ourHash, signature.data(), 128, moduleKey, nullptr, 0));
  std::vector<BYTE> bad = signature;
  bad[0] ^= 0x40;
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, ourHash, bad.data(), 128, moduleKey, nullptr, 0), NTE_BAD_SIGNATURE);
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, ourHash, signature.data(), 127, moduleKey, nullptr, 0), NTE_BAD_SIGNATURE);
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, ourHash, signature.data(), 128, 0, nullptr, 0), NTE_INVALID_PARAMETER);

  // Another message's hash does not verify.
  HCRYPTHASH other = 0;
  ASSERT_TRUE(dll.CreateHash(prov, CALG_SHA1, 0, 0, &other));
  ASSERT_TRUE(dll.HashData(prov, other, message, 5, 0));
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, other, signature.data(), 128, moduleKey, nullptr, 0), NTE_BAD_SIGNATURE);
  CryptDestroyHash(wineHash);
}

}  // namespace
