// Division: word arrays by one word and by Knuth's algorithm D, and CBigNumber Mod / DivMod.
#include "crypto/bignum.h"
#include "crypto/bignum_words.h"

namespace nivra::crypto {

namespace {

unsigned LeadingZeros(uint32_t w) {
  unsigned n = 0;
  if ((w & 0xFFFF0000u) == 0) { n += 16; w <<= 16; }
  if ((w & 0xFF000000u) == 0) { n += 8; w <<= 8; }
  if ((w & 0xF0000000u) == 0) { n += 4; w <<= 4; }
  if ((w & 0xC0000000u) == 0) { n += 2; w <<= 2; }
  if ((w & 0x80000000u) == 0) { n += 1; }
  return n;
}

}  // namespace

uint32_t DivTwoWords(uint32_t* q, uint32_t hi, uint32_t lo, uint32_t d) {
  uint64_t num = (static_cast<uint64_t>(hi) << 32) | lo;
  *q = static_cast<uint32_t>(num / d);
  return static_cast<uint32_t>(num % d);
}

uint32_t WordsDivWord(uint32_t* q, const uint32_t* a, size_t n, uint32_t d) {
  uint64_t rem = 0;
  for (size_t i = n; i-- > 0;) {
    uint64_t num = (rem << 32) | a[i];
    if (q != nullptr) q[i] = static_cast<uint32_t>(num / d);
    rem = num % d;
  }
  return static_cast<uint32_t>(rem);
}

uint32_t WordsModWord(const uint32_t* a, size_t n, uint32_t d) {
  return WordsDivWord(nullptr, a, n, d);
}

void WordsDiv(uint32_t* q, uint32_t* a, size_t an, uint32_t* m, size_t mn) {
  if (mn == 1) {
    uint32_t rem = WordsDivWord(q, a, an, m[0]);
    WordsZero(a, an + 1);
    a[0] = rem;
    return;
  }
  // Normalise: the divisor's top bit set, the dividend shifted alike into an + 1 words.
  unsigned shift = LeadingZeros(m[mn - 1]);
  WordsShiftLeft(m, m, mn, shift);
  a[an] = WordsShiftLeft(a, a, an, shift);

  const uint32_t top = m[mn - 1];
  const uint32_t second = m[mn - 2];
  for (size_t j = an - mn + 1; j-- > 0;) {
    uint32_t* window = a + j;  // window[0..mn] is the current partial remainder
    uint32_t hi = window[mn];
    uint32_t lo = window[mn - 1];
    uint64_t qhat;
    uint64_t rhat;
    if (hi >= top) {
      qhat = 0xFFFFFFFFu;
      rhat = ((static_cast<uint64_t>(hi) << 32) | lo) - qhat * top;
    } else {
      uint32_t qw;
      rhat = DivTwoWords(&qw, hi, lo, top);
      qhat = qw;
    }
    // At most two corrections against the divisor's second word.
    while (rhat <= 0xFFFFFFFFu && qhat * second > ((rhat << 32) | window[mn - 2])) {
      --qhat;
      rhat += top;
    }
    uint32_t qw = static_cast<uint32_t>(qhat);
    uint32_t borrow = WordsMulSubWord(window, m, mn, qw);
    if (window[mn] < borrow) {
      --qw;
      WordsAdd(window, m, mn);  // the carry out cancels the negative top word
    }
    window[mn] = 0;
    if (q != nullptr) q[j] = qw;
  }

  WordsShiftRight(a, a, mn, shift);
  WordsShiftRight(m, m, mn, shift);
}

// ---- CBigNumber division --------------------------------------------------------------------

namespace {

// Divides a by m into a fresh block laid out as [dividend/remainder: an + 1 | divisor copy: mn];
// the remainder ends in block[0..mn). Returns the block (null on allocation failure) and its
// capacity through cap.
uint32_t* DivideIntoBlock(uint32_t* q, const CBigNumber& a, size_t an, const CBigNumber& m,
                          size_t mn, uint32_t* cap) {
  size_t total = an + 1 + mn;
  total += total & 1u;
  uint32_t* block = AllocWords(total);
  if (block == nullptr) return nullptr;
  uint32_t* divisor = block + an + 1;
  WordsCopy(block, a.words, an);
  WordsCopy(divisor, m.words, mn);
  WordsDiv(q, block, an, divisor, mn);
  *cap = static_cast<uint32_t>(total);
  return block;
}

}  // namespace

int CBigNumber::Mod(const CBigNumber& a, const CBigNumber& m) {
  size_t mn = WordsTrim(m.words, m.used);
  if (mn == 0) return -1;
  size_t an = WordsTrim(a.words, a.used);
  if (an < mn) return CopyFrom(a);
  uint32_t cap = 0;
  uint32_t* block = DivideIntoBlock(nullptr, a, an, m, mn, &cap);
  if (block == nullptr) return -1;
  Adopt(block, cap, static_cast<uint32_t>(mn));
  Trim();
  return 0;
}

int CBigNumber::DivMod(CBigNumber& quotient, const CBigNumber& a, const CBigNumber& m) {
  size_t mn = WordsTrim(m.words, m.used);
  if (mn == 0) return -1;
  size_t an = WordsTrim(a.words, a.used);
  if (an < mn) {
    quotient.SetZero();
    return CopyFrom(a);
  }
  uint32_t qn = static_cast<uint32_t>(an - mn + 1);
  if (qn > quotient.capacity && quotient.Reserve(qn) != 0) return -1;
  uint32_t cap = 0;
  uint32_t* block = DivideIntoBlock(quotient.words, a, an, m, mn, &cap);
  if (block == nullptr) return -1;
  quotient.used = qn;
  quotient.Trim();
  Adopt(block, cap, static_cast<uint32_t>(mn));
  Trim();
  return 0;
}

}  // namespace nivra::crypto
