// RSA interoperability with OpenSSL: keys generated here pass OpenSSL's key check and re-encode
// identically there, OpenSSL's keys import here (as DER, short private form or component by
// component) and give the same raw results, OpenSSL's OAEP encryption decodes here, and EMSA-PSS
// without salt verifies there.
#define OPENSSL_SUPPRESS_DEPRECATED  // the RSA_* key functions are deprecated but present
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/sha.h>

#include <utility>

#include "crypto/pkcs1.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;
using RsaPtr = std::unique_ptr<RSA, decltype(&RSA_free)>;

Bytes OpenSslDer(RSA* rsa, bool privateKey) {
  unsigned char* der = nullptr;
  const int len = privateKey ? i2d_RSAPrivateKey(rsa, &der) : i2d_RSAPublicKey(rsa, &der);
  Bytes out(der, der + (len > 0 ? len : 0));
  OPENSSL_free(der);
  return out;
}

Bytes Sha1(const std::string& message) {
  Bytes digest(SHA_DIGEST_LENGTH);
  SHA1(reinterpret_cast<const uint8_t*>(message.data()), message.size(), digest.data());
  return digest;
}

// A key generated here and loaded into OpenSSL from our DER.
struct SharedKey {
  SharedKey(uint32_t bits, uint32_t e) : ours(GenerateKey(bits, e)) {
    if (ours == nullptr) return;
    der = ExportKey(ours.get(), kRsaFormPrivate);
    const unsigned char* p = der.data();
    theirs.reset(d2i_RSAPrivateKey(nullptr, &p, static_cast<long>(der.size())));
    k = ours->ModulusBytes();
  }
  KeyPtr ours;
  Bytes der;
  RsaPtr theirs{nullptr, RSA_free};
  size_t k = 0;
};

TEST(RsaWithOpenSsl, GeneratedKeysPassOpenSslsCheckAndReencodeIdentically) {
  const struct {
    uint32_t bits, e;
  } sizes[] = {{1024, 65537}, {2048, 65537}, {1536, 3}, {1025, 65537}, {1031, 17}};
  for (const auto& s : sizes) {
    const SharedKey key(s.bits, s.e);
    ASSERT_NE(key.theirs, nullptr) << s.bits;
    EXPECT_EQ(RSA_check_key(key.theirs.get()), 1) << s.bits << " bits, e = " << s.e;
    EXPECT_EQ(RSA_bits(key.theirs.get()), static_cast<int>(s.bits));
    EXPECT_EQ(BN_get_word(RSA_get0_e(key.theirs.get())), s.e);
    EXPECT_EQ(OpenSslDer(key.theirs.get(), true), key.der);
    EXPECT_EQ(OpenSslDer(key.theirs.get(), false), ExportKey(key.ours.get(), kRsaFormPublic));
  }
}

// OpenSSL's keys arrive three ways: the full DER, the short private form (d alone, no CRT) and
// component by component through RsaSetKey, as a caller holding the raw integers would load them.
// All give OpenSSL's raw results; the DER re-exports byte for byte (two-octet lengths included).
TEST(RsaWithOpenSsl, OpenSslKeysImportAndComputeTheSameRawResults) {
  for (int bits : {1024, 1031, 2048}) {
    RsaPtr rsa(RSA_new(), RSA_free);
    std::unique_ptr<BIGNUM, decltype(&BN_free)> e(BN_new(), BN_free);
    BN_set_word(e.get(), bits == 1024 ? 3 : RSA_F4);
    ASSERT_EQ(RSA_generate_key_ex(rsa.get(), bits, e.get(), nullptr), 1);
    const Bytes privateDer = OpenSslDer(rsa.get(), true);
    const KeyPtr key = ImportKey(kRsaFormPrivate, privateDer);
    const KeyPtr pub = ImportKey(kRsaFormPublic, OpenSslDer(rsa.get(), false));
    const KeyPtr shortKey = ImportKey(kRsaFormShortPrivate, ExportKey(key.get(), kRsaFormShortPrivate));
    CRSA* raw = nullptr;
    ASSERT_EQ(RsaCreateKey(&raw), kOk);
    const KeyPtr built(raw);
    const std::pair<uint32_t, const BIGNUM*> parts[] = {
        {kRsaComponentN, RSA_get0_n(rsa.get())},       {kRsaComponentE, RSA_get0_e(rsa.get())},
        {kRsaComponentD, RSA_get0_d(rsa.get())},       {kRsaComponentP, RSA_get0_p(rsa.get())},
        {kRsaComponentQ, RSA_get0_q(rsa.get())},       {kRsaComponentDP, RSA_get0_dmp1(rsa.get())},
        {kRsaComponentDQ, RSA_get0_dmq1(rsa.get())}, {kRsaComponentQInv, RSA_get0_iqmp(rsa.get())}};
    for (const auto& [id, bn] : parts) {
      Bytes value(BN_num_bytes(bn));
      BN_bn2bin(bn, value.data());
      ASSERT_EQ(RsaSetKey(built.get(), id, value.data(), value.size()), kOk);
    }
    ASSERT_TRUE(key != nullptr && pub != nullptr && shortKey != nullptr);
    EXPECT_EQ(ExportKey(key.get(), kRsaFormPrivate), privateDer);
    EXPECT_EQ(ExportKey(built.get(), kRsaFormPrivate), privateDer);
    const int k = RSA_size(rsa.get());
    Bytes input(k, 0), ours(k), theirs(k);
    for (int i = 1; i < k; ++i) input[i] = static_cast<uint8_t>(i * 37 + 11);
    ASSERT_EQ(RSA_private_encrypt(k, input.data(), theirs.data(), rsa.get(), RSA_NO_PADDING), k);
    for (const CRSA* privateKey : {key.get(), shortKey.get(), built.get()}) {
      ASSERT_EQ(RsaPrivate(privateKey, input.data(), k, ours.data(), nullptr), kOk);
      EXPECT_EQ(ours, theirs) << bits << "-bit private, CRT " << int{privateKey->hasCrt};
    }
    ASSERT_EQ(RsaPublic(pub.get(), input.data(), k, ours.data(), nullptr), kOk);
    ASSERT_EQ(RSA_public_encrypt(k, input.data(), theirs.data(), rsa.get(), RSA_NO_PADDING), k);
    EXPECT_EQ(ours, theirs) << bits << "-bit public";
  }
}

// OpenSSL's OAEP encryption decodes here. (The other directions meet a peer elsewhere: Wine's
// provider decrypts the provider's own v1.5 and OAEP encryption and judges the blocks its
// signature check reads, OpenSSL encrypts the card service's v1.5 session secrets, and OpenSSL
// verifies the token's v1.5 signatures; the v1.5 and DigestInfo bytes are fixed by the unit tests.)
TEST(RsaWithOpenSsl, OpenSslOaepEncryptionDecodes) {
  const SharedKey key(2048, 65537);
  ASSERT_NE(key.theirs, nullptr);
  const int k = static_cast<int>(key.k);
  const Bytes secret = Hex("1032547698badcfe0123456789abcdefaa55aa5500112233");
  Bytes cipher(k), block(k), recovered(k);
  ASSERT_EQ(RSA_public_encrypt(static_cast<int>(secret.size()), secret.data(), cipher.data(), key.theirs.get(),
                               RSA_PKCS1_OAEP_PADDING),
            k);
  ASSERT_EQ(RsaPrivate(key.ours.get(), cipher.data(), k, block.data(), nullptr), kOk);
  size_t len = recovered.size();
  ASSERT_EQ(OaepDecode(recovered.data(), &len, block.data(), k), kOk);
  EXPECT_EQ(Bytes(recovered.begin(), recovered.begin() + len), secret);
}

// 1025 bits puts a whole zero byte in front; 1024, 1026 and 1031 mask one, two and seven top bits.
TEST(RsaWithOpenSsl, PssWithoutSaltVerifiesAtEveryTopByteShape) {
  for (uint32_t bits : {1024u, 1025u, 1026u, 1031u, 2048u}) {
    const SharedKey key(bits, 65537);
    ASSERT_NE(key.theirs, nullptr);
    const Bytes mHash = Sha1("pss " + std::to_string(bits));
    Bytes em(key.k), signature(key.k), recovered(key.k);
    ASSERT_EQ(PssEncode(bits, em.data(), mHash.data(), mHash.size()), kOk);
    ASSERT_EQ(RsaPrivate(key.ours.get(), em.data(), key.k, signature.data(), nullptr), kOk);
    const int k = static_cast<int>(key.k);
    ASSERT_EQ(RSA_public_decrypt(k, signature.data(), recovered.data(), key.theirs.get(), RSA_NO_PADDING), k);
    EXPECT_EQ(RSA_verify_PKCS1_PSS(key.theirs.get(), mHash.data(), EVP_sha1(), recovered.data(), 0), 1) << bits;
  }
}

}  // namespace
}  // namespace nivra::testing
