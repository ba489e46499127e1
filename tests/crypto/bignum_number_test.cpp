// CBigNumber's own rules: normal form, partial byte loads, DER integers, the unsigned
// subtraction, the exponentiation special cases, and the prime search's guarantees.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "crypto/bignum.h"

namespace nivra::crypto {
namespace {

using Bytes = std::vector<uint8_t>;

Bytes ToBytes(const CBigNumber& a) {
  uint32_t needed = 0;
  a.ToBytes(nullptr, 0, &needed);
  Bytes out(needed);
  EXPECT_EQ(a.ToBytes(out.data(), needed, nullptr), 1);
  return out;
}

void Load(CBigNumber& a, const Bytes& bytes) {
  a.SetZero();
  ASSERT_EQ(a.FromBytes(bytes.data(), 0, static_cast<uint32_t>(bytes.size())), 0);
}

Bytes Der(const CBigNumber& a) {
  Bytes out(a.DerIntegerLength());
  EXPECT_EQ(a.ToDerInteger(out.data()), out.size());
  return out;
}

TEST(BignumNormalForm, ZeroHasNoWordsAndNoBits) {
  CBigNumber zero;
  EXPECT_EQ(zero.used, 0u);
  EXPECT_EQ(zero.BitLength(), 0u);
  uint32_t needed = 99;
  EXPECT_EQ(zero.ToBytes(nullptr, 0, &needed), 1);  // len 0 suffices and nothing is written
  EXPECT_EQ(needed, 0u);
  Load(zero, {0x00, 0x00, 0x00, 0x00, 0x00});
  EXPECT_EQ(zero.used, 0u) << "leading zero bytes leave no words";
}

TEST(BignumNormalForm, CapacityIsAlwaysEven) {
  CBigNumber a;
  ASSERT_EQ(a.Reserve(3), 0);
  EXPECT_EQ(a.capacity, 4u);
  ASSERT_EQ(a.Reserve(8), 0);
  EXPECT_EQ(a.capacity, 8u);
}

TEST(BignumNormalForm, OperationsToleratePaddedInputs) {
  // 5 with three high zero words still compares, adds and divides as 5.
  CBigNumber padded;
  ASSERT_EQ(padded.Reserve(4), 0);
  padded.words[0] = 5;
  padded.words[1] = padded.words[2] = padded.words[3] = 0;
  padded.used = 4;
  CBigNumber five, seven, r;
  five.SetWord(5);
  seven.SetWord(7);
  EXPECT_EQ(padded.Compare(five), 0);
  EXPECT_EQ(padded.BitLength(), 3u);
  ASSERT_EQ(r.Mod(seven, padded), 0);
  EXPECT_TRUE(r.IsWord(2));
  ASSERT_EQ(padded.Add(seven), 0);
  EXPECT_TRUE(padded.IsWord(12));
  EXPECT_EQ(padded.used, 1u);
}

TEST(BignumBytes, FromBytesAtOffsetZeroIntoZeroIsAPlainLoad) {
  CBigNumber a;
  Load(a, {0x00, 0x00, 0x01});
  EXPECT_TRUE(a.IsWord(1));
  EXPECT_EQ(a.used, 1u);
}

TEST(BignumBytes, FromBytesKeepsTheOtherBytesOfTheValue) {
  // 2^40 + 5 overwritten in its low three bytes by 00 00 01 gives 2^40 + 1.
  CBigNumber a;
  Load(a, {0x01, 0x00, 0x00, 0x00, 0x00, 0x05});
  const Bytes low = {0x00, 0x00, 0x01};
  ASSERT_EQ(a.FromBytes(low.data(), 0, 3), 0);
  EXPECT_EQ(ToBytes(a), (Bytes{0x01, 0x00, 0x00, 0x00, 0x00, 0x01}));
  // At an offset beyond the value the number grows, zero-filled in between.
  const Bytes high = {0xAB};
  ASSERT_EQ(a.FromBytes(high.data(), 9, 1), 0);
  EXPECT_EQ(ToBytes(a), (Bytes{0xAB, 0x00, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0x01}));
}

TEST(BignumBytes, ToBytesRefusesShortBuffersAndRightAlignsInLongOnes) {
  CBigNumber a;
  Load(a, {0x01, 0x02, 0x03});
  uint8_t out[5] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
  uint32_t needed = 0;
  EXPECT_EQ(a.ToBytes(out, 2, &needed), 0);
  EXPECT_EQ(needed, 3u);
  EXPECT_EQ(out[0], 0xEE) << "nothing written on refusal";
  EXPECT_EQ(a.ToBytes(out, 5, nullptr), 1);
  EXPECT_EQ(Bytes(out, out + 5), (Bytes{0x00, 0x00, 0x01, 0x02, 0x03}));
}

TEST(BignumDer, IntegersGetALeadingZeroOnlyWhenTheTopBitIsSet) {
  CBigNumber a;
  Load(a, {0x80});
  EXPECT_EQ(Der(a), (Bytes{0x02, 0x02, 0x00, 0x80}));
  Load(a, {0x7F});
  EXPECT_EQ(Der(a), (Bytes{0x02, 0x01, 0x7F}));
  a.SetZero();
  EXPECT_EQ(Der(a), (Bytes{0x02, 0x01, 0x00}));
}

TEST(BignumDer, LengthFormsAtTheirBoundaries) {
  CBigNumber a;
  Load(a, Bytes(127, 0x11));  // 127 content bytes: short form
  Bytes der = Der(a);
  EXPECT_EQ(Bytes(der.begin(), der.begin() + 2), (Bytes{0x02, 0x7F}));
  Load(a, Bytes(128, 0x11));  // 128: one length octet
  der = Der(a);
  EXPECT_EQ(Bytes(der.begin(), der.begin() + 3), (Bytes{0x02, 0x81, 0x80}));
  Load(a, Bytes(256, 0xC3));  // a 2048-bit value with its top bit set: 257 content bytes
  der = Der(a);
  ASSERT_EQ(der.size(), 4u + 257u);
  EXPECT_EQ(Bytes(der.begin(), der.begin() + 5), (Bytes{0x02, 0x82, 0x01, 0x01, 0x00}));
  EXPECT_EQ(der[5], 0xC3);
}

TEST(BignumSubtraction, SmallerMinusLargerStoresTheDifferenceAndSaysSo) {
  CBigNumber a, b;
  a.SetWord(5);
  b.SetWord(7);
  EXPECT_EQ(a.Sub(b), 1);
  EXPECT_TRUE(a.IsWord(2));
  EXPECT_EQ(a.Sub(a), 0);
  EXPECT_TRUE(a.IsZero());
  a.SetWord(3);
  EXPECT_EQ(a.SubWord(10), 1);
  EXPECT_TRUE(a.IsWord(7));
}

TEST(BignumSubtraction, BorrowAcrossWordsShrinksTheValue) {
  CBigNumber a, b;
  Load(a, {0x01, 0x00, 0x00, 0x00, 0x00});  // 2^32
  b.SetWord(1);
  EXPECT_EQ(a.Sub(b), 0);
  EXPECT_EQ(a.used, 1u);
  EXPECT_TRUE(a.IsWord(0xFFFFFFFFu));
}

TEST(BignumModExp, EvenOrZeroModulusIsRefused) {
  CBigNumber r, base, exp, m;
  base.SetWord(3);
  exp.SetWord(5);
  m.SetWord(10);
  EXPECT_EQ(r.ModExp(base, exp, m), -1);
  m.SetZero();
  EXPECT_EQ(r.ModExp(base, exp, m), -1);
  base.SetWord(2);  // the base-2 path checks too
  m.SetWord(16);
  EXPECT_EQ(r.ModExp(base, exp, m), -1);
}

TEST(BignumModExp, ExponentOneReturnsTheBaseUnreducedAndZeroGivesOne) {
  CBigNumber r, base, exp, m;
  base.SetWord(100);
  m.SetWord(7);
  exp.SetWord(1);
  ASSERT_EQ(r.ModExp(base, exp, m), 0);
  EXPECT_TRUE(r.IsWord(100));
  exp.SetZero();
  ASSERT_EQ(r.ModExp(base, exp, m), 0);
  EXPECT_TRUE(r.IsWord(1));
}

TEST(BignumModExp, DestinationMayBeAnOperand) {
  CBigNumber a, exp, m;
  a.SetWord(4);
  exp.SetWord(13);
  m.SetWord(497);
  ASSERT_EQ(a.ModExp(a, exp, m), 0);  // 4^13 mod 497 = 445
  EXPECT_TRUE(a.IsWord(445));
  ASSERT_EQ(m.ModExp(a, exp, m), 0);  // 445^13 mod 497 = 242
  EXPECT_TRUE(m.IsWord(242));
}

TEST(BignumModExp, BaseTwoBelowAndAboveTheModulus) {
  CBigNumber r, two, exp, m;
  two.SetWord(2);
  Load(m, {0x01, 0x00, 0x00, 0x00, 0x00, 0x01});  // 2^40 + 1
  exp.SetWord(40);  // 2^40 < m: the single bit itself
  ASSERT_EQ(r.ModExp(two, exp, m), 0);
  EXPECT_EQ(ToBytes(r), (Bytes{0x01, 0x00, 0x00, 0x00, 0x00, 0x00}));
  exp.SetWord(41);  // 2^41 = 2m - 2
  ASSERT_EQ(r.ModExp(two, exp, m), 0);
  EXPECT_EQ(ToBytes(r), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 0xFF}));  // m - 2
  exp.SetWord(80);  // 2^80 = (m - 1)^2 = 1
  ASSERT_EQ(r.ModExp(two, exp, m), 0);
  EXPECT_TRUE(r.IsWord(1));
}

TEST(BignumInverse, InverseExistsOnlyForCoprimeValues) {
  CBigNumber r, a, m;
  a.SetWord(3);
  m.SetWord(11);
  ASSERT_EQ(r.ModInverse(a, m), 0);
  EXPECT_TRUE(r.IsWord(4));
  a.SetWord(6);
  m.SetWord(9);
  EXPECT_EQ(r.ModInverse(a, m), 1);
  a.SetWord(17);  // reduced first: 17 = 6 (mod 11), inverse 2
  m.SetWord(11);
  ASSERT_EQ(r.ModInverse(a, m), 0);
  EXPECT_TRUE(r.IsWord(2));
}

TEST(BignumShifts, TrailingZerosAreRemovedAndCounted) {
  CBigNumber a;
  Load(a, {0x0C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00});  // 12 * 2^56 = 3 * 2^58
  EXPECT_EQ(a.RemoveTrailingZeros(), 58u);
  EXPECT_TRUE(a.IsWord(3));
  a.SetZero();
  EXPECT_EQ(a.RemoveTrailingZeros(), 0u);
}

TEST(BignumRandom, ExactSizeOddWithTwoTopBitsSet) {
  for (uint32_t bits : {1024u, 1025u, 33u, 32u, 2u}) {
    CBigNumber a;
    ASSERT_EQ(a.Random(bits), 0);
    EXPECT_EQ(a.BitLength(), bits);
    EXPECT_TRUE(a.IsOdd());
    EXPECT_TRUE(a.Bit(bits - 1));
    EXPECT_TRUE(a.Bit(bits - 2));
  }
  CBigNumber a, b;
  ASSERT_EQ(a.Random(256), 0);
  ASSERT_EQ(b.Random(256), 0);
  EXPECT_NE(a.Compare(b), 0) << "two draws in the same millisecond differ";
}

TEST(BignumPrimes, ProbablePrimeTestOnKnownValues) {
  CBigNumber a;
  // Primes in each residue class modulo 8, and 2^127 - 1.
  for (uint32_t p : {3u, 5u, 7u, 17u, 65537u, 4294967291u}) {
    a.SetWord(p);
    EXPECT_EQ(a.IsProbablePrime(), 0) << p;
  }
  Load(a, {0x7F, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF,
           0xFF, 0xFF});
  EXPECT_EQ(a.IsProbablePrime(), 0);
  // 341 = 11 * 31 fools the plain Fermat test to base 2 but not this one; 1 and 9 are composite.
  for (uint32_t c : {341u, 9u, 1u, 65535u}) {
    a.SetWord(c);
    EXPECT_EQ(a.IsProbablePrime(), 1) << c;
  }
  a.SetWord(10);
  EXPECT_EQ(a.IsProbablePrime(), -1);
}

TEST(BignumPrimes, NextPrimeMakesEvenValuesOddAndFindsTheNextPrime) {
  CBigNumber a;
  a.SetWord(1000000);  // next prime 1000003
  ASSERT_GE(a.NextPrime(0), 10);
  EXPECT_TRUE(a.IsWord(1000003));
  a.SetWord(2);  // small primes themselves are kept by the sieve
  ASSERT_GE(a.NextPrime(0), 10);
  EXPECT_TRUE(a.IsWord(3));
  a.SetWord(1);
  ASSERT_GE(a.NextPrime(0), 10);
  EXPECT_TRUE(a.IsWord(3));
  a.SetWord(13);  // 13 = 1 (mod 4) is skipped when e = 4
  ASSERT_GE(a.NextPrime(4), 10);
  EXPECT_TRUE(a.IsWord(19));
  EXPECT_EQ(a.NextPrime(2), -1);
  EXPECT_EQ(a.NextPrime(1), -1);
}

TEST(BignumPrimes, NextPrimeAvoidsOneModuloE) {
  // The smallest prime = 1 (mod 65537) is 65537 * 14 + 1 = 917519; the next prime is 917549.
  CBigNumber a;
  a.SetWord(917518);
  ASSERT_GE(a.NextPrime(0), 10);
  EXPECT_TRUE(a.IsWord(917519));
  a.SetWord(917518);
  ASSERT_GE(a.NextPrime(65537), 10);
  EXPECT_TRUE(a.IsWord(917549));
  // Large searches: the result is prime-tested and never 1 modulo e.
  for (int i = 0; i < 4; ++i) {
    ASSERT_EQ(a.Random(512), 0);
    int result = a.NextPrime(65537);
    ASSERT_GE(result, 10);
    CBigNumber m, e;
    e.SetWord(65537);
    ASSERT_EQ(m.Mod(a, e), 0);
    EXPECT_FALSE(m.IsWord(1));
    EXPECT_EQ(a.IsProbablePrime(), 0);
  }
}

}  // namespace
}  // namespace nivra::crypto
