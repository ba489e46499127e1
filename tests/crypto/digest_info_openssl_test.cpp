// DigestInfo encodings compared with the DER that OpenSSL writes for X509_SIG structures.
#include <gtest/gtest.h>
#include <openssl/objects.h>
#include <openssl/x509.h>

#include <vector>

#include "crypto/digest_info.h"

namespace nivra::testing {
namespace {

std::vector<uint8_t> OpenSslDigestInfo(int nid, const std::vector<uint8_t>& digest) {
  X509_SIG* sig = X509_SIG_new();
  X509_ALGOR* algorithm = nullptr;
  ASN1_OCTET_STRING* octets = nullptr;
  X509_SIG_getm(sig, &algorithm, &octets);
  X509_ALGOR_set0(algorithm, OBJ_nid2obj(nid), V_ASN1_NULL, nullptr);
  ASN1_OCTET_STRING_set(octets, digest.data(), static_cast<int>(digest.size()));
  unsigned char* der = nullptr;
  const int length = i2d_X509_SIG(sig, &der);
  std::vector<uint8_t> out;
  if (length > 0) out.assign(der, der + length);
  OPENSSL_free(der);
  X509_SIG_free(sig);
  return out;
}

TEST(DigestInfoAgainstOpenSsl, SameDerForEachAlgorithm) {
  const struct {
    crypto::DigestAlgorithm algorithm;
    int nid;
    size_t digestLength;
  } cases[] = {{crypto::DigestAlgorithm::kMd2, NID_md2, 16},
               {crypto::DigestAlgorithm::kMd5, NID_md5, 16},
               {crypto::DigestAlgorithm::kSha1, NID_sha1, 20}};
  for (const auto& c : cases) {
    std::vector<uint8_t> digest(c.digestLength);
    for (size_t i = 0; i < digest.size(); ++i) digest[i] = static_cast<uint8_t>(i * 11 + c.nid);
    std::vector<uint8_t> ours(64);
    size_t written = 0;
    ASSERT_EQ(crypto::DigestInfoEncode(c.algorithm, digest.data(), digest.size(), ours.data(),
                                       ours.size(), &written),
              crypto::kOk);
    ours.resize(written);
    EXPECT_EQ(ours, OpenSslDigestInfo(c.nid, digest)) << "nid " << c.nid;
  }
}

}  // namespace
}  // namespace nivra::testing
