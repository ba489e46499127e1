// RSA public keys imported from a PUBLICKEYBLOB are held by the module itself: encryption and
// signature checks run on the provider's own RSA code, cross-checked against Wine's software
// provider holding the private half.
//
// Verification accepts a block only when, after its type 1 frame, it carries exactly what a
// signer writes, and blocks with other bytes around the hash (which is what a small-exponent
// forgery needs), a wrong DigestInfo or a short payload are refused. The blocks are signed here
// with plain modular arithmetic on the private exponent of the key that Wine generated (a v1.5
// signature is deterministic, so the correct ones are exactly Wine's own signatures).
#include <algorithm>
#include <string>
#include <vector>

#include "crypto/bignum.h"
#include "provider_fixture.h"

namespace {

using nivra::crypto::CBigNumber;

constexpr BYTE kMessage[] = "verified strictly";

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

Bytes Reversed(Bytes bytes) {
  std::reverse(bytes.begin(), bytes.end());
  return bytes;
}

void LoadBigEndian(const Bytes& bytes, CBigNumber* value) {
  value->SetZero();
  EXPECT_EQ(value->FromBytes(bytes.data(), 0, static_cast<uint32_t>(bytes.size())), 0);
}

class ModuleRsa : public FakeCardProvider {
 protected:
  void SetUp() override {
    FakeCardProvider::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_TRUE(CryptGenKey(wine, AT_KEYEXCHANGE, (1024u << 16) | CRYPT_EXPORTABLE, &winePair));
    DWORD length = 0;
    ASSERT_TRUE(CryptExportKey(winePair, 0, PUBLICKEYBLOB, 0, nullptr, &length));
    publicBlob.resize(length);
    ASSERT_TRUE(CryptExportKey(winePair, 0, PUBLICKEYBLOB, 0, publicBlob.data(), &length));
    EXPECT_SUCCEEDS(dll.ImportKey(prov, publicBlob.data(), length, 0, 0, &moduleKey));
    ASSERT_TRUE(CryptExportKey(winePair, 0, PRIVATEKEYBLOB, 0, nullptr, &length));
    Bytes blob(length);
    ASSERT_TRUE(CryptExportKey(winePair, 0, PRIVATEKEYBLOB, 0, blob.data(), &length));
    // PRIVATEKEYBLOB: headers, n (k bytes), five CRT values (k / 2 each), d (k bytes); all
    // least significant byte first.
    ASSERT_EQ(blob.size(), 20u + 9 * kBytes / 2);
    LoadBigEndian(Reversed(Bytes(blob.begin() + 20, blob.begin() + 20 + kBytes)), &modulus);
    LoadBigEndian(Reversed(Bytes(blob.end() - kBytes, blob.end())), &privateExponent);
  }
  // Our hash of kMessage (SSL3 SHAMD5: its value set from Wine's MD5 and SHA-1 values).
  HCRYPTHASH OurHash(ALG_ID alg) {
    HCRYPTHASH hash = 0;
    EXPECT_TRUE(dll.CreateHash(prov, alg, 0, 0, &hash));
    if (alg != CALG_SSL3_SHAMD5) {
      EXPECT_TRUE(dll.HashData(prov, hash, kMessage, sizeof(kMessage), 0));
    } else {
      EXPECT_TRUE(dll.SetHashParam(prov, hash, HP_HASHVAL,
                                   Join({HashValue(CALG_MD5), HashValue(CALG_SHA1)}).data(), 0));
    }
    return hash;
  }

  Bytes HashValue(ALG_ID alg) { return WineHash(alg, Bytes(kMessage, kMessage + sizeof(kMessage))); }

  // The signature (CryptoAPI byte order) of the type 1 block 00 01 FF.. 00 `payload`.
  Bytes SignBlock(const Bytes& payload) {
    Bytes frame(kBytes - payload.size(), 0xFF);
    frame[0] = 0x00;
    frame[1] = 0x01;
    frame.back() = 0x00;
    CBigNumber block, signature;
    LoadBigEndian(Join({frame, payload}), &block);
    EXPECT_EQ(signature.ModExp(block, privateExponent, modulus), 0);
    Bytes bytes(kBytes);
    signature.ToBytesFixed(bytes.data(), static_cast<uint32_t>(kBytes));
    return Reversed(bytes);
  }

  static constexpr size_t kBytes = 128;
  HCRYPTKEY winePair = 0;
  HCRYPTKEY moduleKey = 0;
  Bytes publicBlob;
  CBigNumber modulus;
  CBigNumber privateExponent;
};

TEST_F(ModuleRsa, ExportsTheSameBlob) {
  std::vector<BYTE> exported(publicBlob.size());
  DWORD length = static_cast<DWORD>(exported.size());
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

TEST_F(ModuleRsa, OnlyTheExactEncodingAfterTheFrameVerifies) {
  const Bytes sha1 = HashValue(CALG_SHA1);
  const Bytes md5 = HashValue(CALG_MD5);
  Bytes wrongOid = kSha1Prefix;
  wrongOid[10] ^= 0x01;  // the last byte of SHA-1's object identifier
  const struct {
    const char* what;
    ALG_ID alg;
    DWORD flags;
    Bytes payload;
    bool accepted;
  } cases[] = {
      {"SHA-1 DigestInfo and hash", CALG_SHA1, 0, Join({kSha1Prefix, sha1}), true},
      {"MD5 DigestInfo and hash", CALG_MD5, 0, Join({kMd5Prefix, md5}), true},
      {"bare hash without identifier", CALG_SHA1, CRYPT_NOHASHOID, sha1, true},
      {"SSL3 MD5 and SHA-1 values", CALG_SSL3_SHAMD5, 0, Join({md5, sha1}), true},
      {"a byte after the hash", CALG_SHA1, 0, Join({kSha1Prefix, sha1, {0x00}}), false},
      {"bytes after the MD5 hash", CALG_MD5, 0, Join({kMd5Prefix, md5, {0xAB, 0xCD}}), false},
      {"a byte after the bare hash", CALG_SHA1, CRYPT_NOHASHOID, Join({sha1, {0x00}}), false},
      {"another object identifier", CALG_SHA1, 0, Join({wrongOid, sha1}), false},
      {"another hash", CALG_SHA1, 0, Join({kSha1Prefix, Bytes(sha1.size(), 0x5A)}), false},
      {"short hash", CALG_SHA1, 0, Join({kSha1Prefix, Bytes(sha1.begin(), sha1.end() - 1)}), false},
      {"hash alone where a DigestInfo belongs", CALG_SHA1, 0, sha1, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    const HCRYPTHASH hash = OurHash(c.alg);
    const Bytes signature = SignBlock(c.payload);
    SetLastError(0xFEED);
    const BOOL ok =
        dll.VerifySignature(prov, hash, signature.data(), kBytes, moduleKey, nullptr, c.flags);
    EXPECT_EQ(ok != FALSE, c.accepted);
    EXPECT_EQ(GetLastError(), c.accepted ? 0u : static_cast<DWORD>(NTE_BAD_SIGNATURE));
    dll.DestroyHash(prov, hash);
  }
  // A correct signature one byte short, and no key.
  const HCRYPTHASH hash = OurHash(CALG_SHA1);
  const Bytes good = SignBlock(Join({kSha1Prefix, sha1}));
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, hash, good.data(), kBytes - 1, moduleKey, nullptr, 0), NTE_BAD_SIGNATURE);
  EXPECT_FAILS_WITH(dll.VerifySignature(prov, hash, good.data(), kBytes, 0, nullptr, 0), NTE_INVALID_PARAMETER);
}

}  // namespace
