// CBigNumber and its word primitives at their edges: Montgomery products at the largest residue,
// the special cases of exponentiation and the prime search. Random operands
// of every size and shape are cross-checked against OpenSSL in bignum_openssl_test.cpp.
#include <gtest/gtest.h>

#include <array>

#include "crypto/bignum.h"
#include "crypto/bignum_words.h"
#include "test_support.h"

namespace nivra::testing {
namespace {

using namespace nivra::crypto;
using Words = std::vector<uint32_t>;
constexpr uint32_t kOnes = 0xFFFFFFFFu;

void Load(CBigNumber& a, const Bytes& bytes) {
  a.SetZero();
  ASSERT_EQ(a.FromBytes(bytes.data(), 0, static_cast<uint32_t>(bytes.size())), 0);
}

// The carries of the final Montgomery step: at a modulus just below R the largest residue's
// square and product carry past the top word, at one and two whole limbs and at word counts that
// end in half a limb. (Random operands of every size are checked against OpenSSL natively; this
// case runs on both sides.)
TEST(BignumWords, MontgomeryProductsAtTheLargestResidue) {
  for (size_t n : {2, 3, 4, 5}) {
    // m = R - 59: R mod m = 59 and R^2 mod m = 59^2 = 3481.
    Words m(n, kOnes), one(n), r2(n), top(n, kOnes), out(n), scratch(MontScratchWords(n));
    m[0] = 0xFFFFFFC5u;
    top[0] = m[0] - 1;
    one[0] = 1;
    r2[0] = 3481;
    const uint32_t minv = MontgomeryMinv(m[0]);
    auto low = [n](uint32_t w) { Words v(n); v[0] = w; return v; };
    WordsMontMul(out.data(), one.data(), r2.data(), m.data(), n, minv, scratch.data());
    EXPECT_EQ(out, low(59)) << n;
    WordsMontSquare(out.data(), r2.data(), m.data(), n, minv, scratch.data());  // R^3 mod m
    EXPECT_EQ(out, low(59u * 3481u)) << n;
    // (m-1)^2 R^-1 = R^-1 mod m; that times R^2, times R^-1 once more, is 1.
    WordsMontSquare(out.data(), top.data(), m.data(), n, minv, scratch.data());
    WordsMontMul(out.data(), out.data(), r2.data(), m.data(), n, minv, scratch.data());
    EXPECT_EQ(out, low(1)) << n;
  }
}

TEST(BignumModExp, RefusalsSpecialExponentsAndAliasing) {
  CBigNumber r, base, exp, m;
  // base, exponent, modulus, status, result: even or zero moduli are refused; exponent 1 copies
  // the base without reducing it.
  const std::array<uint32_t, 5> cases[] = {
      {3, 5, 10, 1, 0}, {3, 5, 0, 1, 0}, {2, 5, 16, 1, 0}, {100, 1, 7, 0, 100}, {100, 0, 7, 0, 1}};
  for (const auto& [b, e, mod, refused, result] : cases) {
    base.SetWord(b);
    exp.SetWord(e);
    m.SetWord(mod);
    ASSERT_EQ(r.ModExp(base, exp, m), refused ? -1 : 0) << b << "^" << e << " mod " << mod;
    EXPECT_TRUE(refused || r.IsWord(result)) << b << "^" << e << " mod " << mod;
  }
  base.SetWord(4);
  exp.SetWord(13);
  m.SetWord(497);
  ASSERT_EQ(base.ModExp(base, exp, m), 0);  // 4^13 mod 497 = 445
  EXPECT_TRUE(base.IsWord(445));
  ASSERT_EQ(m.ModExp(base, exp, m), 0);  // 445^13 mod 497 = 242
  EXPECT_TRUE(m.IsWord(242));
}

TEST(BignumPrimes, ProbablePrimeVerdictsAndTheNextPrime) {
  CBigNumber a;
  // Primes in each residue class modulo 8 (0); 341 = 11 * 31 fools the plain Fermat test to
  // base 2 (1); even values are refused (-1).
  for (const auto& [value, verdict] : {std::pair{3u, 0}, {5u, 0}, {7u, 0}, {17u, 0}, {65537u, 0}, {4294967291u, 0},
                                       {341u, 1}, {9u, 1}, {1u, 1}, {65535u, 1}, {10u, -1}}) {
    a.SetWord(value);
    EXPECT_EQ(a.IsProbablePrime(), verdict) << value;
  }
  Load(a, Hex("7fffffffffffffffffffffffffffffff"));  // 2^127 - 1
  EXPECT_EQ(a.IsProbablePrime(), 0);
  // The smallest prime = 1 (mod 65537) is 917519; with e = 65537 the search skips to 917549.
  const struct {
    uint32_t start, e, prime;
  } searches[] = {{1000000, 0, 1000003}, {2, 0, 3},           {1, 0, 3},
                  {13, 4, 19},           {917518, 0, 917519}, {917518, 65537, 917549}};
  for (const auto& s : searches) {
    a.SetWord(s.start);
    ASSERT_GE(a.NextPrime(s.e), 10) << s.start;
    EXPECT_TRUE(a.IsWord(s.prime)) << s.start << " e " << s.e;
  }
  EXPECT_EQ(a.NextPrime(2), -1);
  EXPECT_EQ(a.NextPrime(1), -1);
  // The transport key's Miller-Rabin splits n - 1 into 2^s * d, whole zero words included.
  for (const uint32_t zeros : {0u, 5u, 32u, 45u, 64u}) {
    a.SetWord(3);
    ASSERT_EQ(a.ShiftLeft(zeros), 0);
    EXPECT_EQ(a.RemoveTrailingZeros(), zeros);
    EXPECT_TRUE(a.IsWord(3)) << zeros;
  }
}

}  // namespace
}  // namespace nivra::testing
