// DigestInfo prefixes compared with the DER bytes printed in PKCS#1 (RFC 8017, section 9.2,
// note 1), and the encoder's length and buffer rules.
#include <gtest/gtest.h>

#include <vector>

#include "crypto/digest_info.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using crypto::DigestAlgorithm;

std::vector<uint8_t> PrefixBytes(DigestAlgorithm algorithm) {
  const auto* prefix = crypto::DigestInfoPrefixOf(algorithm);
  if (prefix == nullptr) return {};
  return std::vector<uint8_t>(prefix->bytes, prefix->bytes + prefix->length);
}

TEST(DigestInfoPrefixes, MatchPkcs1) {
  EXPECT_EQ(PrefixBytes(DigestAlgorithm::kMd2), Hex("3020300c06082a864886f70d020205000410"));
  EXPECT_EQ(PrefixBytes(DigestAlgorithm::kMd5), Hex("3020300c06082a864886f70d020505000410"));
  EXPECT_EQ(PrefixBytes(DigestAlgorithm::kSha1), Hex("3021300906052b0e03021a05000414"));
  EXPECT_EQ(crypto::DigestInfoPrefixOf(DigestAlgorithm::kMd2)->digestLength, 16u);
  EXPECT_EQ(crypto::DigestInfoPrefixOf(DigestAlgorithm::kMd5)->digestLength, 16u);
  EXPECT_EQ(crypto::DigestInfoPrefixOf(DigestAlgorithm::kSha1)->digestLength, 20u);
  EXPECT_EQ(crypto::DigestInfoPrefixOf(static_cast<DigestAlgorithm>(3)), nullptr);
}

TEST(DigestInfoEncode, PrefixThenDigest) {
  std::vector<uint8_t> digest(20);
  for (size_t i = 0; i < digest.size(); ++i) digest[i] = static_cast<uint8_t>(0xA0 + i);
  std::vector<uint8_t> out(40, 0xEE);
  size_t written = 0;
  ASSERT_EQ(crypto::DigestInfoEncode(DigestAlgorithm::kSha1, digest.data(), digest.size(),
                                     out.data(), 35, &written),
            crypto::kOk);
  ASSERT_EQ(written, 35u);
  std::vector<uint8_t> expected = Hex("3021300906052b0e03021a05000414");
  expected.insert(expected.end(), digest.begin(), digest.end());
  EXPECT_EQ(std::vector<uint8_t>(out.begin(), out.begin() + 35), expected);
  EXPECT_EQ(out[35], 0xEE);  // nothing past the encoding
}

TEST(DigestInfoEncode, RejectsBadLengthsAndShortBuffers) {
  const std::vector<uint8_t> digest(20, 1);
  std::vector<uint8_t> out(64, 0);
  size_t written = 99;
  EXPECT_EQ(crypto::DigestInfoEncode(DigestAlgorithm::kSha1, digest.data(), 19, out.data(),
                                     out.size(), &written),
            crypto::kErrInputLength);
  EXPECT_EQ(crypto::DigestInfoEncode(DigestAlgorithm::kMd5, digest.data(), 20, out.data(),
                                     out.size(), &written),
            crypto::kErrInputLength);
  EXPECT_EQ(crypto::DigestInfoEncode(static_cast<DigestAlgorithm>(9), digest.data(), 20,
                                     out.data(), out.size(), &written),
            crypto::kErrInputLength);
  EXPECT_EQ(crypto::DigestInfoEncode(DigestAlgorithm::kMd5, digest.data(), 16, out.data(), 33,
                                     &written),
            crypto::kErrBufferTooSmall);
  EXPECT_EQ(written, 34u);  // the needed length is reported
  EXPECT_EQ(out[0], 0);     // and nothing was written
  EXPECT_EQ(crypto::DigestInfoEncode(DigestAlgorithm::kMd5, nullptr, 16, out.data(), 64, &written),
            crypto::kErrNullArgument);
  EXPECT_EQ(crypto::DigestInfoEncode(DigestAlgorithm::kMd5, digest.data(), 16, nullptr, 64, &written),
            crypto::kErrNullArgument);
  EXPECT_EQ(crypto::DigestInfoEncode(DigestAlgorithm::kMd5, digest.data(), 16, out.data(), 64, nullptr),
            crypto::kErrNullArgument);
}

}  // namespace
}  // namespace nivra::testing
