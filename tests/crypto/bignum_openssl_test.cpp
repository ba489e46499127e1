// CBigNumber cross-checked against OpenSSL's BN on operands of 1 to 130 words: random values,
// all-ones words, single bits at word boundaries, and inputs carrying high zero words.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/err.h>

#include "crypto/bignum.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;
using BnPtr = std::unique_ptr<BIGNUM, decltype(&BN_free)>;

BnPtr NewBn() { return BnPtr(BN_new(), BN_free); }

class BignumOracle : public ::testing::Test {
 protected:
  // A value of exactly `words` words in a shape that stresses carries, estimates or normalisation.
  BnPtr Make(uint32_t words) {
    Bytes bytes = RandomBytes(rng_, 4 * words);
    switch (rng_() % 5) {
      case 0: bytes[0] |= 0x01; break;  // random, top word non-zero
      case 1: std::fill(bytes.begin(), bytes.end(), 0xFF); break;
      case 2: std::fill(bytes.begin(), bytes.end(), 0x00); bytes[0] = 0x80; break;  // top bit only
      case 3:  // sparse
        for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = (i % 5 == 0) ? 0xFF : 0x00;
        bytes[0] = 0x80;
        break;
      default: std::fill(bytes.begin(), bytes.end() - 4, 0x00); bytes.back() |= 1;  // low word only
    }
    BnPtr bn = NewBn();
    BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), bn.get());
    return bn;
  }
  uint32_t Words(uint32_t lo, uint32_t hi) { return lo + rng_() % (hi - lo + 1); }

  // Copies an OpenSSL value into a CBigNumber, with `padWords` high zero words left in `used`.
  static void Import(CBigNumber& a, const BIGNUM* bn, uint32_t padWords = 0) {
    Bytes bytes(BN_num_bytes(bn));
    BN_bn2bin(bn, bytes.data());
    a.Release();
    ASSERT_EQ(a.FromBytes(bytes.data(), 0, static_cast<uint32_t>(bytes.size())), 0);
    ASSERT_EQ(a.Reserve(a.used + padWords), 0);
    for (uint32_t i = 0; i < padWords; ++i) a.words[a.used++] = 0;
  }

  static void ExpectSame(const CBigNumber& ours, const BIGNUM* theirs, const char* what) {
    uint32_t needed = 0;
    ours.ToBytes(nullptr, 0, &needed);
    Bytes bytes(needed);
    EXPECT_EQ(ours.ToBytes(bytes.data(), needed, nullptr), 1);
    BnPtr mine = NewBn();
    BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), mine.get());
    EXPECT_EQ(BN_cmp(mine.get(), theirs), 0) << what << ": ours " << BN_bn2hex(mine.get())
                                             << " openssl " << BN_bn2hex(theirs);
    EXPECT_TRUE(ours.used == 0 || ours.words[ours.used - 1] != 0) << what << ": not trimmed";
  }

  std::unique_ptr<BN_CTX, decltype(&BN_CTX_free)> ctx_{BN_CTX_new(), BN_CTX_free};
  std::mt19937 rng_{20240521};
  BnPtr expect_ = NewBn();
};

TEST_F(BignumOracle, ProductsSquaresSumsAndDifferences) {
  for (int i = 0; i < 400; ++i) {
    BnPtr x = Make(Words(1, 130)), y = Make(Words(1, 130));
    CBigNumber a, b, r;
    Import(a, x.get(), i % 3);
    Import(b, y.get(), i % 2);
    ASSERT_EQ(r.Mul(a, b), 0);
    BN_mul(expect_.get(), x.get(), y.get(), ctx_.get());
    ExpectSame(r, expect_.get(), "product");
    ASSERT_EQ(r.Square(a), 0);
    BN_sqr(expect_.get(), x.get(), ctx_.get());
    ExpectSame(r, expect_.get(), "square");
    ASSERT_EQ(a.Mul(a, b), 0);  // destination aliases an operand
    BN_mul(expect_.get(), x.get(), y.get(), ctx_.get());
    ExpectSame(a, expect_.get(), "aliased product");
    Import(a, x.get(), i % 2);
    ASSERT_EQ(a.Add(b), 0);
    BN_add(expect_.get(), x.get(), y.get());
    ExpectSame(a, expect_.get(), "sum");
    Import(a, x.get());
    const int larger = a.Sub(b);
    BN_sub(expect_.get(), x.get(), y.get());
    EXPECT_EQ(larger, BN_is_negative(expect_.get()) ? 1 : 0);
    BN_set_negative(expect_.get(), 0);
    ExpectSame(a, expect_.get(), "difference");
  }
}

// Dividends may be shorter than the modulus (returned as they are) and moduli may be one word. A
// third of the pairs also get an inverse, or the verdict that there is none.
TEST_F(BignumOracle, DivisionAndInverses) {
  int inverses = 0;
  for (int i = 0; i < 600; ++i) {
    BnPtr x = Make(Words(1, 130)), y = Make(Words(1, 70)), eq = NewBn();
    CBigNumber a, m, q, r;
    Import(a, x.get(), i % 2);
    Import(m, y.get(), i % 3 == 1);
    BN_div(eq.get(), expect_.get(), x.get(), y.get(), ctx_.get());
    ASSERT_EQ(r.Mod(a, m), 0);
    ExpectSame(r, expect_.get(), "remainder");
    ASSERT_EQ(r.DivMod(q, a, m), 0);
    ExpectSame(q, eq.get(), "quotient");
    ExpectSame(r, expect_.get(), "remainder with quotient");
    ASSERT_EQ(a.Mod(a, m), 0);  // a = a mod m
    ExpectSame(a, expect_.get(), "aliased remainder");
    if (i % 3 != 0 || BN_is_one(y.get())) continue;
    BnPtr inverse(BN_mod_inverse(nullptr, x.get(), y.get(), ctx_.get()), BN_free);
    ERR_clear_error();
    Import(a, x.get());
    ASSERT_EQ(r.ModInverse(a, m), inverse ? 0 : 1) << BN_bn2hex(x.get()) << " mod " << BN_bn2hex(y.get());
    if (inverse) ExpectSame(r, inverse.get(), "inverse");
    inverses += inverse != nullptr;
  }
  EXPECT_GT(inverses, 50) << "the operands must exercise the invertible case";
}

// Moduli of 1 to 40 words with exponents past the widest window threshold, then the sizes of real
// CRT halves and moduli with exponents as long as the modulus; each also with the base 2 path.
TEST_F(BignumOracle, ModularExponentiationWithOddModuli) {
  for (int i = 0; i < 124; ++i) {
    const bool rsaSized = i >= 120;
    const int bits = rsaSized ? 512 * (i - 119) : 0;
    BnPtr m = rsaSized ? NewBn() : Make(Words(1, 40)), x = NewBn(), e = NewBn(), two = NewBn();
    if (rsaSized) BN_rand(m.get(), bits, BN_RAND_TOP_TWO, BN_RAND_BOTTOM_ODD);
    BN_set_bit(m.get(), 0);
    if (BN_is_one(m.get())) BN_set_word(m.get(), 0xFFFFFFFBu);
    BN_rand_range(x.get(), m.get());
    BN_rand(e.get(), rsaSized ? bits : 2 + static_cast<int>(rng_() % 2000), BN_RAND_TOP_ONE, BN_RAND_BOTTOM_ANY);
    if (i % 2 == 0) BN_clear_bit(e.get(), 0);
    else BN_set_bit(e.get(), 0);
    BN_set_word(two.get(), 2);
    CBigNumber base, exp, mod, r;
    Import(exp, e.get(), i % 2);
    Import(mod, m.get(), i % 3);
    for (const BIGNUM* b : {x.get(), two.get()}) {
      Import(base, b);
      BN_mod_exp(expect_.get(), b, e.get(), m.get(), ctx_.get());
      ASSERT_EQ(r.ModExp(base, exp, mod), 0);
      ExpectSame(r, expect_.get(), b == two.get() ? "modexp base 2" : "modexp");
    }
  }
}

}  // namespace
}  // namespace nivra::testing
