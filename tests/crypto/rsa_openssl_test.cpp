// RSA interoperability with OpenSSL: keys generated here pass OpenSSL's key check and work there,
// OpenSSL's keys import here, and each side decrypts and verifies what the other produced
// (v1.5 encryption and signatures, OAEP, and EMSA-PSS without salt).
#define OPENSSL_SUPPRESS_DEPRECATED  // the RSA_* key functions are deprecated but present
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/objects.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>

#include <memory>
#include <vector>

#include "crypto/digest_info.h"
#include "crypto/pkcs1.h"
#include "crypto/rsa_key.h"

namespace nivra::crypto {
namespace {

using Bytes = std::vector<uint8_t>;
using RsaPtr = std::unique_ptr<RSA, decltype(&RSA_free)>;

struct KeyDeleter {
  void operator()(CRSA* key) const { RsaDestroyKey(key); }
};
using KeyPtr = std::unique_ptr<CRSA, KeyDeleter>;

Bytes Export(const CRSA* key, uint32_t form) {
  size_t len = 0;
  EXPECT_EQ(RsaExportKey(key, form, nullptr, &len), kOk);
  Bytes der(len);
  EXPECT_EQ(RsaExportKey(key, form, der.data(), &len), kOk);
  return der;
}

RsaPtr OpenSslPrivate(const Bytes& der) {
  const unsigned char* p = der.data();
  return RsaPtr(d2i_RSAPrivateKey(nullptr, &p, static_cast<long>(der.size())), RSA_free);
}

RsaPtr OpenSslPublic(const Bytes& der) {
  const unsigned char* p = der.data();
  return RsaPtr(d2i_RSAPublicKey(nullptr, &p, static_cast<long>(der.size())), RSA_free);
}

Bytes OpenSslDer(RSA* rsa, bool privateKey) {
  unsigned char* der = nullptr;
  int len = privateKey ? i2d_RSAPrivateKey(rsa, &der) : i2d_RSAPublicKey(rsa, &der);
  Bytes out(der, der + (len > 0 ? len : 0));
  OPENSSL_free(der);
  return out;
}

KeyPtr Generate(uint32_t bits, uint32_t e) {
  CRSA* key = nullptr;
  EXPECT_EQ(RsaGenerateKey(&key, bits, e), kOk);
  return KeyPtr(key);
}

KeyPtr Import(uint32_t form, const Bytes& der) {
  CRSA* key = nullptr;
  EXPECT_EQ(RsaImportKey(&key, nullptr, form, der.data(), der.size()), kOk);
  return KeyPtr(key);
}

Bytes Sha1(const Bytes& message) {
  Bytes digest(SHA_DIGEST_LENGTH);
  SHA1(message.data(), message.size(), digest.data());
  return digest;
}

Bytes DigestInfo(const Bytes& digest) {
  Bytes info(64);
  size_t written = 0;
  EXPECT_EQ(DigestInfoEncode(DigestAlgorithm::kSha1, digest.data(), digest.size(), info.data(),
                             info.size(), &written),
            kOk);
  info.resize(written);
  return info;
}

// A key pair known to both sides: generated here, loaded into OpenSSL from our DER.
struct SharedKey {
  KeyPtr ours;
  RsaPtr theirs;
  size_t k;
};

SharedKey ShareGenerated(uint32_t bits, uint32_t e) {
  SharedKey key{Generate(bits, e), RsaPtr(nullptr, RSA_free), 0};
  if (key.ours == nullptr) return key;
  key.theirs = OpenSslPrivate(Export(key.ours.get(), kRsaFormPrivate));
  key.k = key.ours->ModulusBytes();
  return key;
}

TEST(RsaWithOpenSsl, GeneratedKeysPassOpenSslsCheckAndReencodeIdentically) {
  const struct {
    uint32_t bits, e;
  } sizes[] = {{1024, 65537}, {2048, 65537}, {1536, 3}, {1025, 65537}, {1031, 17}};
  for (const auto& s : sizes) {
    KeyPtr key = Generate(s.bits, s.e);
    ASSERT_NE(key, nullptr);
    const Bytes privateDer = Export(key.get(), kRsaFormPrivate);
    RsaPtr rsa = OpenSslPrivate(privateDer);
    ASSERT_NE(rsa, nullptr) << s.bits;
    EXPECT_EQ(RSA_check_key(rsa.get()), 1) << s.bits << " bits, e = " << s.e;
    EXPECT_EQ(RSA_bits(rsa.get()), static_cast<int>(s.bits));
    EXPECT_EQ(BN_get_word(RSA_get0_e(rsa.get())), s.e);
    EXPECT_EQ(OpenSslDer(rsa.get(), true), privateDer);
    const Bytes publicDer = Export(key.get(), kRsaFormPublic);
    RsaPtr pub = OpenSslPublic(publicDer);
    ASSERT_NE(pub, nullptr);
    EXPECT_EQ(BN_cmp(RSA_get0_n(pub.get()), RSA_get0_n(rsa.get())), 0);
    EXPECT_EQ(OpenSslDer(pub.get(), false), publicDer);
  }
}

TEST(RsaWithOpenSsl, OpenSslKeysImportAndComputeTheSameRawResults) {
  for (int bits : {1024, 2048}) {
    RsaPtr rsa(RSA_new(), RSA_free);
    std::unique_ptr<BIGNUM, decltype(&BN_free)> e(BN_new(), BN_free);
    BN_set_word(e.get(), bits == 1024 ? 3 : RSA_F4);
    ASSERT_EQ(RSA_generate_key_ex(rsa.get(), bits, e.get(), nullptr), 1);
    const Bytes privateDer = OpenSslDer(rsa.get(), true);
    KeyPtr key = Import(kRsaFormPrivate, privateDer);
    KeyPtr pub = Import(kRsaFormPublic, OpenSslDer(rsa.get(), false));
    ASSERT_NE(key, nullptr);
    ASSERT_NE(pub, nullptr);
    EXPECT_EQ(Export(key.get(), kRsaFormPrivate), privateDer);
    const size_t k = static_cast<size_t>(RSA_size(rsa.get()));
    Bytes input(k, 0);
    for (size_t i = 1; i < k; ++i) input[i] = static_cast<uint8_t>(i * 37 + 11);
    Bytes ours(k), theirs(k);
    ASSERT_EQ(RsaPrivate(key.get(), input.data(), k, ours.data(), nullptr), kOk);
    ASSERT_EQ(RSA_private_encrypt(static_cast<int>(k), input.data(), theirs.data(), rsa.get(),
                                  RSA_NO_PADDING),
              static_cast<int>(k));
    EXPECT_EQ(ours, theirs) << bits << "-bit private";
    ASSERT_EQ(RsaPublic(pub.get(), input.data(), k, ours.data(), nullptr), kOk);
    ASSERT_EQ(RSA_public_encrypt(static_cast<int>(k), input.data(), theirs.data(), rsa.get(),
                                 RSA_NO_PADDING),
              static_cast<int>(k));
    EXPECT_EQ(ours, theirs) << bits << "-bit public";
  }
}

TEST(RsaWithOpenSsl, EncryptionBothWaysWithBlockType2AndOaep) {
  SharedKey key = ShareGenerated(2048, 65537);
  ASSERT_NE(key.theirs, nullptr);
  const size_t k = key.k;
  const Bytes secret = {0x10, 0x32, 0x54, 0x76, 0x98, 0xBA, 0xDC, 0xFE, 0x01, 0x23, 0x45, 0x67,
                        0x89, 0xAB, 0xCD, 0xEF, 0xAA, 0x55, 0xAA, 0x55, 0x00, 0x11, 0x22, 0x33};
  for (int padding : {RSA_PKCS1_PADDING, RSA_PKCS1_OAEP_PADDING}) {
    // OpenSSL encrypts, we decrypt.
    Bytes cipher(k), block(k);
    ASSERT_EQ(RSA_public_encrypt(static_cast<int>(secret.size()), secret.data(), cipher.data(),
                                 key.theirs.get(), padding),
              static_cast<int>(k));
    ASSERT_EQ(RsaPrivate(key.ours.get(), cipher.data(), k, block.data(), nullptr), kOk);
    Bytes recovered(k);
    if (padding == RSA_PKCS1_PADDING) {
      const uint8_t* data = nullptr;
      size_t len = 0;
      ASSERT_EQ(Pkcs1UnpadType2(block.data(), k, &data, &len), kOk);
      recovered.assign(data, data + len);
    } else {
      size_t len = recovered.size();
      ASSERT_EQ(OaepDecode(recovered.data(), &len, block.data(), k), kOk);
      recovered.resize(len);
    }
    EXPECT_EQ(recovered, secret) << "padding " << padding;

    // We encrypt, OpenSSL decrypts.
    if (padding == RSA_PKCS1_PADDING) {
      ASSERT_EQ(Pkcs1PadType2(block.data(), k, secret.data(), secret.size()), kOk);
    } else {
      ASSERT_EQ(OaepEncode(block.data(), k, secret.data(), secret.size()), kOk);
    }
    ASSERT_EQ(RsaPublic(key.ours.get(), block.data(), k, cipher.data(), nullptr), kOk);
    Bytes plain(k);
    int len = RSA_private_decrypt(static_cast<int>(k), cipher.data(), plain.data(),
                                  key.theirs.get(), padding);
    ASSERT_EQ(len, static_cast<int>(secret.size())) << "padding " << padding;
    plain.resize(static_cast<size_t>(len));
    EXPECT_EQ(plain, secret);
  }
}

TEST(RsaWithOpenSsl, V15SignaturesBothWays) {
  SharedKey key = ShareGenerated(1024, 65537);
  ASSERT_NE(key.theirs, nullptr);
  const size_t k = key.k;
  const Bytes digest = Sha1({'s', 'i', 'g', 'n', ' ', 'm', 'e'});
  const Bytes info = DigestInfo(digest);
  Bytes block(k), signature(k);
  ASSERT_EQ(Pkcs1PadType1(block.data(), k, info.data(), info.size()), kOk);
  ASSERT_EQ(RsaPrivate(key.ours.get(), block.data(), k, signature.data(), nullptr), kOk);
  EXPECT_EQ(RSA_verify(NID_sha1, digest.data(), static_cast<unsigned>(digest.size()),
                       signature.data(), static_cast<unsigned>(k), key.theirs.get()),
            1);
  unsigned int sigLen = 0;
  ASSERT_EQ(RSA_sign(NID_sha1, digest.data(), static_cast<unsigned>(digest.size()),
                     signature.data(), &sigLen, key.theirs.get()),
            1);
  ASSERT_EQ(sigLen, k);
  ASSERT_EQ(RsaPublic(key.ours.get(), signature.data(), k, block.data(), nullptr), kOk);
  const uint8_t* data = nullptr;
  size_t len = 0;
  ASSERT_EQ(Pkcs1UnpadType1(block.data(), k, &data, &len), kOk);
  EXPECT_EQ(Bytes(data, data + len), info);
}

TEST(RsaWithOpenSsl, PssWithoutSaltVerifiesAtEveryTopByteShape) {
  // 1025 bits puts a whole zero byte in front; 1024 and 1031 mask one and seven top bits.
  for (uint32_t bits : {1024u, 1025u, 1026u, 1031u, 2048u}) {
    SharedKey key = ShareGenerated(bits, 65537);
    ASSERT_NE(key.theirs, nullptr);
    const Bytes mHash = Sha1({'p', 's', 's', static_cast<uint8_t>(bits)});
    Bytes em(key.k), signature(key.k), recovered(key.k);
    ASSERT_EQ(PssEncode(bits, em.data(), mHash.data(), mHash.size()), kOk);
    ASSERT_EQ(RsaPrivate(key.ours.get(), em.data(), key.k, signature.data(), nullptr), kOk);
    ASSERT_EQ(RSA_public_decrypt(static_cast<int>(key.k), signature.data(), recovered.data(),
                                 key.theirs.get(), RSA_NO_PADDING),
              static_cast<int>(key.k));
    EXPECT_EQ(RSA_verify_PKCS1_PSS(key.theirs.get(), mHash.data(), EVP_sha1(), recovered.data(), 0),
              1)
        << bits << " bits";
  }
}

TEST(RsaWithOpenSsl, PssSignatureVerifiesThroughEvpWithSaltLengthZero) {
  SharedKey key = ShareGenerated(2048, 65537);
  ASSERT_NE(key.theirs, nullptr);
  const Bytes mHash = Sha1({'e', 'v', 'p'});
  Bytes em(key.k), signature(key.k);
  ASSERT_EQ(PssEncode(2048, em.data(), mHash.data(), mHash.size()), kOk);
  ASSERT_EQ(RsaPrivate(key.ours.get(), em.data(), key.k, signature.data(), nullptr), kOk);
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> pkey(EVP_PKEY_new(), EVP_PKEY_free);
  ASSERT_EQ(EVP_PKEY_set1_RSA(pkey.get(), key.theirs.get()), 1);
  std::unique_ptr<EVP_PKEY_CTX, decltype(&EVP_PKEY_CTX_free)> ctx(
      EVP_PKEY_CTX_new(pkey.get(), nullptr), EVP_PKEY_CTX_free);
  ASSERT_EQ(EVP_PKEY_verify_init(ctx.get()), 1);
  ASSERT_GT(EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PSS_PADDING), 0);
  ASSERT_GT(EVP_PKEY_CTX_set_signature_md(ctx.get(), EVP_sha1()), 0);
  ASSERT_GT(EVP_PKEY_CTX_set_rsa_pss_saltlen(ctx.get(), 0), 0);
  EXPECT_EQ(EVP_PKEY_verify(ctx.get(), signature.data(), signature.size(), mHash.data(),
                            mHash.size()),
            1);
  signature[10] ^= 0x01;
  EXPECT_NE(EVP_PKEY_verify(ctx.get(), signature.data(), signature.size(), mHash.data(),
                            mHash.size()),
            1);
}

}  // namespace
}  // namespace nivra::crypto
