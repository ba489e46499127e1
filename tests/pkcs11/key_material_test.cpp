// Key material the back end reads: public exponents from the token, and the private-key blobs it
// refuses. (Blobs it accepts are imported and sign for OpenSSL, and the usual exponent 65537 is
// read back in the exported keys, in the command-line tests.)
#include <gtest/gtest.h>
#include <windows.h>
#include <wincrypt.h>

#include <vector>

#include "pkcs11/private_key_blob.h"
#include "pkcs11/token_keys.h"
#include "software_keys.h"

namespace nivra::pkcs11 {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(PublicExponent, BigEndianUpTo32BitsAndLeadingZerosDoNotCount) {
  const struct {
    Bytes bytes;
    bool accepted;
    uint32_t exponent;  // 7: left alone
  } cases[] = {{{0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x01}, true, 65537},
               {{0xFF, 0xFF, 0xFF, 0xFF}, true, 0xFFFFFFFF},
               {{0x01, 0x00, 0x00, 0x00, 0x01}, false, 7}};
  for (const auto& c : cases) {
    uint32_t e = 7;
    EXPECT_EQ(AccumulatePublicExponent(c.bytes.data(), c.bytes.size(), &e), c.accepted);
    EXPECT_EQ(e, c.exponent);
  }
}

TEST(PrivateKeyBlob, TruncatedOrNotAPrivateRsaBlobIsBadData) {
  const Bytes blob = p11test::SoftwarePrivateKeyBlob();  // 1024 bits: 20 + 9 * 64 bytes
  ASSERT_EQ(blob.size(), 20u + 9u * 64u);
  RsaComponents key;
  ASSERT_EQ(ParsePrivateKeyBlob(blob.data(), static_cast<uint32_t>(blob.size()), &key), 0u);
  const struct {
    size_t at;  // the byte changed, or the length kept when `length` is set
    uint8_t value;
    bool length;
  } cases[] = {{blob.size() - 1, 0, true}, {19, 0, true},    // one byte short; no whole header
               {11, '1', false},                               // "RSA1": a public key's magic
               {0, PUBLICKEYBLOB, false},                      // a public key blob's type
               {13, 0, false}};                                // bit length 0 (low byte is 0)
  for (const auto& c : cases) {
    Bytes changed = blob;
    if (!c.length) changed[c.at] = c.value;
    const uint32_t length = static_cast<uint32_t>(c.length ? c.at : changed.size());
    EXPECT_EQ(ParsePrivateKeyBlob(changed.data(), length, &key), 0x80090005u) << c.at;
  }
  Bytes zeroPrime = blob;
  std::fill(zeroPrime.begin() + 20 + 128, zeroPrime.begin() + 20 + 192, 0);
  EXPECT_EQ(ParsePrivateKeyBlob(zeroPrime.data(), static_cast<uint32_t>(zeroPrime.size()), &key),
            0x80090005u)
      << "a component that is zero cannot be read";
}

}  // namespace
}  // namespace nivra::pkcs11
