// RSA interoperability with OpenSSL: keys generated here pass OpenSSL's key check and re-encode
// identically there, OpenSSL's keys import here (as DER, short private form or component by
// component) and give the same raw results, OpenSSL's OAEP encryption decodes here, and EMSA-PSS
// without salt verifies there. (The other directions meet a peer elsewhere: Wine's provider
// decrypts the provider's own v1.5 and OAEP encryption and judges the blocks its signature check
// reads, OpenSSL encrypts the card service's v1.5 session secrets, and OpenSSL verifies the
// token's v1.5 signatures; the v1.5 and DigestInfo bytes are fixed by the unit tests.)
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

// Keys generated here load into OpenSSL from our DER, pass its key check and re-encode
// identically; OpenSSL's OAEP encryption decodes here, and EMSA-PSS without salt verifies there:
// 1025 bits puts a whole zero byte in front; 1024, 1026 and 1031 mask one, two and seven top bits.
TEST(RsaWithOpenSsl, GeneratedKeysMeetOpenSsl) {
  const std::pair<uint32_t, uint32_t> sizes[] = {{1024, 65537}, {2048, 65537}, {1536, 3},
                                                 {1025, 65537}, {1026, 65537}, {1031, 17}};
  for (const auto& [bits, e] : sizes) {
    const KeyPtr ours = GenerateKey(bits, e);
    const Bytes der = ExportKey(ours.get(), kRsaFormPrivate);
    const unsigned char* p = der.data();
    const RsaPtr theirs(d2i_RSAPrivateKey(nullptr, &p, static_cast<long>(der.size())), RSA_free);
    ASSERT_NE(theirs, nullptr) << bits;
    EXPECT_EQ(RSA_check_key(theirs.get()), 1) << bits << " bits, e = " << e;
    EXPECT_EQ(RSA_bits(theirs.get()), static_cast<int>(bits));
    EXPECT_EQ(BN_get_word(RSA_get0_e(theirs.get())), e);
    EXPECT_EQ(OpenSslDer(theirs.get(), true), der);
    EXPECT_EQ(OpenSslDer(theirs.get(), false), ExportKey(ours.get(), kRsaFormPublic));
    const int k = RSA_size(theirs.get());
    const Bytes secret = Hex("1032547698badcfe0123456789abcdefaa55aa5500112233");
    Bytes cipher(k), em(k), signature(k);
    ASSERT_EQ(RSA_public_encrypt(static_cast<int>(secret.size()), secret.data(), cipher.data(),
                                 theirs.get(), RSA_PKCS1_OAEP_PADDING), k);
    ASSERT_EQ(RsaPrivate(ours.get(), cipher.data(), k, em.data(), nullptr), kOk);
    size_t len = cipher.size();
    ASSERT_EQ(OaepDecode(cipher.data(), &len, em.data(), k), kOk);
    EXPECT_EQ(Bytes(cipher.begin(), cipher.begin() + len), secret) << bits;
    const Bytes mHash = Sha1("pss " + std::to_string(bits));
    ASSERT_EQ(PssEncode(bits, em.data(), mHash.data(), mHash.size()), kOk);
    ASSERT_EQ(RsaPrivate(ours.get(), em.data(), k, signature.data(), nullptr), kOk);
    ASSERT_EQ(RSA_public_decrypt(k, signature.data(), em.data(), theirs.get(), RSA_NO_PADDING), k);
    EXPECT_EQ(RSA_verify_PKCS1_PSS(theirs.get(), mHash.data(), EVP_sha1(), em.data(), 0), 1);
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
    const BIGNUM* parts[8];  // in the order of the component numbers: d, n, e, p, q, dP, dQ, qInv
    RSA_get0_key(rsa.get(), &parts[1], &parts[2], &parts[0]);
    RSA_get0_factors(rsa.get(), &parts[3], &parts[4]);
    RSA_get0_crt_params(rsa.get(), &parts[5], &parts[6], &parts[7]);
    for (uint32_t i = 0; i < 8; ++i) {
      Bytes value(BN_num_bytes(parts[i]));
      BN_bn2bin(parts[i], value.data());
      ASSERT_EQ(RsaSetKey(built.get(), kRsaComponentD + i, value.data(), value.size()), kOk);
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

}  // namespace
}  // namespace nivra::testing
