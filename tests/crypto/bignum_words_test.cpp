// Word-array primitives at their boundaries: carries and borrows that ripple through every word,
// products of all-ones words, and the rare corrections of long division.
#include <gtest/gtest.h>

#include <vector>

#include "crypto/bignum_words.h"

namespace nivra::crypto {
namespace {

using Words = std::vector<uint32_t>;
constexpr uint32_t kOnes = 0xFFFFFFFFu;

TEST(BignumWordsCarry, AddWordRipplesThroughAllOnesAndReportsFinalCarry) {
  Words r = {kOnes, kOnes, kOnes};
  EXPECT_EQ(WordsAddWord(r.data(), r.size(), 1), 1u);
  EXPECT_EQ(r, (Words{0, 0, 0}));
  Words s = {kOnes, kOnes, 7};
  EXPECT_EQ(WordsAddWord(s.data(), s.size(), 2), 0u);
  EXPECT_EQ(s, (Words{1, 0, 8}));
}

TEST(BignumWordsCarry, SubWordBorrowsThroughZerosAndReportsFinalBorrow) {
  Words r = {0, 0, 0};
  EXPECT_EQ(WordsSubWord(r.data(), r.size(), 1), 1u);
  EXPECT_EQ(r, (Words{kOnes, kOnes, kOnes}));
  Words s = {0, 0, 5};
  EXPECT_EQ(WordsSubWord(s.data(), s.size(), 1), 0u);
  EXPECT_EQ(s, (Words{kOnes, kOnes, 4}));
}

TEST(BignumWordsCarry, AddAndSubOfAllOnesArrays) {
  Words r = {kOnes, kOnes};
  Words b = {kOnes, kOnes};
  EXPECT_EQ(WordsAdd(r.data(), b.data(), 2), 1u);  // (2^64 - 1) * 2 = 2^65 - 2
  EXPECT_EQ(r, (Words{0xFFFFFFFEu, kOnes}));
  Words z = {0, 0};
  EXPECT_EQ(WordsSub(z.data(), b.data(), 2), 1u);  // 0 - (2^64 - 1) = 1 mod 2^64
  EXPECT_EQ(z, (Words{1, 0}));
}

TEST(BignumWordsProducts, MulWordOfAllOnesFillsTheExtraWord) {
  Words a = {kOnes, kOnes};
  Words r(3);
  WordsMulWord(r.data(), a.data(), 2, kOnes);  // (2^64 - 1)(2^32 - 1)
  EXPECT_EQ(r, (Words{1, kOnes, 0xFFFFFFFEu}));
}

TEST(BignumWordsProducts, MulAddAndMulSubOfMaximalWordsReturnTheirCarry) {
  Words r = {kOnes, kOnes};
  Words a = {kOnes, kOnes};
  // (2^64 - 1) + (2^64 - 1)(2^32 - 1) = 2^96 - 2^32: low words 0, ones; carry 0xFFFFFFFF.
  EXPECT_EQ(WordsMulAddWord(r.data(), a.data(), 2, kOnes), kOnes);
  EXPECT_EQ(r, (Words{0, kOnes}));
  Words s = {0, 0};
  // 0 - (2^64 - 1)(2^32 - 1): borrow word 0xFFFFFFFF, remainder 2^96 minus that product's value.
  EXPECT_EQ(WordsMulSubWord(s.data(), a.data(), 2, kOnes), kOnes);
  EXPECT_EQ(s, (Words{kOnes, 0}));
}

TEST(BignumWordsProducts, SquareMatchesMulForAllOnesAndMixedWords) {
  for (const Words& a : {Words{kOnes}, Words{kOnes, kOnes, kOnes}, Words{1, 0, kOnes, 0x80000000u},
                         Words{0x12345678u, 0x9ABCDEF0u, 0x0FEDCBA9u}}) {
    Words sq(2 * a.size());
    Words mul(2 * a.size());
    WordsSquare(sq.data(), a.data(), a.size());
    WordsMul(mul.data(), a.data(), a.size(), a.data(), a.size());
    EXPECT_EQ(sq, mul);
  }
  Words ones = {kOnes, kOnes};
  Words sq(4);
  WordsSquare(sq.data(), ones.data(), 2);  // (2^64 - 1)^2 = 2^128 - 2^65 + 1
  EXPECT_EQ(sq, (Words{1, 0, 0xFFFFFFFEu, kOnes}));
}

TEST(BignumWordsShift, ShiftsMoveBitsAcrossWordsAndReturnWhatFallsOut) {
  Words a = {0x80000001u, 0x80000000u};
  Words r(2);
  EXPECT_EQ(WordsShiftLeft(r.data(), a.data(), 2, 1), 1u);
  EXPECT_EQ(r, (Words{2, 1}));
  EXPECT_EQ(WordsShiftRight(r.data(), a.data(), 2, 4), 1u);
  EXPECT_EQ(r, (Words{0x08000000u, 0x08000000u}));
}

TEST(BignumWordsDivide, DivTwoWordsAtTheLargestQuotient) {
  uint32_t q = 0;
  EXPECT_EQ(DivTwoWords(&q, 0x7FFFFFFFu, kOnes, 0x80000000u), 0x7FFFFFFFu);
  EXPECT_EQ(q, kOnes);
  EXPECT_EQ(DivTwoWords(&q, 0xFFFFFFFEu, 0, kOnes), 0xFFFFFFFEu);
  EXPECT_EQ(q, 0xFFFFFFFEu);
}

TEST(BignumWordsDivide, DivWordGivesQuotientAndRemainder) {
  Words a = {5, 0, 1};  // 2^64 + 5
  Words q(3);
  EXPECT_EQ(WordsDivWord(q.data(), a.data(), 3, 3), 0u);  // 2^64 + 5 = 3 * 6148914691236517207
  EXPECT_EQ(q, (Words{0x55555557u, 0x55555555u, 0}));
  EXPECT_EQ(WordsModWord(a.data(), 3, 10), 1u);  // 18446744073709551621
}

struct DivisionCase {
  Words u, v, q, r;
};

// Cases in which the quotient word estimated from the top words is still one too large after
// both corrections, so the multiply-subtract borrows and the divisor is added back. Expected
// values computed independently with arbitrary-precision integers.
TEST(BignumWordsDivide, AddBackCasesGiveExactQuotientAndRemainder) {
  const DivisionCase cases[] = {
      {{0x1, 0x2, 0x1, 0x1}, {0x2, 0x80000001u, 0x80000000u}, {0x1, 0x0},
       {0xFFFFFFFFu, 0x80000000u, 0x80000000u}},
      {{0xFFFFFFFEu, 0x2, 0x1, 0xFFFFFFFFu, 0x80000001u}, {0x80000001u, 0xFFFFFFFEu, 0xFFFFFFFFu},
       {0xFFFFFFFFu, 0x80000001u, 0x0}, {0x7FFFFFFFu, 0x7FFFFFFFu, 0xC0000003u}},
      {{0x80000001u, 0x80000001u, 0x80000000u, 0x80000000u}, {0xFFFFFFFEu, 0x1, 0x80000001u},
       {0xFFFFFFFEu, 0x0}, {0x7FFFFFFDu, 0x80000007u, 0x80000000u}},
  };
  for (const DivisionCase& c : cases) {
    Words a = c.u;
    a.push_back(0xDEADBEEFu);  // the working word must be overwritten, whatever it held
    Words m = c.v;
    Words q(c.u.size() - c.v.size() + 1);
    WordsDiv(q.data(), a.data(), c.u.size(), m.data(), m.size());
    EXPECT_EQ(q, c.q);
    EXPECT_EQ(Words(a.begin(), a.begin() + c.v.size()), c.r);
    EXPECT_EQ(Words(a.begin() + c.v.size(), a.end()), Words(a.size() - c.v.size(), 0));
    EXPECT_EQ(m, c.v) << "divisor restored";
  }
}

TEST(BignumWordsMontgomery, MinvIsTheNegatedInverseModuloTwoToThe32) {
  for (uint32_t m0 : {1u, 3u, 0xFFFFFFFFu, 0x80000001u, 0x12345679u}) {
    uint32_t minv = MontgomeryMinv(m0);
    EXPECT_EQ(static_cast<uint32_t>(m0 * minv), kOnes) << m0;  // m0 * minv = -1
  }
}

TEST(BignumWordsMontgomery, ProductOfOneAndRSquaredGivesR) {
  // m = 2^64 - 59 (prime). With R = 2^64: R mod m = 59 and R^2 mod m = 59^2 = 3481.
  const Words m = {0xFFFFFFC5u, kOnes};
  const uint32_t minv = MontgomeryMinv(m[0]);
  Words one = {1, 0};
  Words r2 = {3481, 0};
  Words out(2);
  Words scratch(2);
  WordsMontMul(out.data(), one.data(), r2.data(), m.data(), 2, minv, scratch.data());
  EXPECT_EQ(out, (Words{59, 0}));
  WordsMontSquare(out.data(), r2.data(), m.data(), 2, minv, scratch.data());  // R^3 mod m
  EXPECT_EQ(out, (Words{59u * 3481u, 0}));
  // The largest residue squared: (m-1)^2 R^-1 = R^-1 mod m; that times R^2, times R^-1 once
  // more, is 1.
  Words top = {0xFFFFFFC4u, kOnes};
  WordsMontSquare(out.data(), top.data(), m.data(), 2, minv, scratch.data());
  WordsMontMul(out.data(), out.data(), r2.data(), m.data(), 2, minv, scratch.data());
  EXPECT_EQ(out, (Words{1, 0}));
}

}  // namespace
}  // namespace nivra::crypto
