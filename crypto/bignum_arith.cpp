// Addition, subtraction, comparison, products and shifts of CBigNumber.
#include "crypto/bignum.h"
#include "crypto/bignum_words.h"

namespace nivra::crypto {

namespace {

uint32_t Significant(const CBigNumber& a) {
  return static_cast<uint32_t>(WordsTrim(a.words, a.used));
}

// r[0..n) = b[0..n) - r[0..n), for b >= r.
void ReverseSub(uint32_t* r, const uint32_t* b, size_t n) {
  uint32_t borrow = 0;
  for (size_t i = 0; i < n; ++i) {
    uint64_t d = static_cast<uint64_t>(b[i]) - r[i] - borrow;
    r[i] = static_cast<uint32_t>(d);
    borrow = static_cast<uint32_t>(d >> 32) & 1u;
  }
}

}  // namespace

int CBigNumber::Compare(const CBigNumber& b) const {
  uint32_t an = Significant(*this);
  uint32_t bn = Significant(b);
  if (an != bn) return an > bn ? 1 : -1;
  return WordsCompare(words, b.words, an);
}

int CBigNumber::Add(const CBigNumber& b) {
  uint32_t an = Significant(*this);
  uint32_t bn = Significant(b);
  uint32_t n = an > bn ? an : bn;
  used = an;
  if (GrowZeroed(n + 1) != 0) return -1;  // b.words stays valid: it is words when &b == this
  uint32_t carry = WordsAdd(words, b.words, bn);
  WordsAddWord(words + bn, n + 1 - bn, carry);
  used = n + 1;
  Trim();
  return 0;
}

int CBigNumber::Sub(const CBigNumber& b) {
  uint32_t an = Significant(*this);
  uint32_t bn = Significant(b);
  used = an;
  if (Compare(b) >= 0) {
    uint32_t borrow = WordsSub(words, b.words, bn);
    WordsSubWord(words + bn, an - bn, borrow);
    Trim();
    return 0;
  }
  if (GrowZeroed(bn) != 0) return -1;
  ReverseSub(words, b.words, bn);
  used = bn;
  Trim();
  return 1;
}

int CBigNumber::AddWord(uint32_t w) {
  uint32_t n = Significant(*this);
  used = n;
  if (GrowZeroed(n + 1) != 0) return -1;
  WordsAddWord(words, n + 1, w);
  used = n + 1;
  Trim();
  return 0;
}

int CBigNumber::SubWord(uint32_t w) {
  uint32_t n = Significant(*this);
  used = n;
  if (n <= 1 && (n == 0 ? 0u : words[0]) < w) {
    uint32_t value = n == 0 ? 0u : words[0];
    return SetWord(w - value) == 0 ? 1 : -1;
  }
  WordsSubWord(words, n, w);
  Trim();
  return 0;
}

int CBigNumber::Square(const CBigNumber& a) {
  uint32_t an = Significant(a);
  if (an == 0) {
    used = 0;
    return 0;
  }
  uint32_t cap = 2 * an;
  uint32_t* block = AllocWords(cap);
  if (block == nullptr) return -1;
  WordsSquare(block, a.words, an);
  Adopt(block, cap, cap);
  Trim();
  return 0;
}

int CBigNumber::Mul(const CBigNumber& a, const CBigNumber& b) {
  if (&a == &b) return Square(a);
  uint32_t an = Significant(a);
  uint32_t bn = Significant(b);
  if (an == 0 || bn == 0) {
    used = 0;
    return 0;
  }
  uint32_t n = an + bn;
  uint32_t cap = n + (n & 1u);
  uint32_t* block = AllocWords(cap);
  if (block == nullptr) return -1;
  WordsMul(block, a.words, an, b.words, bn);
  Adopt(block, cap, n);
  Trim();
  return 0;
}

int CBigNumber::ShiftRight(uint32_t bits) {
  uint32_t n = Significant(*this);
  uint32_t drop = bits / 32;
  if (drop >= n) {
    used = 0;
    return 0;
  }
  WordsCopy(words, words + drop, n - drop);
  WordsShiftRight(words, words, n - drop, bits % 32);
  used = n - drop;
  Trim();
  return 0;
}

int CBigNumber::ShiftLeft(uint32_t bits) {
  uint32_t n = Significant(*this);
  if (n == 0) return 0;
  uint32_t add = bits / 32;
  used = n;
  if (GrowZeroed(n + add + 1) != 0) return -1;
  for (uint32_t i = n; i-- > 0;) words[i + add] = words[i];
  WordsZero(words, add);
  words[n + add] = WordsShiftLeft(words + add, words + add, n, bits % 32);
  used = n + add + 1;
  Trim();
  return 0;
}

uint32_t CBigNumber::RemoveTrailingZeros() {
  uint32_t n = Significant(*this);
  if (n == 0) return 0;
  uint32_t zeros = 0;
  uint32_t i = 0;
  while (words[i] == 0) {
    zeros += 32;
    ++i;
  }
  for (uint32_t w = words[i]; (w & 1u) == 0; w >>= 1) ++zeros;
  ShiftRight(zeros);
  return zeros;
}

}  // namespace nivra::crypto
