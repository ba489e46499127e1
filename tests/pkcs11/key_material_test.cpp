// Key material the back end reads: public exponents from the token, private-key blobs from
// CryptoAPI.
#include <gtest/gtest.h>
#include <windows.h>
#include <wincrypt.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <vector>

#include "pkcs11/private_key_blob.h"
#include "pkcs11/token_keys.h"

namespace nivra::pkcs11 {
namespace {

using Bytes = std::vector<uint8_t>;

TEST(PublicExponent, CommonValuesAccumulateBigEndian) {
  const uint8_t f4[] = {0x01, 0x00, 0x01};
  uint32_t e = 0;
  ASSERT_TRUE(AccumulatePublicExponent(f4, sizeof(f4), &e));
  EXPECT_EQ(e, 65537u);
  const uint8_t three[] = {0x03};
  ASSERT_TRUE(AccumulatePublicExponent(three, sizeof(three), &e));
  EXPECT_EQ(e, 3u);
  const uint8_t padded[] = {0x00, 0x00, 0x00, 0x00, 0x01, 0x00, 0x01};
  ASSERT_TRUE(AccumulatePublicExponent(padded, sizeof(padded), &e));
  EXPECT_EQ(e, 65537u) << "leading zero bytes do not count";
  const uint8_t widest[] = {0xFF, 0xFF, 0xFF, 0xFF};
  ASSERT_TRUE(AccumulatePublicExponent(widest, sizeof(widest), &e));
  EXPECT_EQ(e, 0xFFFFFFFFu);
}

TEST(PublicExponent, FiveByteValueAbove32BitsIsRefused) {
  const uint8_t tooWide[] = {0x01, 0x00, 0x00, 0x00, 0x01};
  uint32_t e = 7;
  EXPECT_FALSE(AccumulatePublicExponent(tooWide, sizeof(tooWide), &e));
  EXPECT_EQ(e, 7u) << "the output is left alone";
}

// A 512-bit key from the cryptography project's test vectors (PKCS#1 RSAPrivateKey, DER).
Bytes ReadVectorKey() {
  std::ifstream in(
      "Z:/usr/lib/python3/dist-packages/cryptography_vectors/asymmetric/DER_Serialization/"
      "testrsa.der",
      std::ios::binary);
  return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// The nine INTEGERs of an RSAPrivateKey, big-endian, leading zero bytes removed.
std::vector<Bytes> DerIntegers(const Bytes& der) {
  std::vector<Bytes> values;
  size_t at = 4;  // SEQUENCE with a two-byte long length
  while (at < der.size() && der[at] == 0x02) {
    size_t length = der[at + 1];
    size_t header = 2;
    if (length & 0x80) {
      const size_t octets = length & 0x7F;
      length = 0;
      for (size_t i = 0; i < octets; ++i) length = (length << 8) | der[at + 2 + i];
      header += octets;
    }
    Bytes value(der.begin() + at + header, der.begin() + at + header + length);
    value.erase(value.begin(), std::find_if(value.begin(), value.end(), [](uint8_t b) { return b; }));
    values.push_back(value);
    at += header + length;
  }
  return values;
}

// Little-endian, zero-extended to `size` bytes.
void AppendLittleEndian(Bytes* blob, const Bytes& value, size_t size) {
  Bytes part(value.rbegin(), value.rend());
  part.resize(size, 0);
  blob->insert(blob->end(), part.begin(), part.end());
}

class PrivateKeyBlob : public ::testing::Test {
 protected:
  void SetUp() override {
    const Bytes der = ReadVectorKey();
    ASSERT_EQ(der.size(), 320u) << "test vector missing";
    ints = DerIntegers(der);
    ASSERT_EQ(ints.size(), 9u);
    n = ints[1];
    ASSERT_EQ(n.size(), 64u);
    // BLOBHEADER: PRIVATEKEYBLOB, version 2, reserved, CALG_RSA_KEYX; RSAPUBKEY "RSA2", 512, e.
    blob = {0x07, 0x02, 0x00, 0x00, 0x00, 0xA4, 0x00, 0x00, 'R', 'S', 'A', '2',
            0x00, 0x02, 0x00, 0x00, 0x01, 0x00, 0x01, 0x00};
    AppendLittleEndian(&blob, n, 64);
    AppendLittleEndian(&blob, ints[4], 32);  // p
    AppendLittleEndian(&blob, ints[5], 32);  // q
    AppendLittleEndian(&blob, ints[6], 32);  // d mod (p - 1)
    AppendLittleEndian(&blob, ints[7], 32);  // d mod (q - 1)
    AppendLittleEndian(&blob, ints[8], 32);  // q^-1 mod p
    AppendLittleEndian(&blob, ints[3], 64);  // d
    ASSERT_EQ(blob.size(), 20u + 9u * 32u);
  }
  std::vector<Bytes> ints;
  Bytes n;
  Bytes blob;
};

TEST_F(PrivateKeyBlob, TheBlobBuiltHereIsOneThatWinesProviderAccepts) {
  HCRYPTPROV prov = 0;
  ASSERT_TRUE(CryptAcquireContextW(&prov, nullptr, MS_STRONG_PROV_W, PROV_RSA_FULL,
                                   CRYPT_VERIFYCONTEXT));
  HCRYPTKEY key = 0;
  EXPECT_TRUE(CryptImportKey(prov, blob.data(), static_cast<DWORD>(blob.size()), 0, 0, &key))
      << std::hex << GetLastError();
  if (key != 0) CryptDestroyKey(key);
  CryptReleaseContext(prov, 0);
}

TEST_F(PrivateKeyBlob, ComponentsComeBackBigEndianWithoutLeadingZeros) {
  RsaComponents key;
  ASSERT_EQ(ParsePrivateKeyBlob(blob.data(), static_cast<uint32_t>(blob.size()), &key), 0u);
  EXPECT_EQ(key.modulus, ints[1]);
  EXPECT_EQ(key.publicExponent, (Bytes{0x01, 0x00, 0x01}));
  EXPECT_EQ(key.privateExponent, ints[3]);
  EXPECT_EQ(key.prime1, ints[4]);
  EXPECT_EQ(key.prime2, ints[5]);
  EXPECT_EQ(key.exponent1, ints[6]);
  EXPECT_EQ(key.exponent2, ints[7]);
  EXPECT_EQ(key.coefficient, ints[8]);
}

TEST_F(PrivateKeyBlob, OneByteShortIsBadData) {
  RsaComponents key;
  EXPECT_EQ(ParsePrivateKeyBlob(blob.data(), static_cast<uint32_t>(blob.size() - 1), &key),
            0x80090005u);
  EXPECT_EQ(ParsePrivateKeyBlob(blob.data(), 19, &key), 0x80090005u);
}

TEST_F(PrivateKeyBlob, PublicKeyMagicOrZeroBitLengthIsBadData) {
  RsaComponents key;
  Bytes wrongMagic = blob;
  wrongMagic[11] = '1';  // "RSA1": a public key blob's magic
  EXPECT_EQ(ParsePrivateKeyBlob(wrongMagic.data(), static_cast<uint32_t>(wrongMagic.size()), &key),
            0x80090005u);
  Bytes noBits = blob;
  noBits[12] = noBits[13] = 0;
  EXPECT_EQ(ParsePrivateKeyBlob(noBits.data(), static_cast<uint32_t>(noBits.size()), &key),
            0x80090005u);
  Bytes publicType = blob;
  publicType[0] = PUBLICKEYBLOB;
  EXPECT_EQ(ParsePrivateKeyBlob(publicType.data(), static_cast<uint32_t>(publicType.size()), &key),
            0x80090005u);
}

TEST_F(PrivateKeyBlob, ZeroComponentCannotBeReadAndIsBadData) {
  Bytes zeroPrime = blob;
  std::fill(zeroPrime.begin() + 20 + 64, zeroPrime.begin() + 20 + 96, 0);
  RsaComponents key;
  EXPECT_EQ(ParsePrivateKeyBlob(zeroPrime.data(), static_cast<uint32_t>(zeroPrime.size()), &key),
            0x80090005u);
}

}  // namespace
}  // namespace nivra::pkcs11
