// The three MAC modes against compositions of OpenSSL's DES primitives, written from the
// standards (ISO/IEC 9797-1 MAC algorithm 3 with padding method 2, CBC-MAC with zero padding,
// and the CMAC construction of NIST SP 800-38B), including where our CMAC deliberately differs:
// its subkey constant 0x87 at 8-byte blocks and its extra padded block after whole blocks.
#include <gtest/gtest.h>
#include <openssl/core_names.h>

#include "cipher_openssl_support.h"
#include "crypto/cipher.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

Bytes MacOf(const Bytes& key, uint16_t mode, const Bytes& msg) {
  ScopedCipher c(key, CipherModeWord(mode, kCipherPadNone));
  const MessageRun run = RunMessage(c.get(), msg, true);
  EXPECT_EQ(run.final, kOk);
  return run.out.size() < 8 ? Bytes() : Bytes(run.out.end() - 8, run.out.end());
}

Bytes Block(const Bytes& msg, size_t index) { return Bytes(msg.begin() + 8 * index, msg.begin() + 8 * index + 8); }

// ISO/IEC 9797-1 padding method 2: 0x80, then zeros to a whole number of blocks.
Bytes PadMethod2(Bytes msg) {
  msg.push_back(0x80);
  msg.resize((msg.size() + 7) / 8 * 8, 0);
  return msg;
}

// MAC algorithm 3 as the standard states it: H_i = E_K1(H_{i-1} xor D_i) for every block but the
// last, then the full cipher on the last: E_K1(D_K2(E_K1(.))) for two keys, TDEA for three.
Bytes IsoMac3Reference(const Bytes& key, const Bytes& msg) {
  const Bytes padded = PadMethod2(msg);
  const size_t blocks = padded.size() / 8;
  Bytes h(8, 0);
  for (size_t i = 0; i + 1 < blocks; ++i) h = EvpBlock(KeyPart(key, 0), XorBytes(h, Block(padded, i)));
  return EvpBlock(key, XorBytes(h, Block(padded, blocks - 1)));
}

// Shift left by one bit; 0x87 goes into the last byte when the top bit was set.
Bytes Double(const Bytes& b) {
  Bytes out(8);
  for (size_t i = 0; i < 8; ++i) out[i] = static_cast<uint8_t>(b[i] << 1 | (i + 1 < 8 ? b[i + 1] >> 7 : 0));
  if (b[0] & 0x80) out[7] ^= 0x87;
  return out;
}

// Our CMAC: subkeys with 0x87; every whole block goes through the chain, and the tail (possibly
// empty) is padded with 0x80 and finished under the second subkey.
Bytes CmacReference(const Bytes& key, const Bytes& msg) {
  const Bytes k2 = Double(Double(EvpBlock(key, Bytes(8, 0))));
  Bytes chain(8, 0);
  const size_t whole = msg.size() / 8;
  for (size_t i = 0; i < whole; ++i) chain = EvpBlock(key, XorBytes(chain, Block(msg, i)));
  return EvpBlock(key, XorBytes(XorBytes(chain, PadMethod2(Bytes(msg.begin() + 8 * whole, msg.end()))), k2));
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

// Keys of one, two and three DES keys; lengths 0 to 19, then random up to 99. CBC-MAC's updates
// hand out the CBC blocks of the whole blocks and its final the tag, so its whole output is the
// CBC encryption of the zero-padded message under the IV (whole blocks still get a zero block).
TEST(CipherMacOpenSsl, TagsMatchTheirStandardConstructions) {
  std::mt19937 rng(31);
  for (int i = 0; i < 90; ++i) {
    const Bytes key = RandomBytes(rng, 8 * (1 + i % 3));
    const Bytes msg = RandomBytes(rng, i < 20 ? static_cast<size_t>(i) : rng() % 100);
    if (key.size() > 8) {
      EXPECT_EQ(MacOf(key, kCipherModeIsoMac3, msg), IsoMac3Reference(key, msg)) << "len " << msg.size();
    }
    EXPECT_EQ(MacOf(key, kCipherModeCmac, msg), CmacReference(key, msg)) << key.size() << " len " << msg.size();
    Bytes padded = msg;
    padded.resize((msg.size() / 8 + 1) * 8, 0);
    const Bytes iv = RandomBytes(rng, 8);
    ScopedCipher c(key, CipherModeWord(kCipherModeCbcMac, kCipherPadNone), iv);
    EXPECT_EQ(RunMessage(c.get(), msg, true).out, EvpMessage(key, true, iv, padded, true, false))
        << "len " << msg.size();
  }
}

// The CMAC reference above anchored to OpenSSL's SP 800-38B CMAC: where the subkey constant makes
// no difference (top bits of L and K1 clear), a message with an incomplete last block gets the
// standard tag; a message of whole blocks never does, because it still receives a padded block
// under K2.
TEST(CipherMacOpenSsl, CmacAgreesWithSp800_38bOnlyForIncompleteLastBlocks) {
  std::mt19937 rng(35);
  int keysUsed = 0;
  for (int attempt = 0; attempt < 400 && keysUsed < 8; ++attempt) {
    const Bytes key = RandomBytes(rng, 24);
    if ((EvpBlock(key, Bytes(8, 0))[0] & 0xC0) != 0) continue;
    ++keysUsed;
    for (size_t len : {1u, 7u, 9u, 23u, 8u, 16u, 40u}) {
      const Bytes msg = RandomBytes(rng, len);
      EXPECT_EQ(MacOf(key, kCipherModeCmac, msg) == OpenSslCmac(key, msg), len % 8 != 0) << "len " << len;
    }
  }
  EXPECT_EQ(keysUsed, 8);
}

}  // namespace
}  // namespace nivra::testing
