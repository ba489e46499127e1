// Montgomery arithmetic over word arrays (R = 2^(32n)). The inner loops are unrolled by four
// (`#pragma GCC unroll`, understood by GCC and clang): loop control is a third of a
// product-scanning step otherwise, and these loops are nearly all of an RSA private operation.
#include "crypto/bignum_words.h"

namespace nivra::crypto {

uint32_t MontgomeryMinv(uint32_t m0) {
  // Newton's iteration doubles the number of correct low bits each round; x = m0 is already
  // correct to three bits for odd m0.
  uint32_t x = m0;
  while (static_cast<uint32_t>(m0 * x) != 1u) x *= 2u - m0 * x;
  return 0u - x;
}

void WordsMontReduce(uint32_t* t, const uint32_t* m, size_t n, uint32_t minv) {
  // The carry out of each row is added one word higher; what overflows past t[2n) is counted
  // in `extra` (at most 1, since the reduced value stays below 2m).
  uint32_t extra = 0;
  for (size_t i = 0; i < n; ++i) {
    uint32_t q = t[i] * minv;
    uint32_t c = WordsMulAddWord(t + i, m, n, q);
    uint64_t s = static_cast<uint64_t>(t[i + n]) + c + extra;
    t[i + n] = static_cast<uint32_t>(s);
    extra = static_cast<uint32_t>(s >> 32);
  }
  uint32_t* high = t + n;
  if (extra != 0 || WordsCompare(high, m, n) >= 0) WordsSub(high, m, n);
}

namespace {

// Column accumulator of the product-scanning loops: hi * 2^64 + lo. A column sums at most 3n
// products below 2^64, far within 96 bits.
struct Column {
  uint64_t lo = 0;
  uint32_t hi = 0;

  void Add(uint64_t v) {
    lo += v;
    hi += lo < v ? 1u : 0u;
  }
  void MulAdd(uint32_t a, uint32_t b) { Add(static_cast<uint64_t>(a) * b); }
  // Takes the low word out and moves the accumulator down one word.
  uint32_t Shift() {
    uint32_t w = static_cast<uint32_t>(lo);
    lo = (lo >> 32) | (static_cast<uint64_t>(hi) << 32);
    hi = 0;
    return w;
  }
};

// Column i (< n) of the reduction: adds q[j] * m[i-j] for j < i, then picks q[i] so that the
// column's low word becomes zero, and moves on.
inline void ReduceLowColumn(Column& acc, uint32_t* q, const uint32_t* m, size_t i, uint32_t minv) {
#pragma GCC unroll 4
  for (size_t j = 0; j < i; ++j) acc.MulAdd(q[j], m[i - j]);
  q[i] = static_cast<uint32_t>(acc.lo) * minv;
  acc.MulAdd(q[i], m[0]);
  acc.Shift();
}

inline void FinalSubtract(uint32_t* r, uint32_t carry, const uint32_t* m, size_t n) {
  if (carry != 0 || WordsCompare(r, m, n) >= 0) WordsSub(r, m, n);
}

}  // namespace

void WordsMontMul(uint32_t* r, const uint32_t* a, const uint32_t* b, const uint32_t* m, size_t n,
                  uint32_t minv, uint32_t* scratch) {
  // Product scanning: column by column, a*b and q*m summed together. Column i >= n reads only
  // words above i - n, so r may replace a or b as it is written.
  uint32_t* q = scratch;
  Column acc;
  for (size_t i = 0; i < n; ++i) {
#pragma GCC unroll 4
    for (size_t j = 0; j <= i; ++j) acc.MulAdd(a[j], b[i - j]);
    ReduceLowColumn(acc, q, m, i, minv);
  }
  for (size_t i = n; i < 2 * n - 1; ++i) {
#pragma GCC unroll 4
    for (size_t j = i - n + 1; j < n; ++j) {
      acc.MulAdd(a[j], b[i - j]);
      acc.MulAdd(q[j], m[i - j]);
    }
    r[i - n] = acc.Shift();
  }
  r[n - 1] = acc.Shift();
  FinalSubtract(r, acc.Shift(), m, n);
}

namespace {

// Sum over the column k of a^2: cross products a[j]*a[k-j] for j < k-j (doubled) plus the square
// of a[k/2] when k is even; j runs from `from`.
inline void SquareColumn(Column& acc, const uint32_t* a, size_t k, size_t from) {
  Column cross;
  size_t j = from;
#pragma GCC unroll 4
  for (; j < k - j; ++j) cross.MulAdd(a[j], a[k - j]);
  acc.Add(cross.lo << 1);
  acc.hi += (cross.hi << 1) | static_cast<uint32_t>(cross.lo >> 63);
  if (j == k - j) acc.MulAdd(a[j], a[j]);
}

}  // namespace

void WordsMontSquare(uint32_t* r, const uint32_t* a, const uint32_t* m, size_t n, uint32_t minv,
                     uint32_t* scratch) {
  uint32_t* q = scratch;
  Column acc;
  for (size_t i = 0; i < n; ++i) {
    SquareColumn(acc, a, i, 0);
    ReduceLowColumn(acc, q, m, i, minv);
  }
  for (size_t i = n; i < 2 * n - 1; ++i) {
    SquareColumn(acc, a, i, i - n + 1);
#pragma GCC unroll 4
    for (size_t j = i - n + 1; j < n; ++j) acc.MulAdd(q[j], m[i - j]);
    r[i - n] = acc.Shift();
  }
  r[n - 1] = acc.Shift();
  FinalSubtract(r, acc.Shift(), m, n);
}

}  // namespace nivra::crypto
