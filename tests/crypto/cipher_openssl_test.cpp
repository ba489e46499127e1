// DES, its modes and its MACs against OpenSSL: ECB, CBC and CTR on random keys (DES, two-key and
// three-key TDEA), random IVs and random lengths, with PKCS#7 and without padding, in both
// directions and in random pieces; the weak-key verdicts (the two-key TDEA shortcut of
// the card service's frames meets OpenSSL in the service's session frame tests);
// and the three MAC modes against compositions of OpenSSL's DES primitives, written from the
// standards (ISO/IEC 9797-1 MAC algorithm 3 with padding method 2, CBC-MAC with zero padding, and
// the CMAC construction of NIST SP 800-38B), including where our CMAC deliberately differs: its
// subkey constant 0x87 at 8-byte blocks and its extra padded block after whole blocks.
#define OPENSSL_SUPPRESS_DEPRECATED  // DES_is_weak_key
#include <gtest/gtest.h>
#include <openssl/des.h>
#include <openssl/evp.h>
#include <openssl/provider.h>

#include "crypto/cipher.h"
#include "crypto/des.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;

// One whole message through OpenSSL; PKCS#7 padding when pkcs7, none otherwise. The key length
// (8, 16 or 24) chooses DES, two-key or three-key TDEA; single DES lives in OpenSSL's legacy
// provider, which is loaded (with the default provider) on first use and unloaded at exit.
inline Bytes EvpMessage(const Bytes& key, bool cbc, const Bytes& iv, const Bytes& in, bool encrypt, bool pkcs7) {
  struct Providers {
    OSSL_PROVIDER* legacy = OSSL_PROVIDER_load(nullptr, "legacy");
    OSSL_PROVIDER* standard = OSSL_PROVIDER_load(nullptr, "default");
    ~Providers() {
      if (legacy != nullptr) OSSL_PROVIDER_unload(legacy);
      if (standard != nullptr) OSSL_PROVIDER_unload(standard);
    }
  };
  static const Providers providers;
  EXPECT_TRUE(providers.legacy != nullptr && providers.standard != nullptr);
  const EVP_CIPHER* cipher = key.size() == 8    ? (cbc ? EVP_des_cbc() : EVP_des_ecb())
                             : key.size() == 16 ? (cbc ? EVP_des_ede_cbc() : EVP_des_ede_ecb())
                                                : (cbc ? EVP_des_ede3_cbc() : EVP_des_ede3_ecb());
  EVP_CIPHER_CTX* ctx = EVP_CIPHER_CTX_new();
  Bytes out(in.size() + 16);
  int n = 0, m = 0;
  const bool ok = ctx != nullptr &&
                  EVP_CipherInit_ex(ctx, cipher, nullptr, key.data(), cbc ? iv.data() : nullptr, encrypt) == 1 &&
                  EVP_CIPHER_CTX_set_padding(ctx, pkcs7) == 1 &&
                  EVP_CipherUpdate(ctx, out.data(), &n, in.data(), static_cast<int>(in.size())) == 1 &&
                  EVP_CipherFinal_ex(ctx, out.data() + n, &m) == 1;
  EVP_CIPHER_CTX_free(ctx);
  EXPECT_TRUE(ok) << "OpenSSL refused the message";
  out.resize(ok ? static_cast<size_t>(n + m) : 0);
  return out;
}

// One block through OpenSSL's DES, two-key or three-key TDEA (by the key's length) in ECB.
inline Bytes EvpBlock(const Bytes& key, const Bytes& block, bool encrypt = true) {
  return EvpMessage(key, false, {}, block, encrypt, false);
}

// Key i (0 to 2) of a multi-key TDEA key.
inline Bytes KeyPart(const Bytes& key, size_t i) { return Bytes(key.begin() + 8 * i, key.begin() + 8 * i + 8); }

TEST(CipherOpenSsl, EcbAndCbcMatchOpenSslOnRandomInputs) {
  std::mt19937 rng(0x5EED);
  for (int i = 0; i < 300; ++i) {
    const Bytes key = RandomBytes(rng, 8 * (1 + rng() % 3)), iv = RandomBytes(rng, 8);
    const bool cbc = rng() % 2 == 0, pkcs7 = rng() % 2 == 0;
    const size_t len = rng() % (i < 299 ? 200 : 1 << 20);  // the last message about a megabyte
    const Bytes plain = RandomBytes(rng, pkcs7 ? len : len / 8 * 8);
    const uint16_t padding = pkcs7 ? kCipherPadPkcs7 : kCipherPadNone;
    ScopedCipher c(key, CipherModeWord(cbc ? kCipherModeCbc : kCipherModeEcb, padding), iv);
    ASSERT_EQ(c.status(), kOk);
    const Bytes expected = EvpMessage(key, cbc, iv, plain, true, pkcs7);
    const MessageRun enc = RunMessage(c.get(), plain, true, {rng() % 20, 4095, 7});
    EXPECT_EQ(enc.final, kOk);
    EXPECT_EQ(enc.out, expected) << "trial " << i << " keyLen " << key.size() << " cbc " << cbc << " pkcs7 " << pkcs7
                                 << " len " << plain.size();
    const MessageRun dec = RunMessage(c.get(), expected, false, {rng() % 20});
    EXPECT_EQ(dec.final, kOk);
    EXPECT_EQ(dec.out, plain) << "trial " << i;
  }
}

TEST(CipherOpenSsl, CtrMatchesACounterEncryptedWithOpenSsl) {
  std::mt19937 rng(99);
  for (int i = 0; i < 40; ++i) {
    const Bytes key = RandomBytes(rng, 8 * (1 + rng() % 3));
    Bytes counter = RandomBytes(rng, 8);
    if (i % 4 == 0) std::fill(counter.begin() + 5, counter.end(), 0xFF);  // force carries
    if (i % 8 == 1) std::fill(counter.begin(), counter.end(), 0xFF);  // wrap to zero
    const Bytes plain = RandomBytes(rng, 9 + rng() % 60);
    ScopedCipher c(key, CipherModeWord(kCipherModeCtr, kCipherPadNone), counter);
    Bytes stream;
    for (size_t off = 0; off < plain.size(); off += 8) {
      stream = Concat(stream, EvpBlock(key, counter));
      for (size_t b = 8; b-- > 0 && ++counter[b] == 0;) continue;  // big-endian increment
    }
    EXPECT_EQ(RunMessage(c.get(), plain, true, {3}).out, XorBytes(plain, stream)) << "trial " << i;
    EXPECT_EQ(RunMessage(c.get(), XorBytes(plain, stream), false).out, plain) << "decryption, trial " << i;
  }
}

// The weak-key verdict for every key made of the bytes that weak and semi-weak keys use, so our
// table neither misses nor adds a key.
TEST(DesKeyChecksOpenSsl, WeakVerdictMatchesOverEveryKeyOfWeakKeyBytes) {
  const uint8_t kBytes[] = {0x01, 0xFE, 0x1F, 0xE0, 0x0E, 0xF1};  // each of odd parity
  int weak = 0, mismatches = 0;
  for (uint32_t index = 0; index < 6 * 6 * 6 * 6 * 6 * 6 * 6 * 6; ++index) {
    DES_cblock key;
    for (uint32_t i = 0, rest = index; i < 8; ++i, rest /= 6) key[i] = kBytes[rest % 6];
    const bool opensslWeak = DES_is_weak_key(&key) == 1;
    weak += opensslWeak;
    if ((DesCheckKey(key) == kErrWeakKey) != opensslWeak && ++mismatches <= 5) {
      ADD_FAILURE() << "verdicts differ for " << ::testing::PrintToString(Bytes(key, key + 8));
    }
  }
  EXPECT_EQ(mismatches, 0);
  EXPECT_EQ(weak, 16) << "4 weak and 12 semi-weak keys";
}

Bytes MacOf(const Bytes& key, uint16_t mode, const Bytes& msg, std::vector<size_t> pieces) {
  ScopedCipher c(key, CipherModeWord(mode, kCipherPadNone));
  const MessageRun run = RunMessage(c.get(), msg, true, std::move(pieces));
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

// Keys of one, two and three DES keys; lengths 0 to 19, then random up to 99. CBC-MAC's updates
// hand out the CBC blocks of the whole blocks and its final the tag, so its whole output is the
// CBC encryption of the zero-padded message under the IV (whole blocks still get a zero block).
TEST(CipherMacOpenSsl, TagsMatchTheirStandardConstructions) {
  std::mt19937 rng(31);
  for (int i = 0; i < 90; ++i) {
    const Bytes key = RandomBytes(rng, 8 * (1 + i % 3));
    const Bytes msg = RandomBytes(rng, i < 20 ? static_cast<size_t>(i) : rng() % 100);
    if (key.size() > 8) {
      EXPECT_EQ(MacOf(key, kCipherModeIsoMac3, msg, {rng() % 20, 0, rng() % 20}), IsoMac3Reference(key, msg)) << "len " << msg.size();
    }
    EXPECT_EQ(MacOf(key, kCipherModeCmac, msg, {rng() % 20, rng() % 20}), CmacReference(key, msg)) << key.size() << " len " << msg.size();
    Bytes padded = msg;
    padded.resize((msg.size() / 8 + 1) * 8, 0);
    const Bytes iv = RandomBytes(rng, 8);
    ScopedCipher c(key, CipherModeWord(kCipherModeCbcMac, kCipherPadNone), iv);
    EXPECT_EQ(RunMessage(c.get(), msg, true, {rng() % 20}).out, EvpMessage(key, true, iv, padded, true, false))
        << "len " << msg.size();
  }
}

}  // namespace
}  // namespace nivra::testing
