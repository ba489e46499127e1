// CBigNumber cross-checked against OpenSSL's BN on operands of 1 to 130 words: random values,
// all-ones words, single bits at word boundaries, and inputs carrying high zero words.
#include <gtest/gtest.h>
#include <openssl/asn1.h>
#include <openssl/bn.h>
#include <openssl/err.h>

#include <memory>
#include <random>
#include <vector>

#include "crypto/bignum.h"

namespace nivra::crypto {
namespace {

using Bytes = std::vector<uint8_t>;
using BnPtr = std::unique_ptr<BIGNUM, decltype(&BN_free)>;
using CtxPtr = std::unique_ptr<BN_CTX, decltype(&BN_CTX_free)>;

BnPtr NewBn() { return BnPtr(BN_new(), BN_free); }

// Operand shapes that stress carries, estimates and normalisation.
enum class Shape { kRandom, kAllOnes, kTopBitOnly, kSparse, kLowWordOnly };

class BignumOracle : public ::testing::Test {
 protected:
  BignumOracle() : ctx_(BN_CTX_new(), BN_CTX_free), rng_(20240521) {}

  // A value of exactly `words` words in the given shape, as OpenSSL sees it.
  BnPtr Make(uint32_t words, Shape shape) {
    Bytes bytes(4 * words);
    for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng_());
    switch (shape) {
      case Shape::kRandom: bytes[0] |= 0x01; break;  // keeps the top word non-zero
      case Shape::kAllOnes: std::fill(bytes.begin(), bytes.end(), 0xFF); break;
      case Shape::kTopBitOnly:
        std::fill(bytes.begin(), bytes.end(), 0x00);
        bytes[0] = 0x80;
        break;
      case Shape::kSparse:
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = (i % 5 == 0) ? 0xFF : 0x00;
        bytes[0] = 0x80;
        break;
      case Shape::kLowWordOnly:
        std::fill(bytes.begin(), bytes.end() - 4, 0x00);
        bytes[0] = 0x00;
        bytes.back() |= 1;
        break;
    }
    BnPtr bn = NewBn();
    BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), bn.get());
    return bn;
  }

  // Copies an OpenSSL value into a CBigNumber, with `padWords` high zero words left in `used`.
  static void Import(CBigNumber& a, const BIGNUM* bn, uint32_t padWords = 0) {
    Bytes bytes(BN_num_bytes(bn));
    BN_bn2bin(bn, bytes.data());
    a.Release();
    ASSERT_EQ(a.FromBytes(bytes.data(), 0, static_cast<uint32_t>(bytes.size())), 0);
    if (padWords > 0) {
      ASSERT_EQ(a.Reserve(a.used + padWords), 0);
      for (uint32_t i = 0; i < padWords; ++i) a.words[a.used + i] = 0;
      a.used += padWords;
    }
  }

  static BnPtr Export(const CBigNumber& a) {
    uint32_t needed = 0;
    a.ToBytes(nullptr, 0, &needed);
    Bytes bytes(needed);
    EXPECT_EQ(a.ToBytes(bytes.data(), needed, nullptr), 1);
    BnPtr bn = NewBn();
    BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), bn.get());
    return bn;
  }

  static void ExpectSame(const CBigNumber& ours, const BIGNUM* theirs, const char* what) {
    BnPtr mine = Export(ours);
    EXPECT_EQ(BN_cmp(mine.get(), theirs), 0)
        << what << ": ours " << BN_bn2hex(mine.get()) << " openssl " << BN_bn2hex(theirs);
    EXPECT_TRUE(ours.used == 0 || ours.words[ours.used - 1] != 0) << what << ": not trimmed";
  }

  Shape AnyShape() { return static_cast<Shape>(rng_() % 5); }
  uint32_t Words(uint32_t lo, uint32_t hi) { return lo + rng_() % (hi - lo + 1); }

  CtxPtr ctx_;
  std::mt19937 rng_;
};

TEST_F(BignumOracle, ProductsAndSquares) {
  for (int i = 0; i < 400; ++i) {
    BnPtr x = Make(Words(1, 130), AnyShape());
    BnPtr y = Make(Words(1, 130), AnyShape());
    CBigNumber a, b, r;
    Import(a, x.get(), i % 3);
    Import(b, y.get(), i % 2);
    BnPtr expect = NewBn();
    ASSERT_EQ(r.Mul(a, b), 0);
    BN_mul(expect.get(), x.get(), y.get(), ctx_.get());
    ExpectSame(r, expect.get(), "product");
    ASSERT_EQ(r.Square(a), 0);
    BN_sqr(expect.get(), x.get(), ctx_.get());
    ExpectSame(r, expect.get(), "square");
    ASSERT_EQ(a.Mul(a, b), 0);  // destination aliases an operand
    BN_mul(expect.get(), x.get(), y.get(), ctx_.get());
    ExpectSame(a, expect.get(), "aliased product");
  }
}

TEST_F(BignumOracle, SumsAndDifferences) {
  for (int i = 0; i < 400; ++i) {
    BnPtr x = Make(Words(1, 130), AnyShape());
    BnPtr y = Make(Words(1, 130), AnyShape());
    CBigNumber a, b;
    Import(a, x.get(), i % 2);
    Import(b, y.get());
    BnPtr expect = NewBn();
    ASSERT_EQ(a.Add(b), 0);
    BN_add(expect.get(), x.get(), y.get());
    ExpectSame(a, expect.get(), "sum");
    Import(a, x.get());
    int larger = a.Sub(b);
    BN_sub(expect.get(), x.get(), y.get());
    EXPECT_EQ(larger, BN_is_negative(expect.get()) ? 1 : 0);
    BN_set_negative(expect.get(), 0);
    ExpectSame(a, expect.get(), "difference");
  }
}

TEST_F(BignumOracle, DivisionQuotientsAndRemainders) {
  for (int i = 0; i < 600; ++i) {
    uint32_t mw = Words(1, 70);
    BnPtr x = Make(Words(mw, 130), AnyShape());
    BnPtr y = Make(mw, AnyShape());
    CBigNumber a, m, q, r;
    Import(a, x.get(), i % 2);
    Import(m, y.get(), i % 3);
    BnPtr eq = NewBn(), er = NewBn();
    BN_div(eq.get(), er.get(), x.get(), y.get(), ctx_.get());
    ASSERT_EQ(r.Mod(a, m), 0);
    ExpectSame(r, er.get(), "remainder");
    ASSERT_EQ(r.DivMod(q, a, m), 0);
    ExpectSame(q, eq.get(), "quotient");
    ExpectSame(r, er.get(), "remainder with quotient");
    ASSERT_EQ(a.Mod(a, m), 0);  // a = a mod m
    ExpectSame(a, er.get(), "aliased remainder");
  }
}

TEST_F(BignumOracle, DivisionByOneWordAndShortDividends) {
  for (uint32_t d : {1u, 2u, 3u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu}) {
    BnPtr x = Make(40, Shape::kAllOnes);
    CBigNumber a, m, r;
    Import(a, x.get());
    m.SetWord(d);
    ASSERT_EQ(r.Mod(a, m), 0);
    EXPECT_EQ(r.IsZero() ? 0 : r.words[0], static_cast<uint32_t>(BN_mod_word(x.get(), d))) << d;
  }
  CBigNumber small, big, r;
  small.SetWord(12345);
  BnPtr y = Make(3, Shape::kRandom);
  Import(big, y.get());
  ASSERT_EQ(r.Mod(small, big), 0);
  EXPECT_TRUE(r.IsWord(12345)) << "a dividend shorter than the modulus is returned as it is";
}

TEST_F(BignumOracle, ModularExponentiationWithOddModuli) {
  for (int i = 0; i < 120; ++i) {
    uint32_t mw = Words(1, 40);
    BnPtr m = Make(mw, AnyShape());
    BN_set_bit(m.get(), 0);  // odd
    if (BN_is_one(m.get())) BN_set_word(m.get(), 0xFFFFFFFBu);
    BnPtr x = Make(mw, Shape::kRandom);
    BN_mod(x.get(), x.get(), m.get(), ctx_.get());
    // Exponents from 2 bits up to past the widest window threshold, even and odd.
    BnPtr e = NewBn();
    BN_rand(e.get(), 2 + static_cast<int>(rng_() % 2000), BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY);
    if (i % 2 == 0) BN_clear_bit(e.get(), 0);
    else BN_set_bit(e.get(), 0);
    CBigNumber base, exp, mod, r;
    Import(base, x.get());
    Import(exp, e.get(), i % 2);
    Import(mod, m.get(), i % 3);
    BnPtr expect = NewBn();
    BN_mod_exp(expect.get(), x.get(), e.get(), m.get(), ctx_.get());
    ASSERT_EQ(r.ModExp(base, exp, mod), 0);
    ExpectSame(r, expect.get(), "modexp");

    BnPtr two = NewBn();
    BN_set_word(two.get(), 2);
    BN_mod_exp(expect.get(), two.get(), e.get(), m.get(), ctx_.get());
    base.SetWord(2);
    ASSERT_EQ(r.ModExp(base, exp, mod), 0);
    ExpectSame(r, expect.get(), "modexp base 2");
  }
}

TEST_F(BignumOracle, RsaSizedExponentiation) {
  // The sizes of real CRT halves and moduli, with exponents as long as the modulus.
  for (uint32_t bits : {512u, 1024u, 1536u, 2048u}) {
    BnPtr m = NewBn(), x = NewBn(), e = NewBn(), expect = NewBn();
    BN_rand(m.get(), static_cast<int>(bits), BN_RAND_TOP_TWO, BN_RAND_BOTTOM_ODD);
    BN_rand_range(x.get(), m.get());
    BN_rand(e.get(), static_cast<int>(bits), BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY);
    CBigNumber base, exp, mod, r;
    Import(base, x.get());
    Import(exp, e.get());
    Import(mod, m.get());
    BN_mod_exp(expect.get(), x.get(), e.get(), m.get(), ctx_.get());
    ASSERT_EQ(r.ModExp(base, exp, mod), 0);
    ExpectSame(r, expect.get(), "rsa-sized modexp");
  }
}

TEST_F(BignumOracle, ModularInverses) {
  int inverses = 0;
  for (int i = 0; i < 200; ++i) {
    BnPtr m = Make(Words(1, 40), AnyShape());
    if (BN_is_one(m.get())) continue;
    BnPtr x = Make(Words(1, 45), AnyShape());
    CBigNumber a, mod, r;
    Import(a, x.get());
    Import(mod, m.get(), i % 2);
    BnPtr expect(BN_mod_inverse(nullptr, x.get(), m.get(), ctx_.get()), BN_free);
    int status = r.ModInverse(a, mod);
    if (expect == nullptr) {
      EXPECT_EQ(status, 1) << "no inverse of " << BN_bn2hex(x.get()) << " mod " << BN_bn2hex(m.get());
      ERR_clear_error();
      continue;
    }
    ASSERT_EQ(status, 0);
    ExpectSame(r, expect.get(), "inverse");
    ++inverses;
  }
  EXPECT_GT(inverses, 50) << "the operands must exercise the invertible case";
}

TEST_F(BignumOracle, ByteConversionsAtBoundaries) {
  for (uint32_t len : {1u, 3u, 4u, 5u, 7u, 8u, 9u, 31u, 32u, 33u, 255u, 256u, 257u, 520u}) {
    Bytes bytes(len);
    for (uint8_t& b : bytes) b = static_cast<uint8_t>(rng_());
    bytes[0] = len % 2 ? 0x00 : 0x80;  // leading zero byte, or top bit set
    CBigNumber a;
    ASSERT_EQ(a.FromBytes(bytes.data(), 0, len), 0);
    BnPtr bn = NewBn();
    BN_bin2bn(bytes.data(), static_cast<int>(len), bn.get());
    ExpectSame(a, bn.get(), "from bytes");
    Bytes ours(len + 3), theirs(len + 3);
    ASSERT_EQ(a.ToBytes(ours.data(), len + 3, nullptr), 1);
    BN_bn2binpad(bn.get(), theirs.data(), static_cast<int>(len + 3));
    EXPECT_EQ(ours, theirs);
    // DER INTEGER against OpenSSL's encoder.
    std::unique_ptr<ASN1_INTEGER, decltype(&ASN1_INTEGER_free)> asn(
        BN_to_ASN1_INTEGER(bn.get(), nullptr), ASN1_INTEGER_free);
    unsigned char* der = nullptr;
    int derLen = i2d_ASN1_INTEGER(asn.get(), &der);
    ASSERT_GT(derLen, 0);
    Bytes expectDer(der, der + derLen);
    OPENSSL_free(der);
    Bytes ourDer(a.DerIntegerLength());
    EXPECT_EQ(a.ToDerInteger(ourDer.data()), ourDer.size());
    EXPECT_EQ(ourDer, expectDer) << "length " << len;
  }
}

TEST_F(BignumOracle, ShiftsAgainstOpenSsl) {
  for (int i = 0; i < 100; ++i) {
    BnPtr x = Make(Words(1, 60), AnyShape());
    uint32_t bits = rng_() % 200;
    CBigNumber a;
    Import(a, x.get());
    BnPtr expect = NewBn();
    ASSERT_EQ(a.ShiftLeft(bits), 0);
    BN_lshift(expect.get(), x.get(), static_cast<int>(bits));
    ExpectSame(a, expect.get(), "left shift");
    Import(a, x.get());
    ASSERT_EQ(a.ShiftRight(bits), 0);
    BN_rshift(expect.get(), x.get(), static_cast<int>(bits));
    ExpectSame(a, expect.get(), "right shift");
  }
}

}  // namespace
}  // namespace nivra::crypto
