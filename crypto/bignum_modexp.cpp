// Modular exponentiation: Montgomery multiplication with a left-to-right sliding window, and a
// dedicated path for the base 2 (the probable-prime test's base) whose multiplications are shifts.
#include "crypto/bignum.h"
#include "crypto/bignum_words.h"

namespace nivra::crypto {

namespace {

// Window parameter k (window width k + 1, 2^k precomputed odd powers) for an exponent of
// `bits` bits.
unsigned WindowParameter(uint32_t bits) {
  static const uint32_t kThresholds[] = {5, 23, 80, 240, 672, 1792};
  unsigned k = 0;
  while (k < 6 && bits > kThresholds[k]) ++k;
  return k;
}

// Montgomery context of one odd modulus, over caller-owned scratch.
struct Montgomery {
  const uint32_t* m;
  size_t n;
  uint32_t minv;
  uint32_t* scratch;  // MontScratchWords(n) words

  void Mul(uint32_t* r, const uint32_t* a, const uint32_t* b) const {
    WordsMontMul(r, a, b, m, n, minv, scratch);
  }
  void Square(uint32_t* r, const uint32_t* a) const {
    WordsMontSquare(r, a, m, n, minv, scratch);
  }
  // r = a * R^(-1) mod m: leaves Montgomery form.
  void Leave(uint32_t* r, const uint32_t* a) const {
    WordsCopy(scratch, a, n);
    WordsZero(scratch + n, n);
    WordsMontReduce(scratch, m, n, minv);
    WordsCopy(r, scratch + n, n);
  }
};

// r[0..n) = value * 2^(32n) mod m, where value is given as `vn` words; work has vn + 2n + 1 words
// (dividend with its extra top word, then a copy of the divisor).
void ToMontgomery(uint32_t* r, const uint32_t* value, size_t vn, const uint32_t* m, size_t n,
                  uint32_t* work) {
  uint32_t* dividend = work;             // vn + n + 1 words
  uint32_t* divisor = work + vn + n + 1;  // n words
  WordsZero(dividend, n);
  WordsCopy(dividend + n, value, vn);
  WordsCopy(divisor, m, n);
  WordsDiv(nullptr, dividend, vn + n, divisor, n);
  WordsCopy(r, dividend, n);
}

// result = x[0..n); 0, or -1 when result cannot grow to n words.
int StoreResult(CBigNumber& result, const uint32_t* x, size_t n) {
  int status = n > result.capacity ? result.Reserve(static_cast<uint32_t>(n)) : 0;
  if (status == 0) {
    WordsCopy(result.words, x, n);
    result.used = static_cast<uint32_t>(n);
    result.Trim();
  }
  return status;
}

// result = 2^e as a single bit (the caller knows 2^e < m).
int SetPowerOfTwo(CBigNumber& result, uint32_t e) {
  uint32_t wn = e / 32 + 1;
  if (wn > result.capacity && result.Reserve(wn) != 0) return -1;
  WordsZero(result.words, wn);
  result.words[e / 32] = 1u << (e % 32);
  result.used = wn;
  return 0;
}

// 2^exp mod m for odd m > 1 with exp >= 1 and 2^exp >= m.
int ModExpBase2(CBigNumber& result, const CBigNumber& exp, const CBigNumber& m) {
  const size_t n = WordsTrim(m.words, m.used);
  const uint32_t mbits = m.BitLength();
  const uint32_t ebits = exp.BitLength();

  // Start from the leading exponent bits whose value v keeps 2^v below m.
  uint32_t v = 0;
  uint32_t i = ebits;
  while (i > 0) {
    uint32_t next = 2 * v + (exp.Bit(i - 1) ? 1u : 0u);
    if (next > mbits - 1) break;
    v = next;
    --i;
  }
  const size_t vn = v / 32 + 1;
  // Layout: x (n) | scratch | start value (vn) | conversion work (vn + 2n + 1).
  const size_t total = n + MontScratchWords(n) + vn + (vn + 2 * n + 1);
  uint32_t* block = AllocWords(total);
  if (block == nullptr) return -1;
  uint32_t* x = block;
  Montgomery mont{m.words, n, MontgomeryMinv(m.words[0]), block + n};
  uint32_t* start = block + n + MontScratchWords(n);
  WordsZero(start, vn);
  start[v / 32] = 1u << (v % 32);
  ToMontgomery(x, start, vn, m.words, n, start + vn);

  while (i-- > 0) {
    mont.Square(x, x);
    if (exp.Bit(i)) {
      uint32_t out = WordsShiftLeft(x, x, n, 1);
      if (out != 0 || WordsCompare(x, m.words, n) >= 0) WordsSub(x, m.words, n);
    }
  }
  mont.Leave(x, x);
  int status = StoreResult(result, x, n);
  FreeWords(block, total);
  return status;
}

// 2^exp mod m for odd m.
int ModExpOfTwo(CBigNumber& result, const CBigNumber& exp, const CBigNumber& m) {
  const uint32_t mbits = m.BitLength();
  const uint32_t ebits = exp.BitLength();
  if (mbits == 1) {  // m = 1
    result.used = 0;
    return 0;
  }
  if (ebits <= 32 && (ebits == 0 || exp.words[0] <= mbits - 1)) {
    return SetPowerOfTwo(result, ebits == 0 ? 0 : exp.words[0]);  // 2^exp < m
  }
  return ModExpBase2(result, exp, m);
}

// Allocates the sliding-window block of `perEntry * 2^k + rest` words, lowering k while the table
// cannot be had: the exponentiation degrades instead of failing. Null when even k = 0 fails.
uint32_t* AllocWindowBlock(unsigned* k, size_t perEntry, size_t rest, size_t* total) {
  for (;;) {
    *total = (static_cast<size_t>(1) << *k) * perEntry + rest;
    uint32_t* block = AllocWords(*total);
    if (block != nullptr || *k == 0) return block;
    --*k;
  }
}

// acc = g^exp in Montgomery form, from table[j] = g^(2j+1) (2^k entries of n words), scanning the
// exponent's set bits in windows of k + 1 bits from the top. exp has at least two bits.
void SlidingWindow(uint32_t* acc, const uint32_t* table, unsigned k, const CBigNumber& exp,
                   const Montgomery& mont) {
  const size_t n = mont.n;
  const uint32_t width = k + 1;
  bool first = true;
  int64_t i = static_cast<int64_t>(exp.BitLength()) - 1;
  while (i >= 0) {
    if (!exp.Bit(static_cast<uint32_t>(i))) {
      mont.Square(acc, acc);
      --i;
      continue;
    }
    // The window runs from bit i down to the lowest set bit within `width` bits.
    int64_t low = i - static_cast<int64_t>(width) + 1;
    if (low < 0) low = 0;
    while (!exp.Bit(static_cast<uint32_t>(low))) ++low;
    uint32_t value = 0;
    for (int64_t b = i; b >= low; --b) value = (value << 1) | (exp.Bit(static_cast<uint32_t>(b)) ? 1u : 0u);
    const uint32_t* entry = table + (value >> 1) * n;
    if (first) {
      WordsCopy(acc, entry, n);
      first = false;
    } else {
      for (int64_t s = i; s >= low; --s) mont.Square(acc, acc);
      mont.Mul(acc, acc, entry);
    }
    i = low - 1;
  }
}

}  // namespace

int CBigNumber::ModExp(const CBigNumber& base, const CBigNumber& exp, const CBigNumber& m) {
  const size_t n = WordsTrim(m.words, m.used);
  if (n == 0 || (m.words[0] & 1u) == 0) return -1;
  if (base.IsWord(2)) return ModExpOfTwo(*this, exp, m);
  const uint32_t ebits = exp.BitLength();
  if (ebits == 0) return SetWord(1);
  if (ebits == 1) return CopyFrom(base);

  const size_t bn = WordsTrim(base.words, base.used);
  // Layout: table (2^k * n) | acc (n) | g^2 (n) | scratch | conversion work (bn + 2n + 1).
  unsigned k = WindowParameter(ebits);
  size_t total = 0;
  uint32_t* block = AllocWindowBlock(&k, n, 2 * n + MontScratchWords(n) + (bn + 2 * n + 1), &total);
  if (block == nullptr) return -1;
  const size_t entries = static_cast<size_t>(1) << k;
  uint32_t* table = block;
  uint32_t* acc = block + entries * n;
  uint32_t* g2 = acc + n;
  Montgomery mont{m.words, n, MontgomeryMinv(m.words[0]), g2 + n};
  uint32_t* work = g2 + n + MontScratchWords(n);

  // table[j] = g^(2j+1) in Montgomery form.
  ToMontgomery(table, base.words, bn, m.words, n, work);
  if (entries > 1) {
    mont.Square(g2, table);
    for (size_t j = 1; j < entries; ++j) mont.Mul(table + j * n, table + (j - 1) * n, g2);
  }
  SlidingWindow(acc, table, k, exp, mont);
  mont.Leave(acc, acc);
  int status = StoreResult(*this, acc, n);
  FreeWords(block, total);
  return status;
}

}  // namespace nivra::crypto
