// The three MAC modes against compositions of OpenSSL's DES primitives, written from the
// standards (ISO/IEC 9797-1 MAC algorithm 3 with padding method 2, CBC-MAC with zero padding,
// and the CMAC construction of NIST SP 800-38B), including where our MACs deliberately differ:
// CMAC's subkey constant 0x87 at 8-byte blocks and its extra padded block after whole blocks.
#include <gtest/gtest.h>
#include <openssl/core_names.h>

#include "cipher_openssl_support.h"
#include "crypto/cipher.h"
#include "nist_rsp.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

Bytes MacOf(const Bytes& key, uint16_t mode, const Bytes& msg, const Bytes& iv = Bytes(8, 0)) {
  ScopedCipher c(key, CipherModeWord(mode, kCipherPadNone), iv);
  EXPECT_EQ(c.status(), kOk);
  const MessageRun run = RunMessage(c.get(), msg, true);
  EXPECT_EQ(run.update, kOk);
  EXPECT_EQ(run.final, kOk);
  if (run.out.size() < 8) return {};
  return Bytes(run.out.end() - 8, run.out.end());
}

Bytes Block(const Bytes& msg, size_t index) {
  return Bytes(msg.begin() + 8 * index, msg.begin() + 8 * index + 8);
}

// ISO/IEC 9797-1 padding method 2: 0x80, then zeros to a whole number of blocks.
Bytes PadMethod2(Bytes msg) {
  msg.push_back(0x80);
  while (msg.size() % 8 != 0) msg.push_back(0);
  return msg;
}

// MAC algorithm 3 as the standard states it: H_i = E_K1(H_{i-1} xor D_i) over every block, then
// G = E_K1(D_K2(H_q)).
Bytes IsoMac3Reference(const Bytes& key, const Bytes& msg) {
  const OpenSslDes des(key);
  const Bytes padded = PadMethod2(msg);
  Bytes h(8, 0);
  for (size_t i = 0; i < padded.size() / 8; ++i) h = des.Single(0, XorBytes(h, Block(padded, i)), true);
  return des.Single(0, des.Single(1, h, false), true);
}

// Shift left by one bit; the constant goes into the last byte when the top bit was set.
Bytes Double(const Bytes& b, uint8_t constant) {
  Bytes out(8);
  for (size_t i = 0; i < 8; ++i) out[i] = static_cast<uint8_t>(b[i] << 1 | (i + 1 < 8 ? b[i + 1] >> 7 : 0));
  if (b[0] & 0x80) out[7] ^= constant;
  return out;
}

// Our CMAC: subkeys with 0x87; every whole block goes through the chain, and the tail (possibly
// empty) is padded with 0x80 and finished under the second subkey.
Bytes CmacReference(const Bytes& key, const Bytes& msg) {
  const OpenSslDes des(key);
  const Bytes k1 = Double(des.Full(Bytes(8, 0), true), 0x87);
  const Bytes k2 = Double(k1, 0x87);
  Bytes chain(8, 0);
  const size_t whole = msg.size() / 8;
  for (size_t i = 0; i < whole; ++i) chain = des.Full(XorBytes(chain, Block(msg, i)), true);
  const Bytes last = PadMethod2(Bytes(msg.begin() + 8 * whole, msg.end()));
  return des.Full(XorBytes(XorBytes(chain, last), k2), true);
}

// CMAC of NIST SP 800-38B for three-key TDEA, computed by OpenSSL.
Bytes OpenSslCmac(const Bytes& key24, const Bytes& msg) {
  EVP_MAC* mac = EVP_MAC_fetch(nullptr, "CMAC", nullptr);
  EVP_MAC_CTX* ctx = mac ? EVP_MAC_CTX_new(mac) : nullptr;
  char cipherName[] = "DES-EDE3-CBC";
  OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_CIPHER, cipherName, 0),
                         OSSL_PARAM_construct_end()};
  Bytes out(8);
  size_t len = 0;
  const bool ok = ctx != nullptr && EVP_MAC_init(ctx, key24.data(), key24.size(), params) == 1 &&
                  EVP_MAC_update(ctx, msg.data(), msg.size()) == 1 &&
                  EVP_MAC_final(ctx, out.data(), &len, out.size()) == 1 && len == 8;
  EVP_MAC_CTX_free(ctx);
  EVP_MAC_free(mac);
  EXPECT_TRUE(ok);
  return out;
}

TEST(CipherMacOpenSsl, IsoMac3MatchesTheStandardWithTwoKeys) {
  std::mt19937 rng(31);
  for (int i = 0; i < 60; ++i) {
    const Bytes key = RandomBytes(rng, 16);
    const Bytes msg = RandomBytes(rng, i < 20 ? static_cast<size_t>(i) : rng() % 100);
    EXPECT_EQ(MacOf(key, kCipherModeIsoMac3, msg), IsoMac3Reference(key, msg)) << "len " << msg.size();
  }
}

TEST(CipherMacOpenSsl, IsoMac3WithThreeKeysFinishesWithTheFullCipher) {
  std::mt19937 rng(32);
  for (int i = 0; i < 20; ++i) {
    const Bytes key = RandomBytes(rng, 24);
    const Bytes msg = RandomBytes(rng, rng() % 50);
    const OpenSslDes des(key);
    const Bytes padded = PadMethod2(msg);
    Bytes h(8, 0);
    const size_t blocks = padded.size() / 8;
    for (size_t b = 0; b + 1 < blocks; ++b) h = des.Single(0, XorBytes(h, Block(padded, b)), true);
    const Bytes expected = des.Full(XorBytes(h, Block(padded, blocks - 1)), true);
    EXPECT_EQ(MacOf(key, kCipherModeIsoMac3, msg), expected) << "len " << msg.size();
  }
}

TEST(CipherMacOpenSsl, CbcMacIsTheLastCbcBlockOfTheZeroPaddedMessage) {
  std::mt19937 rng(33);
  for (int i = 0; i < 60; ++i) {
    const Bytes key = RandomBytes(rng, 8 * (1 + i % 3));
    const Bytes iv = RandomBytes(rng, 8);
    const Bytes msg = RandomBytes(rng, i < 20 ? static_cast<size_t>(i) : rng() % 100);
    Bytes padded = msg;
    padded.resize((msg.size() / 8 + 1) * 8, 0);  // whole blocks still get a zero block
    const Bytes cbc = EvpMessage(key, true, iv, padded, true, false);
    ASSERT_EQ(cbc.size(), padded.size());
    ScopedCipher c(key, CipherModeWord(kCipherModeCbcMac, kCipherPadNone), iv);
    // The updates hand out the CBC blocks of the whole blocks, the final the tag.
    EXPECT_EQ(RunMessage(c.get(), msg, true).out, cbc) << "len " << msg.size();
  }
}

TEST(CipherMacOpenSsl, CmacMatchesItsConstructionOverOpenSslDes) {
  std::mt19937 rng(34);
  for (int i = 0; i < 60; ++i) {
    const Bytes key = RandomBytes(rng, 8 * (1 + i % 3));
    const Bytes msg = RandomBytes(rng, i < 20 ? static_cast<size_t>(i) : rng() % 100);
    EXPECT_EQ(MacOf(key, kCipherModeCmac, msg), CmacReference(key, msg))
        << "keyLen " << key.size() << " len " << msg.size();
  }
}

// Where the subkey constant makes no difference (top bits of L and K1 clear), a message with an
// incomplete last block gets the standard CMAC; a message of whole blocks never does, because it
// still receives a padded block under K2.
TEST(CipherMacOpenSsl, CmacAgreesWithSp800_38bOnlyForIncompleteLastBlocks) {
  std::mt19937 rng(35);
  int keysUsed = 0;
  for (int attempt = 0; attempt < 400 && keysUsed < 8; ++attempt) {
    const Bytes key = RandomBytes(rng, 24);
    const OpenSslDes des(key);
    const Bytes l = des.Full(Bytes(8, 0), true);
    if ((l[0] & 0xC0) != 0) continue;
    ++keysUsed;
    for (size_t len : {1u, 7u, 9u, 23u}) {
      const Bytes msg = RandomBytes(rng, len);
      EXPECT_EQ(MacOf(key, kCipherModeCmac, msg), OpenSslCmac(key, msg)) << "len " << len;
    }
    for (size_t len : {8u, 16u, 40u}) {
      const Bytes msg = RandomBytes(rng, len);
      EXPECT_NE(MacOf(key, kCipherModeCmac, msg), OpenSslCmac(key, msg)) << "len " << len;
    }
  }
  EXPECT_EQ(keysUsed, 8);
}

// With the top bit of L set, the 0x87 constant (not SP 800-38B's 0x1B for 64-bit blocks) decides
// the tag even for an incomplete block.
TEST(CipherMacOpenSsl, CmacUses0x87AtEightByteBlocks) {
  std::mt19937 rng(36);
  int keysUsed = 0;
  for (int attempt = 0; attempt < 400 && keysUsed < 4; ++attempt) {
    const Bytes key = RandomBytes(rng, 24);
    const Bytes l = OpenSslDes(key).Full(Bytes(8, 0), true);
    if ((l[0] & 0x80) == 0) continue;
    ++keysUsed;
    const Bytes msg = RandomBytes(rng, 5);
    EXPECT_NE(MacOf(key, kCipherModeCmac, msg), OpenSslCmac(key, msg));
    EXPECT_EQ(MacOf(key, kCipherModeCmac, msg), CmacReference(key, msg));
  }
  EXPECT_EQ(keysUsed, 4);
}

}  // namespace
}  // namespace nivra::testing
