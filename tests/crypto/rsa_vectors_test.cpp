// RSA and PKCS#1 against the published PKCS#1 test vectors: v1.5 signatures (block type 1 built,
// signed, and verified by unpadding), RSAES-OAEP decryption, the OAEP intermediate values (MGF1
// masks, CRT steps) and the published DER encodings of the example key.
#include <gtest/gtest.h>

#include <memory>

#include "crypto/digest_info.h"
#include "crypto/pkcs1.h"
#include "crypto/pkcs1_hash.h"
#include "crypto/rsa_key.h"
#include "rsa_vector_file.h"

namespace nivra::crypto {
namespace {

using testing::Bytes;
using testing::VectorKey;

struct KeyDeleter {
  void operator()(CRSA* key) const { RsaDestroyKey(key); }
};
using KeyPtr = std::unique_ptr<CRSA, KeyDeleter>;

// A key built component by component, as a caller that holds the raw integers would.
KeyPtr BuildKey(const VectorKey& v, bool withCrt) {
  CRSA* raw = nullptr;
  EXPECT_EQ(RsaCreateKey(&raw), kOk);
  KeyPtr key(raw);
  auto set = [&](uint32_t id, const Bytes& value) {
    EXPECT_EQ(RsaSetKey(key.get(), id, value.data(), value.size()), kOk) << id;
  };
  set(kRsaComponentN, v.n);
  set(kRsaComponentE, v.e);
  set(kRsaComponentD, v.d);
  if (withCrt) {
    set(kRsaComponentP, v.p);
    set(kRsaComponentQ, v.q);
    set(kRsaComponentDP, v.dP);
    set(kRsaComponentDQ, v.dQ);
    set(kRsaComponentQInv, v.qInv);
  }
  EXPECT_EQ(key->hasCrt, withCrt ? 1 : 0);
  EXPECT_EQ(key->hasPrivate, 1);
  EXPECT_EQ(key->hasPublic, 1);
  return key;
}

Bytes DigestInfoOfSha1(const Bytes& message) {
  uint8_t digest[20];
  EXPECT_EQ(Pkcs1Sha1(digest, message.data(), message.size(), nullptr, 0), kOk);
  Bytes info(64);
  size_t written = 0;
  EXPECT_EQ(DigestInfoEncode(DigestAlgorithm::kSha1, digest, sizeof(digest), info.data(),
                             info.size(), &written),
            kOk);
  info.resize(written);
  return info;
}

TEST(RsaVectors, Pkcs1V15SignaturesMatchAndVerifyByUnpadding) {
  const std::vector<VectorKey> keys =
      testing::ReadKeys(testing::RsaVectorPath("pkcs1v15sign-vectors.txt"));
  ASSERT_EQ(keys.size(), 15u);
  size_t checked = 0;
  for (size_t k = 0; k < keys.size(); ++k) {
    const VectorKey& v = keys[k];
    ASSERT_EQ(v.examples.size(), 20u);
    KeyPtr key = BuildKey(v, /*withCrt=*/true);
    const size_t len = key->ModulusBytes();
    ASSERT_EQ(len, v.n.size());
    for (const testing::VectorExample& ex : v.examples) {
      const Bytes info = DigestInfoOfSha1(ex.message);
      Bytes block(len), signature(len), recovered(len);
      ASSERT_EQ(Pkcs1PadType1(block.data(), len, info.data(), info.size()), kOk);
      size_t outLen = 0;
      ASSERT_EQ(RsaPrivate(key.get(), block.data(), len, signature.data(), &outLen), kOk);
      EXPECT_EQ(outLen, len);
      EXPECT_EQ(signature, ex.result) << "key " << k + 1;
      ASSERT_EQ(RsaPublic(key.get(), ex.result.data(), len, recovered.data(), nullptr), kOk);
      const uint8_t* data = nullptr;
      size_t dataLen = 0;
      ASSERT_EQ(Pkcs1UnpadType1(recovered.data(), len, &data, &dataLen), kOk);
      EXPECT_EQ(Bytes(data, data + dataLen), info);
      ++checked;
    }
  }
  EXPECT_EQ(checked, 300u);
}

TEST(RsaVectors, PrivateExponentPathAgreesWithTheCrt) {
  const std::vector<VectorKey> keys =
      testing::ReadKeys(testing::RsaVectorPath("pkcs1v15sign-vectors.txt"));
  ASSERT_FALSE(keys.empty());
  for (size_t k : {0u, 6u, 12u, 14u}) {  // 1024, 1025, 1031 and 2048 bits
    const VectorKey& v = keys[k];
    KeyPtr key = BuildKey(v, /*withCrt=*/false);
    const size_t len = key->ModulusBytes();
    const testing::VectorExample& ex = v.examples.front();
    Bytes block(len), signature(len);
    const Bytes info = DigestInfoOfSha1(ex.message);
    ASSERT_EQ(Pkcs1PadType1(block.data(), len, info.data(), info.size()), kOk);
    ASSERT_EQ(RsaPrivate(key.get(), block.data(), len, signature.data(), nullptr), kOk);
    EXPECT_EQ(signature, ex.result) << "key " << k + 1;
  }
}

TEST(RsaVectors, OaepCiphertextsDecryptToTheirMessages) {
  const std::vector<VectorKey> keys =
      testing::ReadKeys(testing::RsaVectorPath("pkcs-1v2-1d2-vec/oaep-vect.txt"));
  ASSERT_EQ(keys.size(), 10u);
  size_t checked = 0;
  for (const VectorKey& v : keys) {
    KeyPtr key = BuildKey(v, /*withCrt=*/true);
    const size_t len = key->ModulusBytes();
    for (const testing::VectorExample& ex : v.examples) {
      Bytes em(len), again(len);
      ASSERT_EQ(RsaPrivate(key.get(), ex.result.data(), len, em.data(), nullptr), kOk);
      Bytes message(len);
      size_t messageLen = message.size();
      ASSERT_EQ(OaepDecode(message.data(), &messageLen, em.data(), len), kOk);
      message.resize(messageLen);
      EXPECT_EQ(message, ex.message);
      // The seed is the first 20 bytes after unmasking: EM[1..20] xor MGF1(maskedDB).
      Bytes seedMask(20);
      ASSERT_EQ(Mgf1Sha1(seedMask.data(), 20, em.data() + 21, len - 21), kOk);
      for (size_t i = 0; i < 20; ++i) seedMask[i] ^= em[1 + i];
      EXPECT_EQ(seedMask, ex.seed);
      ASSERT_EQ(RsaPublic(key.get(), em.data(), len, again.data(), nullptr), kOk);
      EXPECT_EQ(again, ex.result);
      ++checked;
    }
  }
  EXPECT_EQ(checked, 60u);
}

class OaepIntermediate : public ::testing::Test {
 protected:
  void SetUp() override {
    path_ = testing::RsaVectorPath("pkcs-1v2-1d2-vec/oaep-int.txt");
    for (const testing::VectorEntry& e : testing::ReadEntries(path_)) {
      values_.push_back(e);
    }
  }
  Bytes Value(const std::string& labelStart) const {
    for (const testing::VectorEntry& e : values_) {
      if (e.label.rfind(labelStart, 0) == 0) return e.bytes;
    }
    ADD_FAILURE() << "no entry " << labelStart;
    return {};
  }
  std::string path_;
  std::vector<testing::VectorEntry> values_;
};

TEST_F(OaepIntermediate, Mgf1MasksMatchThePublishedIntermediates) {
  const Bytes seed = Value("seed");
  const Bytes db = Value("DB = ");
  const Bytes maskedDb = Value("maskedDB");
  ASSERT_EQ(seed.size(), 20u);
  Bytes dbMask(db.size());
  ASSERT_EQ(Mgf1Sha1(dbMask.data(), dbMask.size(), seed.data(), seed.size()), kOk);
  EXPECT_EQ(dbMask, Value("dbMask"));
  Bytes seedMask(20);
  ASSERT_EQ(Mgf1Sha1(seedMask.data(), 20, maskedDb.data(), maskedDb.size()), kOk);
  EXPECT_EQ(seedMask, Value("seedMask"));
  uint8_t labelHash[20];
  ASSERT_EQ(Pkcs1Sha1(labelHash, nullptr, 0, nullptr, 0), kOk);
  EXPECT_EQ(Bytes(labelHash, labelHash + 20), Value("pHash"));
}

TEST_F(OaepIntermediate, PublishedDerKeysImportAndExportByteForByte) {
  const Bytes publicDer = testing::ReadHexBetween(path_, "# RSAPublicKey", "# RSAPrivateKey");
  const Bytes privateDer = testing::ReadHexBetween(path_, "# RSAPrivateKey", "# PrivateKeyInfo");
  ASSERT_EQ(publicDer.size(), 3u + 0x87u);
  ASSERT_EQ(privateDer.size(), 4u + 0x25Bu);

  CRSA* raw = nullptr;
  uint32_t bits = 0;
  ASSERT_EQ(RsaImportKey(&raw, &bits, kRsaFormPrivate, privateDer.data(), privateDer.size()), kOk);
  KeyPtr key(raw);
  EXPECT_EQ(bits, 1024u);
  size_t len = 0;
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, nullptr, &len), kOk);
  Bytes out(len);
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPrivate, out.data(), &len), kOk);
  EXPECT_EQ(out, privateDer);
  len = 0;
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPublic, nullptr, &len), kOk);
  out.assign(len, 0);
  ASSERT_EQ(RsaExportKey(key.get(), kRsaFormPublic, out.data(), &len), kOk);
  EXPECT_EQ(out, publicDer);

  // The CRT decryption of the published ciphertext recovers the published EM (written there
  // without the leading zero byte of the k-byte block).
  const Bytes c = Value("c, the ciphertext");
  Bytes m(c.size());
  ASSERT_EQ(RsaPrivate(key.get(), c.data(), c.size(), m.data(), nullptr), kOk);
  Bytes em = {0x00};
  const Bytes published = Value("EM = maskedSeed");
  em.insert(em.end(), published.begin(), published.end());
  EXPECT_EQ(m, em);
  CRSA* pub = nullptr;
  ASSERT_EQ(RsaImportKey(&pub, &bits, kRsaFormPublic, publicDer.data(), publicDer.size()), kOk);
  KeyPtr publicKey(pub);
  Bytes back(c.size());
  ASSERT_EQ(RsaPublic(publicKey.get(), m.data(), m.size(), back.data(), nullptr), kOk);
  EXPECT_EQ(back, c);
}

}  // namespace
}  // namespace nivra::crypto
