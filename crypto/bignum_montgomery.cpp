// Montgomery arithmetic over word arrays (R = 2^(32n)). Products and squares work on limbs
// (bignum_limbs.h) by product scanning: column by column, the product's terms and the reduction's
// summed together in a three-limb accumulator, nothing stored until a column is done. The inner
// loops are unrolled by two (`#pragma GCC unroll`, understood by GCC and clang): a column of
// 1024-bit operands has 1 to 16 limb products of each kind, so the unrolled remainder of a wider
// unroll costs more than the loop control it saves (four was 5% slower on the RSA-2048 private
// operation). Word counts that are not a whole number of limbs take
// bignum_montgomery_half_top.cpp.
#include "crypto/bignum_limbs.h"
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

using namespace limbs;

// Column accumulator of the product-scanning loops: hi * 2^(2 limbs) + lo. A column sums at most
// 3L products of two limbs, far within three limbs.
struct Column {
  Wide lo = 0;
  Limb hi = 0;

  void Add(Wide v) {
    lo += v;
    hi += lo < v ? 1 : 0;
  }
  void MulAdd(Limb a, Limb b) { Add(static_cast<Wide>(a) * b); }
  // Takes the low limb out and moves the accumulator down one limb.
  Limb Shift() {
    const Limb w = Low(lo);
    lo = (lo >> kLimbBits) | (static_cast<Wide>(hi) << kLimbBits);
    hi = 0;
    return w;
  }
};

// Column i (< L) of the reduction: adds q[j] * m[i-j] for j < i, then picks q[i] so that the
// column's low limb becomes zero, and moves on.
inline void ReduceLowColumn(Column& acc, uint32_t* q, const uint32_t* m, size_t i, Limb minv) {
#pragma GCC unroll 2
  for (size_t j = 0; j < i; ++j) acc.MulAdd(LimbAt(q, j), LimbAt(m, i - j));
  const Limb qi = Low(acc.lo) * minv;
  StoreLimb(q + kLimbWords * i, qi);
  acc.MulAdd(qi, LimbAt(m, 0));
  acc.Shift();
}

// Sum over column k of a^2: the cross products a[j]*a[k-j], j < k-j, doubled, plus the square of
// a[k/2] when k is even; j runs from `from`.
inline void SquareColumn(Column& acc, const uint32_t* a, size_t k, size_t from) {
  Column cross;
  size_t j = from;
#pragma GCC unroll 2
  for (; j < k - j; ++j) cross.MulAdd(LimbAt(a, j), LimbAt(a, k - j));
  acc.Add(cross.lo << 1);
  acc.hi += (cross.hi << 1) | High(cross.lo) >> (kLimbBits - 1);
  if (j == k - j) acc.MulAdd(LimbAt(a, j), LimbAt(a, j));
}

// Product scanning over whole limbs (n a multiple of the limb): column by column, a*b (or a^2)
// and q*m summed together, the high columns written to r; returns the carry above r. Column
// i >= L reads only limbs above i - L, so r may replace a or b as it is written.
template <typename ProductColumn>
inline Limb FusedColumns(uint32_t* r, const uint32_t* m, size_t l, Limb minv, uint32_t* q,
                         ProductColumn product) {
  Column acc;
  for (size_t i = 0; i < l; ++i) {
    product(acc, i, 0);
    ReduceLowColumn(acc, q, m, i, minv);
  }
  for (size_t i = l; i < 2 * l - 1; ++i) {
    product(acc, i, i - l + 1);
#pragma GCC unroll 2
    for (size_t j = i - l + 1; j < l; ++j) acc.MulAdd(LimbAt(q, j), LimbAt(m, i - j));
    StoreLimb(r + kLimbWords * (i - l), acc.Shift());
  }
  StoreLimb(r + kLimbWords * (l - 1), acc.Shift());
  return acc.Shift();
}

// r less m when a carry came out above r or r reaches m.
inline void FinalSubtract(uint32_t* r, Limb carry, const uint32_t* m, size_t n) {
  if (carry != 0 || WordsCompare(r, m, n) >= 0) WordsSub(r, m, n);
}

}  // namespace

void WordsMontMul(uint32_t* r, const uint32_t* a, const uint32_t* b, const uint32_t* m, size_t n,
                  uint32_t minv, uint32_t* scratch) {
  if (n % kLimbWords == 0) {
    const size_t l = n / kLimbWords;
    auto product = [a, b, l](Column& acc, size_t i, size_t from) {
#pragma GCC unroll 2
      for (size_t j = from; j <= i && j < l; ++j) acc.MulAdd(LimbAt(a, j), LimbAt(b, i - j));
    };
    const Limb carry = FusedColumns(r, m, l, LimbMinv(minv, LimbAt(m, 0)), scratch, product);
    FinalSubtract(r, carry, m, n);
    return;
  }
  limbs::MontMulHalfTop(r, a, b, m, n, minv, scratch);
}

void WordsMontSquare(uint32_t* r, const uint32_t* a, const uint32_t* m, size_t n, uint32_t minv,
                     uint32_t* scratch) {
  if (n % kLimbWords == 0) {
    auto product = [a](Column& acc, size_t i, size_t from) { SquareColumn(acc, a, i, from); };
    const size_t l = n / kLimbWords;
    const Limb carry = FusedColumns(r, m, l, LimbMinv(minv, LimbAt(m, 0)), scratch, product);
    FinalSubtract(r, carry, m, n);
    return;
  }
  limbs::MontSquareHalfTop(r, a, m, n, minv, scratch);
}

}  // namespace nivra::crypto
