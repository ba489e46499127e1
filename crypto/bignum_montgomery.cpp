// Montgomery arithmetic over word arrays (R = 2^(32n)). The products and the reduction work on
// limbs of two words with 128-bit products where the compiler has them (a quarter as many
// multiplications as word by word), otherwise on single words with 64-bit products; the arrays
// stay 32-bit words either way. A product or square is formed whole in the scratch array, then
// reduced row by row. With an odd word count the top limb is half a limb (one word) and the last
// reduction row removes one word instead of two, so R stays 2^(32n).
#include <cstring>

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

#if defined(__SIZEOF_INT128__)
using Limb = uint64_t;
using Wide = unsigned __int128;
constexpr size_t kLimbWords = 2;
inline Limb LoadLimb(const uint32_t* p) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  Limb v;
  std::memcpy(&v, p, sizeof v);  // the two words in memory order are the limb
  return v;
#else
  return p[0] | static_cast<Limb>(p[1]) << 32;
#endif
}
inline void StoreLimb(uint32_t* p, Limb v) {
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
  std::memcpy(p, &v, sizeof v);
#else
  p[0] = static_cast<uint32_t>(v);
  p[1] = static_cast<uint32_t>(v >> 32);
#endif
}
#else
using Limb = uint32_t;
using Wide = uint64_t;
constexpr size_t kLimbWords = 1;
inline Limb LoadLimb(const uint32_t* p) { return *p; }
inline void StoreLimb(uint32_t* p, Limb v) { *p = v; }
#endif
constexpr unsigned kLimbBits = 32 * kLimbWords;

inline Limb Low(Wide v) { return static_cast<Limb>(v); }
inline Limb High(Wide v) { return static_cast<Limb>(v >> kLimbBits); }

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
    Wide p = static_cast<Wide>(x) * LoadLimb(vw + kLimbWords * j) + LoadLimb(t + kLimbWords * j) + c;
    StoreLimb(t + kLimbWords * j, Low(p));
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
  // -m^(-1) mod 2^kLimbBits from the word constant: one more Newton step when limbs are wider.
  Limb inverse = static_cast<Limb>(0u - minv);
  inverse *= 2 - m.At(0) * inverse;
  const Limb limbMinv = 0 - inverse;
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

// r = t[n..2n) less m when the carry word t[2n] is set or the value reaches m.
inline void FinalSubtract(uint32_t* r, const uint32_t* t, const uint32_t* m, size_t n) {
  WordsCopy(r, t + n, n);
  if (t[2 * n] != 0 || WordsCompare(r, m, n) >= 0) WordsSub(r, m, n);
}

}  // namespace

void WordsMontMul(uint32_t* r, const uint32_t* a, const uint32_t* b, const uint32_t* m, size_t n,
                  uint32_t minv, uint32_t* scratch) {
  const Operand mod(m, n);
  MulInto(scratch, Operand(a, n), Operand(b, n));
  ReduceInPlace(scratch, mod, minv);
  FinalSubtract(r, scratch, m, n);
}

void WordsMontSquare(uint32_t* r, const uint32_t* a, const uint32_t* m, size_t n, uint32_t minv,
                     uint32_t* scratch) {
  const Operand mod(m, n);
  SquareInto(scratch, Operand(a, n));
  ReduceInPlace(scratch, mod, minv);
  FinalSubtract(r, scratch, m, n);
}

}  // namespace nivra::crypto
