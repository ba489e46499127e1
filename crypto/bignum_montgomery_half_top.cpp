// Montgomery products for word counts that are not a whole number of limbs (odd counts with
// two-word limbs, from RSA keys whose primes are not a multiple of 64 bits long). The top limb is
// then a single word; the product or square is formed whole in scratch and reduced row by row,
// and the last reduction row takes a one-word quotient digit so that R stays 2^(32n).
#include "crypto/bignum_limbs.h"
#include "crypto/bignum_words.h"

namespace nivra::crypto::limbs {

namespace {

// An n-word operand seen as L limbs; with an odd word count its top limb is the single top word.
struct Operand {
  const uint32_t* w;
  size_t n;
  size_t limbs;
  Limb top;

  Operand(const uint32_t* words, size_t count)
      : w(words), n(count), limbs((count + kLimbWords - 1) / kLimbWords) {
    top = count % kLimbWords != 0 ? w[count - 1] : LoadLimb(w + kLimbWords * (limbs - 1));
  }
  Limb At(size_t i) const { return i + 1 < limbs ? LoadLimb(w + kLimbWords * i) : top; }
};

// t[0..count) += x * v.At(from .. from + count), the last of which is v's top limb; returns the
// limb carried out of t[count-1].
inline Limb MulAddRow(uint32_t* t, const Operand& v, size_t from, size_t count, Limb x) {
  const uint32_t* vw = v.w + kLimbWords * from;
  Limb c = 0;
#pragma GCC unroll 4
  for (size_t j = 0; j + 1 < count; ++j) {
    uint32_t* tj = t + kLimbWords * j;
    Wide p = static_cast<Wide>(x) * LoadLimb(vw + kLimbWords * j) + LoadLimb(tj) + c;
    StoreLimb(tj, Low(p));
    c = High(p);
  }
  uint32_t* last = t + kLimbWords * (count - 1);
  Wide p = static_cast<Wide>(x) * v.top + LoadLimb(last) + c;
  StoreLimb(last, Low(p));
  return High(p);
}

// t[0..2L) = a * b, schoolbook rows; row i's carry limb lands in t[i+L], which no earlier row
// has reached.
void MulInto(uint32_t* t, const Operand& a, const Operand& b) {
  const size_t l = a.limbs;
  WordsZero(t, kLimbWords * l);
  for (size_t i = 0; i < l; ++i) {
    StoreLimb(t + kLimbWords * (i + l), MulAddRow(t + kLimbWords * i, b, 0, l, a.At(i)));
  }
}

// t[0..2L) = a^2: each cross product a[i]*a[j], i < j, once, then all doubled and the squares of
// the limbs added.
void SquareInto(uint32_t* t, const Operand& a) {
  const size_t l = a.limbs;
  WordsZero(t, 2 * kLimbWords * l);
  for (size_t i = 0; i + 1 < l; ++i) {
    uint32_t* row = t + kLimbWords * (2 * i + 1);
    StoreLimb(t + kLimbWords * (i + l), MulAddRow(row, a, i + 1, l - i - 1, a.At(i)));
  }
  Limb shifted = 0;  // the top bit of the previous limb, moved up by the doubling
  Limb carry = 0;
  for (size_t i = 0; i < l; ++i) {
    uint32_t* pair = t + kLimbWords * 2 * i;
    const Limb lo = LoadLimb(pair), hi = LoadLimb(pair + kLimbWords);
    const Limb ai = a.At(i);
    const Wide sq = static_cast<Wide>(ai) * ai;
    Wide s = static_cast<Wide>((lo << 1) | shifted) + Low(sq) + carry;
    StoreLimb(pair, Low(s));
    s = static_cast<Wide>((hi << 1) | (lo >> (kLimbBits - 1))) + High(sq) + High(s);
    StoreLimb(pair + kLimbWords, Low(s));
    carry = High(s);
    shifted = hi >> (kLimbBits - 1);
  }
}

// Reduces t[0..2L) (below m*R) in place: afterwards words t[n..2n) hold t * R^(-1) mod m plus
// possibly m once more, and word t[2n] the carry above them (0 or 1). t has room for 2L + 1
// limbs.
void ReduceInPlace(uint32_t* t, const Operand& m, uint32_t minv) {
  const size_t l = m.limbs;
  const Limb limbMinv = LimbMinv(minv, m.At(0));
  const bool halfTop = m.n % kLimbWords != 0;
  const size_t fullRows = halfTop ? l - 1 : l;
  Limb extra = 0;
  auto addCarry = [&](size_t i, Limb c) {
    uint32_t* above = t + kLimbWords * (i + l);
    Wide s = static_cast<Wide>(LoadLimb(above)) + c + extra;
    StoreLimb(above, Low(s));
    extra = High(s);
  };
  for (size_t i = 0; i < fullRows; ++i) {
    uint32_t* row = t + kLimbWords * i;
    addCarry(i, MulAddRow(row, m, 0, l, LoadLimb(row) * limbMinv));
  }
  if (halfTop) {  // one word left to remove: a word-sized quotient digit
    uint32_t* row = t + kLimbWords * (l - 1);
    addCarry(l - 1, MulAddRow(row, m, 0, l, static_cast<uint32_t>(row[0] * minv)));
  }
  StoreLimb(t + kLimbWords * 2 * l, extra);
}

// r = t * R^(-1) mod m from the whole product in t: reduced in place, then m taken off once more
// when the carry word is set or the value reaches m.
void ReduceAndStore(uint32_t* r, uint32_t* t, const uint32_t* m, size_t n, uint32_t minv) {
  ReduceInPlace(t, Operand(m, n), minv);
  WordsCopy(r, t + n, n);
  if (t[2 * n] != 0 || WordsCompare(r, m, n) >= 0) WordsSub(r, m, n);
}

}  // namespace

void MontMulHalfTop(uint32_t* r, const uint32_t* a, const uint32_t* b, const uint32_t* m, size_t n,
                    uint32_t minv, uint32_t* scratch) {
  MulInto(scratch, Operand(a, n), Operand(b, n));
  ReduceAndStore(r, scratch, m, n, minv);
}

void MontSquareHalfTop(uint32_t* r, const uint32_t* a, const uint32_t* m, size_t n, uint32_t minv,
                       uint32_t* scratch) {
  SquareInto(scratch, Operand(a, n));
  ReduceAndStore(r, scratch, m, n, minv);
}

}  // namespace nivra::crypto::limbs
